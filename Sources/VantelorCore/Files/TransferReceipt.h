#pragma once

#include <QStringList>

namespace vantelor {

// What a finished transfer reports: every planned item travelled.
struct TransferReceipt {
    qint64 count = 0;
    // The per-transfer recovery folders that a move left behind, holding the moved originals
    // and a copy of the journal; empty for a copy.
    QStringList recoveryFolders;

    friend bool operator==(const TransferReceipt&, const TransferReceipt&) = default;
};

} // namespace vantelor
