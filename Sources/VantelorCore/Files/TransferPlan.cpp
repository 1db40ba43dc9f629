#include "Files/TransferPlan.h"

#include <QJsonArray>
#include <QJsonDocument>

#include "Support/Paths.h"

namespace vantelor {

QString TransferPlan::idText() const
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

qint64 TransferPlan::totalBytes() const
{
    qint64 total = 0;
    for (const TransferItem& item : items)
        total += item.bytes;
    return total;
}

QJsonObject TransferPlan::toJson() const
{
    QJsonArray list;
    for (const TransferItem& item : items)
        list.append(item.toJson());
    return QJsonObject{
        {QStringLiteral("id"), idText()},
        {QStringLiteral("kind"), TransferKinds::rawValue(kind)},
        {QStringLiteral("destination"), Paths::fileUrl(destination)},
        {QStringLiteral("items"), list},
    };
}

QByteArray TransferPlan::journal() const
{
    return QJsonDocument(toJson()).toJson(QJsonDocument::Compact);
}

std::optional<TransferPlan> TransferPlan::fromJson(const QJsonObject& object)
{
    TransferPlan plan;
    plan.id = QUuid::fromString(object.value(QStringLiteral("id")).toString());
    const auto kind = TransferKinds::fromRawValue(object.value(QStringLiteral("kind")).toString());
    plan.destination = Paths::fromFileUrl(object.value(QStringLiteral("destination")).toString());
    if (plan.id.isNull() || !kind || plan.destination.isEmpty() || !object.value(QStringLiteral("items")).isArray())
        return std::nullopt;
    plan.kind = *kind;
    for (const QJsonValue& value : object.value(QStringLiteral("items")).toArray()) {
        auto item = TransferItem::fromJson(value.toObject());
        if (!item)
            return std::nullopt;
        plan.items.append(std::move(*item));
    }
    return plan;
}

std::optional<TransferPlan> TransferPlan::fromJournal(const QByteArray& bytes)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return fromJson(document.object());
}

} // namespace vantelor
