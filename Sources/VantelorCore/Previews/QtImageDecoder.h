#pragma once

#include <optional>

#include <QImage>
#include <QSize>
#include <QString>

namespace vantelor {

// PNG and TIFF through Qt's image readers, which read from a descriptor opened here with the
// path's own bytes (Qt's path handling would lose names that are not UTF-8). Stored
// orientation: EXIF rotation is the caller's. Thread-safe.
namespace QtImageDecoder {

// The image at most maxPixelSize on its longer side, scaled by the reader; nothing when the file
// cannot be opened or read, or its bitmap would exceed the reader's allocation limit.
std::optional<QImage> decode(const QString& path, const char* format, int maxPixelSize);
// An in-memory image (an embedded TIFF preview), likewise.
std::optional<QImage> decode(const QByteArray& bytes, const char* format, int maxPixelSize);

} // namespace QtImageDecoder
} // namespace vantelor
