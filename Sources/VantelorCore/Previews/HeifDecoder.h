#pragma once

#include <optional>

#include <QByteArray>
#include <QImage>
#include <QSize>

namespace vantelor {

// HEIC/HEIF through libheif. libheif applies the file's rotation and mirror properties itself, so
// the images returned here are upright already. Thread-safe (each call has its own context).
namespace HeifDecoder {

// The primary image's size as libheif reports it; nothing when the file cannot be parsed.
std::optional<QSize> size(const QByteArray& file);
// The largest thumbnail item of the primary image, at most maxPixelSize on its longer side.
std::optional<QImage> thumbnail(const QByteArray& file, int maxPixelSize);
// The primary image, decoded whole and then reduced to at most maxPixelSize.
std::optional<QImage> image(const QByteArray& file, int maxPixelSize);

} // namespace HeifDecoder
} // namespace vantelor
