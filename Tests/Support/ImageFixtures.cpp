#include "Support/ImageFixtures.h"

#include <algorithm>

#include <turbojpeg.h>

#include <QBuffer>
#include <QImageWriter>
#include <QPainter>

namespace vantelor::test {

namespace {

constexpr quint16 tagMake = 0x10F, tagModel = 0x110, tagOrientation = 0x112;
constexpr quint16 tagExposureTime = 0x829A, tagFNumber = 0x829D, tagIso = 0x8827;
constexpr quint16 tagDateTimeOriginal = 0x9003, tagLensModel = 0xA434, tagExifVersion = 0x9000;

QByteArray compress(const uchar* pixels, const QImage& image, int pitch, int format, int sampling, int quality, int flags)
{
    tjhandle handle = tjInitCompress();
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    const int rc = tjCompress2(handle, pixels, image.width(), pitch, image.height(), format, &buffer, &size, sampling, quality, flags);
    QByteArray jpeg = rc == 0 ? QByteArray(reinterpret_cast<const char*>(buffer), qsizetype(size)) : QByteArray();
    tjFree(buffer);
    tjDestroy(handle);
    return jpeg;
}

} // namespace

static void addIfd0Tags(TiffIfd& ifd0, const ExifInfo& info)
{
    if (info.make)
        ifd0.ascii(tagMake, *info.make);
    if (info.model)
        ifd0.ascii(tagModel, *info.model);
    if (info.orientation)
        ifd0.shorts(tagOrientation, {*info.orientation});
}

TiffIfd exifIfd(const ExifInfo& info)
{
    TiffIfd exif;
    exif.bytes(tagExifVersion, TiffIfd::typeUndefined, QByteArray("0230"));
    if (info.exposureTime)
        exif.rationals(tagExposureTime, {*info.exposureTime});
    if (info.fNumber)
        exif.rationals(tagFNumber, {*info.fNumber});
    if (info.iso)
        exif.shorts(tagIso, {*info.iso});
    if (info.dateTimeOriginal)
        exif.ascii(tagDateTimeOriginal, *info.dateTimeOriginal);
    if (info.lens)
        exif.ascii(tagLensModel, *info.lens);
    return exif;
}

QImage patternImage(int width, int height, QColor tint)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int r = (x * 255 / std::max(1, width - 1) + tint.red()) / 2;
            const int g = (y * 255 / std::max(1, height - 1) + tint.green()) / 2;
            line[x] = qRgb(r, g, tint.blue());
        }
    }
    QPainter painter(&image);
    painter.setPen(QPen(Qt::white, 1));
    const int step = std::max(8, std::min(width, height) / 16);
    for (int x = step; x < width; x += step)
        painter.drawLine(x, 0, x, height - 1);
    for (int y = step; y < height; y += step)
        painter.drawLine(0, y, width - 1, y);
    const int mark = std::max(2, std::min(width, height) / 8);
    painter.fillRect(0, 0, mark, mark, Qt::red);
    painter.fillRect(width - mark, 0, mark, mark, Qt::green);
    painter.fillRect(0, height - mark, mark, mark, Qt::blue);
    painter.end();
    return image;
}

QByteArray exifApp1(const ExifInfo& info, bool littleEndian)
{
    TiffIfd ifd0;
    addIfd0Tags(ifd0, info);
    ifd0.exif(exifIfd(info));
    QList<TiffIfd> chain{ifd0};
    if (info.thumbnailJpeg) {
        TiffIfd ifd1;
        ifd1.shorts(0x103, {6});
        ifd1.data(0x201, 0x202, *info.thumbnailJpeg);
        chain.append(ifd1);
    }
    return QByteArray("Exif\0\0", 6) + TiffWriter::write(chain, littleEndian);
}

QByteArray makeJpeg(const QImage& source, int quality, const std::optional<ExifInfo>& info)
{
    const QImage image = source.convertToFormat(QImage::Format_RGB888);
    QByteArray jpeg = compress(image.constBits(), image, int(image.bytesPerLine()), TJPF_RGB, TJSAMP_420, quality, TJFLAG_ACCURATEDCT);
    if (jpeg.isEmpty() || !info)
        return jpeg;

    // Right after SOI, where cameras put it (before libjpeg's JFIF APP0, which stays).
    jpeg.insert(2, jpegSegment(0xE1, exifApp1(*info)));
    return jpeg;
}

QByteArray makeCmykJpeg(const QImage& source)
{
    // Inverted CMYK with full black: each of C, M, Y carries its colour's value as it is.
    const QImage image = source.convertToFormat(QImage::Format_RGB32);
    QByteArray cmyk;
    cmyk.reserve(qsizetype(image.width()) * image.height() * 4);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = image.pixel(x, y);
            cmyk.append(char(qRed(p))).append(char(qGreen(p))).append(char(qBlue(p))).append(char(255));
        }
    return compress(reinterpret_cast<const uchar*>(cmyk.constData()), image, 0, TJPF_CMYK, TJSAMP_444, 90, 0);
}

QByteArray jpegSegment(uchar type, const QByteArray& payload)
{
    const int length = int(payload.size()) + 2;
    return QByteArray(1, char(0xFF)).append(char(type)).append(char(length >> 8)).append(char(length & 0xFF)).append(payload);
}

QByteArray makeJpeg(int width, int height, const std::optional<ExifInfo>& info)
{
    return makeJpeg(patternImage(width, height), 85, info);
}

QByteArray makeNef(const NefLayout& layout)
{
    // IFD0: the 160×120 uncompressed RGB thumbnail Nikon keeps there.
    const QImage thumb = patternImage(160, 120).convertToFormat(QImage::Format_RGB888);
    QByteArray strip;
    for (int y = 0; y < thumb.height(); ++y)
        strip.append(reinterpret_cast<const char*>(thumb.constScanLine(y)), thumb.width() * 3);

    TiffIfd ifd0;
    ifd0.longs(0xFE, {1});
    ifd0.longs(0x100, {160}).longs(0x101, {120});
    ifd0.shorts(0x102, {8, 8, 8}).shorts(0x103, {1}).shorts(0x106, {2});
    ifd0.shorts(0x115, {3}).longs(0x116, {120});
    ifd0.data(0x111, 0x117, strip);
    ExifInfo info = layout.exif;
    if (!info.make)
        info.make = QByteArray("NIKON CORPORATION");
    if (!info.model)
        info.model = QByteArray("NIKON Z 6_2");
    addIfd0Tags(ifd0, info);

    QList<TiffIfd> subs;
    for (const QByteArray& preview : layout.previews) {
        TiffIfd sub;
        sub.longs(0xFE, {1});
        sub.shorts(0x103, {6});
        sub.data(0x201, 0x202, preview);
        subs.append(sub);
    }
    TiffIfd raw;
    raw.longs(0xFE, {0});
    raw.longs(0x100, {quint32(layout.rawSize.width())}).longs(0x101, {quint32(layout.rawSize.height())});
    raw.shorts(0x103, {34713});
    raw.data(0x111, 0x117, QByteArray(layout.rawBytes, '\x5A'));
    subs.append(raw);
    ifd0.subIfds(subs);
    ifd0.exif(exifIfd(info));
    return TiffWriter::write({ifd0}, layout.littleEndian);
}

QByteArray makeNef(int previewWidth, int previewHeight, const std::optional<QByteArray>& dateTimeOriginal)
{
    NefLayout layout;
    layout.previews = {makeJpeg(previewWidth, previewHeight)};
    layout.exif.dateTimeOriginal = dateTimeOriginal;
    return makeNef(layout);
}

static QByteArray encodeWith(const QImage& image, const char* format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    writer.write(image);
    return bytes;
}

QByteArray makePng(const QImage& image)
{
    return encodeWith(image, "png");
}

QByteArray makeTiff(const QImage& image)
{
    return encodeWith(image, "tiff");
}

} // namespace vantelor::test
