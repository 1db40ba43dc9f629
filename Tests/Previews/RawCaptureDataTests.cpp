#include <gtest/gtest.h>

#include "Library/CaptureTimeReader.h"
#include "PreviewFixtures.h"
#include "Previews/PreviewDecoder.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

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
        EXPECT_EQ(metadata->camera, "Vantelor Test DNG") << name.toStdString();
        EXPECT_EQ(metadata->lens, "RF24-70mm F2.8 L IS USM");
        EXPECT_EQ(metadata->iso, "ISO 3200");
        EXPECT_EQ(metadata->aperture, "ƒ/2.8");
        EXPECT_EQ(metadata->shutter, "1/250 s");
        EXPECT_EQ(metadata->width, 96);
        EXPECT_EQ(CaptureTimeReader::captureTime(path), QDateTime(QDate(2024, 3, 1), QTime(10, 15, 30), Qt::UTC));
    }
    // A file of another kind is never handed to LibRaw, whatever it holds.
    const QString tiff = sandbox.write("scan.tif", raw);
    EXPECT_EQ(PreviewDecoder::metadata(tiff)->camera, "—");
    EXPECT_FALSE(CaptureTimeReader::captureTime(tiff));
}

} // namespace vantelor::test
