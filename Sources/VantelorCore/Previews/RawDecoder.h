#pragma once

#include <optional>

#include <QImage>
#include <QString>

namespace vantelor {

// The last resort for raw files: LibRaw's own demosaic at half size (each 2×2 sensor block
// becomes one pixel), turned upright by LibRaw, then reduced to the wanted size. Seconds, not
// milliseconds: used only when a raw file has no embedded preview at all. Thread-safe (LibRaw's
// thread-safe build, one instance per call).
namespace RawDecoder {

// Nothing when the file cannot be decoded or holds no sensor data at all (every value zero, as
// LibRaw leaves a file cut short before its data). `damaged`, when given, tells whether LibRaw
// met data errors or the data stops before the last rows, which it then leaves black.
std::optional<QImage> decode(const QString& path, int maxPixelSize, bool* damaged = nullptr);

} // namespace RawDecoder
} // namespace vantelor
