#include <gtest/gtest.h>

#include "PreviewFixtures.h"
#include "Previews/Downscale.h"
#include "Previews/JpegDecoder.h"
#include "Previews/PreviewDecoder.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

namespace {

Result<PreviewResult> decodeFile(const Sandbox& sandbox, const QString& name, const QByteArray& bytes, int dimension)
{
    PhotoItem item;
    item.url = sandbox.write(name, bytes);
    return PreviewDecoder::decode(item, dimension);
}

void expectUpright(const QImage& image, const QString& what)
{
    EXPECT_TRUE(near(cornerColour(image, 0), Qt::red)) << what.toStdString() << " top-left " << cornerColour(image, 0).name().toStdString();
    EXPECT_TRUE(near(cornerColour(image, 1), Qt::green)) << what.toStdString() << " top-right";
    EXPECT_TRUE(near(cornerColour(image, 2), Qt::blue)) << what.toStdString() << " bottom-left";
}

using Source = PreviewResult::Source;

} // namespace

TEST(JpegDecoder, PicksTheSmallestDctScaleThatCoversTheSize)
{
    const struct { QSize size; int max; std::pair<int, int> scale; } rows[] = {
        {{6048, 4032}, 2560, {1, 2}},  // 3/8 would give 2268
        {{6048, 4032}, 3025, {5, 8}},
        {{6048, 4032}, 756, {1, 8}},
        {{4032, 6048}, 2560, {1, 2}},  // the longer side counts, whichever it is
    };
    for (const auto& row : rows)
        EXPECT_EQ(JpegDecoder::scaleFor(row.size, row.max), row.scale) << row.size.width() << " at " << row.max;
}

TEST(PreviewDecoder, EachFormatTakesItsCheapestSourceThatCoversTheSize)
{
    NefLayout nef;
    nef.previews = {makeJpeg(160, 120), makeJpeg(patternImage(1200, 800), 90)};
    nef.exif.model = QByteArray("NIKON Z 6_2");
    ExifInfo withThumbnail;
    withThumbnail.thumbnailJpeg = makeJpeg(160, 120);
    // A thumbnail that does not decode, in a file with an orientation: the image itself serves.
    ExifInfo damagedThumbnail;
    damagedThumbnail.orientation = 1;
    damagedThumbnail.thumbnailJpeg = QByteArray("\xFF\xD8\xFF\xDB", 4) + QByteArray(300, '\x5A');
    const QImage image = patternImage(900, 600);
    // An ARW-like TIFF: IFD0 is the raw image, IFD1 a 160-px JPEG thumbnail.
    TiffIfd arw0;
    arw0.ascii(0x110, "ILCE-7M4").longs(0x100, {6000}).longs(0x101, {4000}).shorts(0x103, {32767});
    arw0.data(0x111, 0x117, QByteArray(2048, '\x11'));
    TiffIfd arw1;
    arw1.shorts(0x103, {6}).data(0x201, 0x202, makeJpeg(160, 120));
    const QString notUtf8 = Paths::decode(QByteArray("caf\xE9-\xFF"));
    const struct { QString name; QByteArray bytes; int dimension; QSize size; Source source; int metadataWidth; } rows[] = {
        {"DSC_0001.NEF", makeNef(nef), 600, {600, 400}, Source::nikonPreview, 0},
        {notUtf8 + ".nef", makeNef(200, 100), 2560, {200, 100}, Source::nikonPreview, 0},
        {"big.jpg", makeJpeg(patternImage(2400, 1600), 85, withThumbnail), 1600, {1600, 1067}, Source::fullImage, 2400},
        {"thumb.jpg", makeJpeg(patternImage(2400, 1600), 85, withThumbnail), 160, {160, 120}, Source::thumbnail, 2400},
        {"reduced.jpg", makeJpeg(patternImage(2400, 1600), 85, withThumbnail), 100, {100, 75}, Source::thumbnail, 2400},
        {"damaged-thumb.jpg", makeJpeg(patternImage(900, 600), 85, damagedThumbnail), 100, {100, 66}, Source::fullImage, 900},
        {notUtf8 + ".jpeg", makeJpeg(800, 600), 400, {400, 300}, Source::fullImage, 800},
        {"cmyk.jpg", makeCmykJpeg(image), 450, {450, 300}, Source::fullImage, 900},
        {notUtf8 + ".TIFF", makeTiff(image), 450, {450, 300}, Source::fullImage, 900},
        {"saved-as.jpg", makePng(image), 450, {450, 300}, Source::fullImage, 900},  // the content decides
        {"IMG_0001.HEIC", makeHeic(image, 160), 100, {100, 66}, Source::thumbnail, 900},
        {"IMG_0002.HEIC", makeHeic(image, 160), 1600, {900, 600}, Source::fullImage, 900},
        {"a.heif", makeHeic(patternImage(320, 240)), 160, {160, 120}, Source::fullImage, 320},
        {"DSC0001.ARW", TiffWriter::write({arw0, arw1}, true), 2560, {160, 120}, Source::thumbnail, 0},
        {"a.dng", makeDng(256, 192), 2560, {128, 96}, Source::fullImage, 0},  // LibRaw at half size
    };
    Sandbox sandbox;
    for (const auto& row : rows) {
        SCOPED_TRACE(Paths::displayText(row.name).toStdString());
        const auto result = decodeFile(sandbox, row.name, row.bytes, row.dimension);
        ASSERT_TRUE(result.ok()) << result.message().toStdString();
        EXPECT_EQ(result->image.size(), row.size);
        EXPECT_EQ(result->source, row.source);
        EXPECT_EQ(result->usedFallback, row.source == Source::fullImage);
        if (row.metadataWidth) {
            EXPECT_EQ(result->metadata.width, row.metadataWidth);
        }
        if (row.size.width() >= 400)
            expectUpright(result->image, row.name);
    }
    EXPECT_EQ(decodeFile(sandbox, "a.NEF", makeNef(nef), 600)->metadata.camera, QStringLiteral("NIKON Z 6_2"));
    EXPECT_EQ(decodeFile(sandbox, "b.ARW", TiffWriter::write({arw0, arw1}, true), 600)->metadata.camera, QStringLiteral("ILCE-7M4"));
}

TEST(PreviewDecoder, ImagesTurnUprightByTheFilesOrientation)
{
    const QImage upright = patternImage(480, 320);
    Sandbox sandbox;
    for (int orientation = 1; orientation <= 8; ++orientation) {
        ExifInfo exif;
        exif.orientation = quint16(orientation);
        // A NEF's preview turns by the raw file's orientation, never by one inside the JPEG.
        ExifInfo misleading;
        misleading.orientation = quint16(9 - orientation);
        NefLayout nef;
        nef.previews = {makeJpeg(storedForOrientation(upright, orientation), 92, misleading)};
        nef.exif.orientation = quint16(orientation);
        for (const auto& [name, bytes] : {std::pair{QStringLiteral("a.jpg"), makeJpeg(storedForOrientation(upright, orientation), 92, exif)},
                                          std::pair{QStringLiteral("a.nef"), makeNef(nef)}}) {
            const auto result = decodeFile(sandbox, name, bytes, 2560);
            ASSERT_TRUE(result.ok()) << orientation;
            EXPECT_EQ(result->image.size(), upright.size()) << orientation;
            expectUpright(result->image, QStringLiteral("%1 orientation %2").arg(name).arg(orientation));
        }
    }
}

// Damaged files of every format; the fuzzers' seeds hold many more, and those that merely must
// not crash.
TEST(PreviewDecoder, BadFilesGiveTheUnreadableMessage)
{
    const QByteArray jpeg = makeJpeg(patternImage(640, 480), 85);
    ExifInfo rotated;
    rotated.orientation = 6;
    // An orientation that exiv2 reads, for an image that never decodes (a scan without a frame).
    const QByteArray noiseRotated = QByteArray("\xFF\xD8", 2) + jpegSegment(0xE1, exifApp1(rotated))
        + jpegSegment(0xDA, QByteArray(10, '\0')) + QByteArray(5000, '\xA7');
    const struct { const char* name; QByteArray bytes; bool decodes; } rows[] = {
        {"empty.jpg", {}, false}, {"empty.nef", {}, false}, {"empty.heic", {}, false}, {"empty.tif", {}, false},
        {"empty.cr3", {}, false}, {"empty.dng", {}, false}, {"text.png", "not an image", false},
        {"noise.jpg", QByteArray(5000, '\xA7'), false}, {"noise-rotated.jpg", noiseRotated, false},
        {"cut.jpg", jpeg.left(jpeg.size() / 2), true},  // what could be decoded, as viewers show it
        {"cut-cmyk.jpg", makeCmykJpeg(patternImage(640, 480)).chopped(3000), true},
    };
    Sandbox sandbox;
    for (const auto& row : rows) {
        const QString name = QString::fromLatin1(row.name);
        const auto result = decodeFile(sandbox, name, row.bytes, 2560);
        if (row.decodes)
            EXPECT_FALSE(result.ok() ? result->image.isNull() : true) << row.name;
        else
            EXPECT_EQ(result.message(), BrowserError::unreadableImage(name).message()) << row.name;
    }
    PhotoItem gone;
    gone.url = sandbox.file(QStringLiteral("gone.nef"));
    EXPECT_EQ(PreviewDecoder::decode(gone, 2560).message(),
              QStringLiteral("No se puede leer la vista previa de gone.nef. El archivo puede ser incompatible, estar dañado o desconectado."));
}

TEST(Downscale, ReductionsKeepColoursAndFollowAnAreaFilter)
{
    const struct { QSize source; int max; QSize target; } rows[] = {
        {{3024, 2016}, 2560, {2560, 1707}},  // the two-tap path
        {{300, 200}, 200, {200, 133}},       // a reduction by a third: still two taps
        {{302, 201}, 202, {202, 134}},       // two taps, with columns left over after four at a time
        {{301, 200}, 151, {151, 100}},       // by half: Qt's area filter
        {{1200, 800}, 160, {160, 107}},      // a larger reduction: Qt's area filter
        {{64, 48}, 100, {64, 48}},           // never enlarged
    };
    for (const auto& row : rows) {
        QImage flat(row.source, QImage::Format_RGB32);
        flat.fill(qRgb(10, 200, 77));
        const QImage small = Downscale::fit(flat, row.max);
        ASSERT_EQ(small.size(), row.target);
        for (const QPoint p : {QPoint(0, 0), QPoint(row.target.width() - 1, row.target.height() - 1),
                               QPoint(row.target.width() / 2, row.target.height() / 3)})
            EXPECT_EQ(small.pixel(p), qRgb(10, 200, 77)) << row.source.width();

        // A picture comes out as Qt's own area filter makes it, up to the filters' difference on
        // one-pixel lines: on average within a few levels.
        const QImage picture = patternImage(row.source.width(), row.source.height());
        const QImage ours = Downscale::fit(picture, row.max);
        const QImage reference = picture.scaled(row.target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        qint64 difference = 0, samples = 0;
        for (int y = 0; y < row.target.height(); y += 3)
            for (int x = 0; x < row.target.width(); x += 3, ++samples) {
                const QRgb a = ours.pixel(x, y), b = reference.pixel(x, y);
                difference += std::abs(qRed(a) - qRed(b)) + std::abs(qGreen(a) - qGreen(b)) + std::abs(qBlue(a) - qBlue(b));
            }
        EXPECT_LE(double(difference) / double(samples * 3), 6.0) << row.source.width();
        // Other formats (a PNG's 24-bit pixels) take Qt's own path.
        const QImage rgb888 = picture.convertToFormat(QImage::Format_RGB888);
        EXPECT_EQ(Downscale::fit(rgb888, row.max), rgb888.scaled(row.target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    }
}

} // namespace vantelor::test
