#include <gtest/gtest.h>

#include "Library/CaptureTimeReader.h"
#include "PreviewFixtures.h"
#include "Previews/HeifDecoder.h"
#include "Previews/ImageProperties.h"
#include "Previews/JpegDecoder.h"
#include "Previews/PhotoMetadata.h"
#include "Previews/PreviewDecoder.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

TEST(PhotoMetadata, FormatsShutterSpeedsAndApertures)
{
    const struct { double seconds; const char* text; } rows[] = {
        {0.004, "1/250 s"}, {0.3, "1/3 s"}, {0.9999, "1/1 s"}, {1.0, "1.00 s"}, {2.5, "2.50 s"}, {0.0, "0.00 s"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(PhotoMetadata::formatShutter(row.seconds), QString::fromUtf8(row.text)) << row.seconds;
    // A damaged file's absurd exposure still gives text, not an overflow.
    const QString tiny = PhotoMetadata::formatShutter(1e-30);
    EXPECT_TRUE(tiny.startsWith(QLatin1String("1/")) && tiny.endsWith(QLatin1String(" s")) && tiny.size() > 30) << tiny.toStdString();
    EXPECT_EQ(PhotoMetadata::formatAperture(5.66), QStringLiteral("ƒ/5.7"));
}

TEST(PhotoMetadata, ReadsCaptureDataFromExifAndShowsDashesWithoutIt)
{
    ExifInfo exif;
    exif.model = QByteArray("NIKON Z 8");
    exif.lens = QByteArray("NIKKOR Z 24-120mm f/4 S");
    exif.iso = 3200;
    exif.fNumber = QPair<quint32, quint32>(40, 10);
    exif.exposureTime = QPair<quint32, quint32>(1, 250);
    // Where exiv2 knows no size, the decoders' own headers give it.
    const struct { const char* name; QByteArray bytes; PhotoMetadata expected; } rows[] = {
        {"exif.jpg", makeJpeg(patternImage(300, 200), 80, exif),
         {300, 200, "NIKON Z 8", "NIKKOR Z 24-120mm f/4 S", "ISO 3200", "ƒ/4.0", "1/250 s"}},
        {"a.png", makePng(patternImage(120, 80)), {120, 80, "—", "—", "—", "—", "—"}},
        {"a.jpg", makeJpeg(120, 80), {120, 80, "—", "—", "—", "—", "—"}},
        {"a.heic", makeHeic(patternImage(120, 80)), {120, 80, "—", "—", "—", "—", "—"}},
    };
    Sandbox sandbox;
    for (const auto& row : rows) {
        const auto metadata = PreviewDecoder::metadata(sandbox.write(QString::fromUtf8(row.name), row.bytes));
        ASSERT_TRUE(metadata.ok()) << row.name;
        EXPECT_EQ(*metadata, row.expected) << row.name;
    }
    EXPECT_EQ(PreviewDecoder::metadata(QStringLiteral("/nonexistent/DSC_9.NEF")).message(),
              BrowserError::unreadableImage(QStringLiteral("DSC_9.NEF")).message());
    // exiv2 built without HEIF support knows no size at all; the fallbacks must give it.
    EXPECT_EQ(HeifDecoder::size(makeHeic(patternImage(120, 80))), QSize(120, 80));
    EXPECT_EQ(HeifDecoder::size(makeJpeg(120, 80)), std::nullopt);
    EXPECT_EQ(JpegDecoder::size(makeJpeg(120, 80)), QSize(120, 80));
}

TEST(PhotoMetadata, TakesTheFirstIsoAndIgnoresValuesOfTheWrongTypeOrCount)
{
    TiffIfd exif;
    exif.shorts(0x8827, {3200, 1600});
    exif.raw(0x829D, TiffIfd::typeRational, 0, 0);  // FNumber with no value at all: absent
    exif.shorts(0x829A, {250});         // ExposureTime as SHORT: absent
    exif.rationals(0xA434, {{1, 2}});   // LensModel as RATIONAL: absent
    TiffIfd ifd0;
    ifd0.shorts(0x110, {42});           // Model as SHORT: absent
    ifd0.exif(exif);
    QByteArray jpeg = makeJpeg(64, 48);
    jpeg.insert(2, jpegSegment(0xE1, QByteArray("Exif\0\0", 6) + TiffWriter::write({ifd0}, true)));

    Sandbox sandbox;
    const auto metadata = PreviewDecoder::metadata(sandbox.write(QStringLiteral("a.jpg"), jpeg));
    ASSERT_TRUE(metadata.ok());
    EXPECT_EQ(*metadata, (PhotoMetadata{64, 48, "—", "—", "ISO 3200", "—", "—"}));
}

// Raws that exiv2 0.27 cannot parse (CR3) still show their capture data, read by LibRaw. The
// fixture is a DNG whose TIFF magic number is not 42: exiv2 refuses it as an unknown format,
// while LibRaw, like for the raws that only it knows, reads its header and EXIF block.
TEST(RawCaptureData, ComesFromLibRawWhereExiv2Fails)
{
    ExifInfo exif;
    exif.dateTimeOriginal = "2024:03:01 10:15:30";
    exif.lens = "RF24-70mm F2.8 L IS USM";
    exif.iso = 3200;
    exif.fNumber = {28, 10};
    exif.exposureTime = {1, 250};
    QByteArray raw = makeDng(96, 64, exif);
    raw[2] = 43;

    Sandbox sandbox;
    for (const QString name : {"IMG_0001.CR3", "IMG_0002.dng"}) {
        const QString path = sandbox.write(name, raw);
        const Result<PhotoMetadata> metadata = PreviewDecoder::metadata(path);
        ASSERT_TRUE(metadata.ok()) << name.toStdString();
        EXPECT_EQ(*metadata, (PhotoMetadata{96, 64, "Vantelor Test DNG", "RF24-70mm F2.8 L IS USM", "ISO 3200", "ƒ/2.8", "1/250 s"}));
        EXPECT_EQ(CaptureTimeReader::captureTime(path), QDateTime(QDate(2024, 3, 1), QTime(10, 15, 30), Qt::UTC));
    }
    // A file of another kind is never handed to LibRaw, whatever it holds.
    const QString tiff = sandbox.write("scan.tif", raw);
    EXPECT_EQ(PreviewDecoder::metadata(tiff)->camera, "—");
    EXPECT_FALSE(CaptureTimeReader::captureTime(tiff));
}

} // namespace vantelor::test
