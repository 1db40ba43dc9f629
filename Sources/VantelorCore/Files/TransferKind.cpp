#include "Files/TransferKind.h"

namespace vantelor::TransferKinds {

QString rawValue(TransferKind kind)
{
    return kind == TransferKind::copy ? QStringLiteral("copy") : QStringLiteral("move");
}

std::optional<TransferKind> fromRawValue(const QString& raw)
{
    if (raw == QLatin1String("copy"))
        return TransferKind::copy;
    if (raw == QLatin1String("move"))
        return TransferKind::move;
    return std::nullopt;
}

} // namespace vantelor::TransferKinds
