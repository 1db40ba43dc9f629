#pragma once

#include <optional>

#include <QString>

namespace vantelor {

// The edit of one sidecar: each present field sets its property, each absent one leaves it as it
// is. The rating is written as its decimal text and the label as given (the app writes "red" …
// "purple", and the empty text for no colour).
struct XMPPatch {
    std::optional<int> rating;
    std::optional<QString> label;

    bool isEmpty() const { return !rating && !label; }
    friend bool operator==(const XMPPatch&, const XMPPatch&) = default;
};

} // namespace vantelor
