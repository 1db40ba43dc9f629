#pragma once

#include <QImage>

namespace vantelor {

// The one high-quality resize of the preview pipeline.
namespace Downscale {

// The image with its longer side at most maxPixelSize, aspect kept; smaller images unchanged.
QImage fit(const QImage& image, int maxPixelSize);
// The size fit() gives.
QSize fittedSize(QSize size, int maxPixelSize);

} // namespace Downscale
} // namespace vantelor
