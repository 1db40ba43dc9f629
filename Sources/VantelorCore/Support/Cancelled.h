#pragma once

#include <QString>

namespace vantelor {

// The one value that stands for "the work was cancelled": the caller's future was cancelled or
// the service itself was told to stop. Callers usually drop it silently rather than show it.
struct Cancelled {
    QString message() const { return QStringLiteral("Operación cancelada"); }
    friend bool operator==(const Cancelled&, const Cancelled&) = default;
};

} // namespace vantelor
