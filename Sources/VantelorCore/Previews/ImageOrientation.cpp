#include "Previews/ImageOrientation.h"

#include <QTransform>

namespace vantelor::ImageOrientation {

QImage apply(const QImage& image, int orientation)
{
    // Right angles take Qt's exact rotation path: no resampling, no blur.
    const auto rotated = [&image](int degrees) { return image.transformed(QTransform().rotate(degrees)); };
    switch (orientation) {
    case 2: return image.mirrored(true, false);
    case 3: return image.mirrored(true, true);
    case 4: return image.mirrored(false, true);
    case 5: return rotated(90).mirrored(true, false);   // transpose
    case 6: return rotated(90);
    case 7: return rotated(90).mirrored(false, true);   // transverse
    case 8: return rotated(270);
    default: return image;
    }
}

} // namespace vantelor::ImageOrientation
