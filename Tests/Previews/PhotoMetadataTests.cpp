#include <gtest/gtest.h>

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

TEST(PhotoMetadata, ReadsCaptureDataFromExif)
{
    ExifInfo exif;
    exif.model = QByteArray("NIKON Z 8");
    exif.lens = QByteArray("NIKKOR Z 24-120mm f/4 S");
    exif.iso = 3200;
    exif.fNumber = QPair<quint32, quint32>(40, 10);
    exif.exposureTime = QPair<quint32, quint32>(1, 250);
    Sandbox sandbox;
    const auto metadata = PreviewDecoder::metadata(sandbox.write(QStringLiteral("a.jpg"), makeJpeg(patternImage(300, 200), 80, exif)));
    ASSERT_TRUE(metadata.ok());
    EXPECT_EQ(*metadata, (PhotoMetadata{300, 200, "NIKON Z 8", "NIKKOR Z 24-120mm f/4 S", "ISO 3200", "ƒ/4.0", "1/250 s"}));
    EXPECT_EQ(PreviewDecoder::metadata(QStringLiteral("/nonexistent/DSC_9.NEF")).message(),
              BrowserError::unreadableImage(QStringLiteral("DSC_9.NEF")).message());
}

TEST(PhotoMetadata, AFileWithoutExifShowsDashesAndItsSize)
{
    Sandbox sandbox;
    // Where exiv2 knows no size, the decoders' own headers give it.
    for (const auto& [name, bytes] : {std::pair{QStringLiteral("a.png"), makePng(patternImage(120, 80))},
                                      std::pair{QStringLiteral("a.jpg"), makeJpeg(120, 80)},
                                      std::pair{QStringLiteral("a.heic"), makeHeic(patternImage(120, 80))}}) {
        const auto metadata = PreviewDecoder::metadata(sandbox.write(name, bytes));
        ASSERT_TRUE(metadata.ok());
        EXPECT_EQ(metadata->width, 120) << name.toStdString();
        EXPECT_EQ(metadata->height, 80) << name.toStdString();
        for (const QString& text : {metadata->camera, metadata->lens, metadata->iso, metadata->aperture, metadata->shutter})
            EXPECT_EQ(text, QStringLiteral("—")) << name.toStdString();
    }
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

} // namespace vantelor::test
