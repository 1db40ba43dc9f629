#pragma once

#include <optional>

#include <QString>

namespace vantelor {

// A copy leaves the sources where they are; a move takes them out of their folders afterwards.
enum class TransferKind { copy, move };

namespace TransferKinds {
// "copy" or "move": the journal's and the command line's words.
QString rawValue(TransferKind kind);
std::optional<TransferKind> fromRawValue(const QString& raw);
} // namespace TransferKinds

} // namespace vantelor
