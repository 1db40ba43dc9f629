#pragma once

#include <optional>

#include <QJsonObject>
#include <QString>

namespace vantelor {

// One file of a transfer: where it is, where it will land and what it held when it was planned.
struct TransferItem {
    QString source;       // absolute path
    QString destination;  // the destination folder plus the source's own file name
    QString digest;       // SHA-256 of the contents at planning time, 64 lower-case hex digits
    qint64 bytes = 0;     // size at planning time

    // Paths travel as "file:///…" URLs, so names that are not UTF-8 survive the JSON.
    QJsonObject toJson() const;
    static std::optional<TransferItem> fromJson(const QJsonObject& object);

    friend bool operator==(const TransferItem&, const TransferItem&) = default;
};

} // namespace vantelor
