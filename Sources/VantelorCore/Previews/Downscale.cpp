#include "Previews/Downscale.h"

#include <cmath>

namespace vantelor::Downscale {

QSize fittedSize(QSize size, int maxPixelSize)
{
    const int longer = std::max(size.width(), size.height());
    if (longer <= maxPixelSize || longer <= 0)
        return size;
    const double scale = double(maxPixelSize) / longer;
    return QSize(std::max(1, int(std::lround(size.width() * scale))), std::max(1, int(std::lround(size.height() * scale))));
}

QImage fit(const QImage& image, int maxPixelSize)
{
    const QSize target = fittedSize(image.size(), maxPixelSize);
    if (target == image.size())
        return image;
    // Qt's smooth scaling averages every source pixel (area filter) when shrinking.
    return image.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

} // namespace vantelor::Downscale
