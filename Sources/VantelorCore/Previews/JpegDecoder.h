#pragma once

#include <optional>

#include <QByteArray>
#include <QImage>
#include <QSize>

namespace vantelor {

// JPEG decoding through TurboJPEG at the smallest DCT scale that still covers the wanted size
// (1/8 to 1/1), followed by one high-quality downscale: a 2560-pixel preview of a 6048-pixel
// JPEG decodes at 1/2 and costs about a third of a full decode. Thread-safe (no shared state).
namespace JpegDecoder {

enum class Damage {
    tolerated,  // a cut-short or corrupt stream gives what could be decoded, as viewers show it
    refused,    // any damage fails the decode (embedded previews: the caller has a better source)
};

// The header's pixel size; nothing when the data is not a JPEG TurboJPEG can read.
std::optional<QSize> size(const QByteArray& jpeg);
// The image (Format_RGB32) with its longer side at most maxPixelSize, never enlarged; stored
// orientation, no EXIF rotation. Nothing when the data cannot be decoded. With damage tolerated,
// `damaged` (when given) tells whether the decoder had to skip or invent part of the image.
std::optional<QImage> decode(const QByteArray& jpeg, int maxPixelSize, Damage damage = Damage::tolerated,
                             bool* damaged = nullptr);
// The scale numerator and denominator decode() uses for an image of that size.
std::pair<int, int> scaleFor(QSize size, int maxPixelSize);

} // namespace JpegDecoder
} // namespace vantelor
