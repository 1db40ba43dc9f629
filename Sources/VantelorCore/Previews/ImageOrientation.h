#pragma once

#include <QImage>

namespace vantelor {

// Turns a bitmap stored in one of the eight EXIF orientations upright.
namespace ImageOrientation {

// 1 (or any value outside 2…8) returns the image unchanged.
QImage apply(const QImage& image, int orientation);

} // namespace ImageOrientation
} // namespace vantelor
