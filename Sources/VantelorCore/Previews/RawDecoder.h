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

std::optional<QImage> decode(const QString& path, int maxPixelSize);

} // namespace RawDecoder
} // namespace vantelor
