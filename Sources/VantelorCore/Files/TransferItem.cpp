#include "Files/TransferItem.h"

#include <QJsonValue>

#include "Support/Paths.h"

namespace vantelor {

QJsonObject TransferItem::toJson() const
{
    return QJsonObject{
        {QStringLiteral("source"), Paths::fileUrl(source)},
        {QStringLiteral("destination"), Paths::fileUrl(destination)},
        {QStringLiteral("digest"), digest},
        {QStringLiteral("bytes"), QJsonValue(bytes)},
    };
}

std::optional<TransferItem> TransferItem::fromJson(const QJsonObject& object)
{
    const QJsonValue bytes = object.value(QStringLiteral("bytes"));
    TransferItem item;
    item.source = Paths::fromFileUrl(object.value(QStringLiteral("source")).toString());
    item.destination = Paths::fromFileUrl(object.value(QStringLiteral("destination")).toString());
    item.digest = object.value(QStringLiteral("digest")).toString();
    item.bytes = bytes.toInteger(-1);
    if (item.source.isEmpty() || item.destination.isEmpty() || item.digest.size() != 64 || item.bytes < 0)
        return std::nullopt;
    return item;
}

} // namespace vantelor
