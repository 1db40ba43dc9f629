#pragma once

#include <optional>

#include <QString>

#include "Metadata/XMPSnapshot.h"

namespace vantelor {

// The outcome for one photo of a batch read: exactly one of `snapshot` and `error` is present.
struct MetadataReadResult {
    QString url;
    std::optional<XMPSnapshot> snapshot;
    std::optional<QString> error;     // the failure's user-facing description

    friend bool operator==(const MetadataReadResult&, const MetadataReadResult&) = default;
};

} // namespace vantelor
