#pragma once

#include <optional>

#include <QByteArray>
#include <QList>
#include <QUuid>

#include "Files/TransferItem.h"
#include "Files/TransferKind.h"

namespace vantelor {

// A confirmed-or-to-be-confirmed transfer: every file that will travel, in ascending order of
// source path, with the digest each had when planned. Its JSON form is the journal
// "transaction.json" that execution leaves beside the staged and recovered files.
struct TransferPlan {
    QUuid id;
    TransferKind kind = TransferKind::copy;
    QString destination;  // the destination folder, symbolic links resolved
    QList<TransferItem> items;

    // The id as the upper-case hyphenated text used in folder names and the journal.
    QString idText() const;
    qint64 totalBytes() const;

    QJsonObject toJson() const;
    // The journal's bytes: compact JSON.
    QByteArray journal() const;
    static std::optional<TransferPlan> fromJson(const QJsonObject& object);
    static std::optional<TransferPlan> fromJournal(const QByteArray& bytes);

    friend bool operator==(const TransferPlan&, const TransferPlan&) = default;
};

} // namespace vantelor
