#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>

#include "Support/ImageFixtures.h"

namespace vantelor::test {

// HEIC through libheif's HEVC encoder; with a thumbnail item when thumbnailSize > 0.
QByteArray makeHeic(const QImage& image, int thumbnailSize = 0);

// A minimal DNG that LibRaw demosaics: a 16-bit RGGB mosaic with an uncompressed strip and no
// embedded preview of any kind; with an EXIF IFD when exif is given.
QByteArray makeDng(int width, int height, const std::optional<ExifInfo>& exif = std::nullopt);

// The colour at the middle of a corner mark of patternImage (0 top-left, 1 top-right,
// 2 bottom-left), sampled where compression and scaling keep it.
QColor cornerColour(const QImage& image, int corner);
// Whether two colours are within a tolerance on every channel.
bool near(QColor a, QColor b, int tolerance = 60);

// The stored form of an upright image for an EXIF orientation: what a camera writes when it
// records that orientation instead of rotating the pixels.
QImage storedForOrientation(const QImage& upright, int orientation);

} // namespace vantelor::test
