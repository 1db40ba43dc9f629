#pragma once

#include <QImage>

namespace vantelor {

// A focus-peaking overlay: at the analysis size (at most 2,560 pixels on the longer side, not
// the preview's size), transparent except for the pixels on strong local contrast, which are
// opaque light grey (220) so that a view can tint them by multiplication. Format
// RGBA8888_Premultiplied. A value; the pixels are shared between copies and never changed.
struct FocusMask {
    QImage image;
    qint64 highlightedPixels = 0;
};

} // namespace vantelor
