#pragma once

#include <optional>

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QList>
#include <QString>

#include "Support/TiffWriter.h"

namespace vantelor::test {

// The capture data a fixture carries in its EXIF block. Absent fields are not written.
struct ExifInfo {
    std::optional<QByteArray> dateTimeOriginal = {};  // "2024:03:01 10:15:30"
    std::optional<QByteArray> make = {};
    std::optional<QByteArray> model = {};
    std::optional<QByteArray> lens = {};
    std::optional<quint16> iso = {};
    std::optional<QPair<quint32, quint32>> fNumber = {};       // {28, 10} = ƒ/2.8
    std::optional<QPair<quint32, quint32>> exposureTime = {};  // {1, 250}
    std::optional<quint16> orientation = {};                   // 1…8, in IFD0
    std::optional<QByteArray> thumbnailJpeg = {};              // IFD1 thumbnail (JPEG files)
};

// The EXIF IFD of an ExifInfo, for building larger structures.
TiffIfd exifIfd(const ExifInfo& info);

// A test image: a colour gradient with a grid of sharp lines, so that scaling, orientation and
// focus peaking have something to see. Corners are marked (top-left red, top-right green,
// bottom-left blue) so that a rotation can be told apart from a mirror.
QImage patternImage(int width, int height, QColor tint = QColor(128, 128, 128));

// A baseline JPEG of the image (libjpeg-turbo), with an "Exif" APP1 segment when info is given.
QByteArray makeJpeg(const QImage& image, int quality = 85, const std::optional<ExifInfo>& info = std::nullopt);
QByteArray makeJpeg(int width, int height, const std::optional<ExifInfo>& info = std::nullopt);
// A CMYK JPEG as Photoshop writes it (inverted Adobe CMYK) that decodes to the image's colours.
QByteArray makeCmykJpeg(const QImage& image);
// The APP1 payload ("Exif\0\0" + TIFF) alone.
QByteArray exifApp1(const ExifInfo& info, bool littleEndian = true);
// A marker segment: 0xFF, the type, the big-endian length, the payload.
QByteArray jpegSegment(uchar type, const QByteArray& payload);

// A NEF-structured TIFF, as Nikon cameras write it: IFD0 with a small uncompressed RGB thumbnail
// and the EXIF IFD, SubIFDs holding the embedded JPEG previews (NewSubfileType 1) and a
// raw-data IFD (compression 34713) with a dummy strip.
struct NefLayout {
    QList<QByteArray> previews = {};   // embedded JPEGs, one SubIFD each, in order
    ExifInfo exif = {};
    bool littleEndian = false;    // Nikon writes big-endian ("MM")
    int rawBytes = 4096;
    QSize rawSize{64, 32};        // the sensor size the raw-data IFD declares
};
QByteArray makeNef(const NefLayout& layout);
// A NEF with one embedded JPEG preview of the given size and a capture time.
QByteArray makeNef(int previewWidth, int previewHeight, const std::optional<QByteArray>& dateTimeOriginal = std::nullopt);

// Other formats through Qt's writers.
QByteArray makePng(const QImage& image);
QByteArray makeTiff(const QImage& image);

} // namespace vantelor::test
