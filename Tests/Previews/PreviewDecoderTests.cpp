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

PhotoItem itemFor(const QString& path)
{
    auto inspected = PhotoItem::inspect(path);
    if (inspected.ok() && inspected->has_value())
        return **inspected;
    PhotoItem item;
    item.url = path;
    return item;
}

Result<PreviewResult> decodeFile(const Sandbox& sandbox, const QString& name, const QByteArray& bytes, int dimension)
{
    return PreviewDecoder::decode(itemFor(sandbox.write(name, bytes)), dimension);
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
    const struct {
        QSize size;
        int max;
        std::pair<int, int> scale;
    } rows[] = {
        {{6048, 4032}, 2560, {1, 2}},  // 3/8 would give 2268
        {{6048, 4032}, 3024, {1, 2}},
        {{6048, 4032}, 3025, {5, 8}},
        {{6048, 4032}, 800, {1, 4}},   // 1/8 would give 756
        {{6048, 4032}, 756, {1, 8}},
        {{6048, 4032}, 6048, {1, 1}},
        {{6048, 4032}, 8192, {1, 1}},  // never enlarged
        {{4032, 6048}, 2560, {1, 2}},  // the longer side counts, whichever it is
        {{100, 100}, 32, {3, 8}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(JpegDecoder::scaleFor(row.size, row.max), row.scale) << row.size.width() << " at " << row.max;
}

TEST(PreviewDecoder, NefUsesTheEmbeddedJpegAtTheRequestedSize)
{
    Sandbox sandbox;
    NefLayout layout;
    layout.previews = {makeJpeg(160, 120), makeJpeg(patternImage(1200, 800), 90)};
    layout.exif.model = QByteArray("NIKON Z 6_2");
    const auto result = decodeFile(sandbox, QStringLiteral("DSC_0001.NEF"), makeNef(layout), 600);
    ASSERT_TRUE(result.ok()) << result.message().toStdString();
    EXPECT_EQ(result->source, Source::nikonPreview);
    EXPECT_FALSE(result->usedFallback);
    EXPECT_EQ(result->image.size(), QSize(600, 400));
    EXPECT_EQ(result->metadata.camera, QStringLiteral("NIKON Z 6_2"));
    expectUpright(result->image, QStringLiteral("nef"));
}

TEST(PreviewDecoder, NefPreviewTurnsUprightByTheRawFilesOrientation)
{
    const QImage upright = patternImage(480, 320);
    for (int orientation = 1; orientation <= 8; ++orientation) {
        Sandbox sandbox;
        NefLayout layout;
        layout.previews = {makeJpeg(storedForOrientation(upright, orientation), 92)};
        layout.exif.orientation = quint16(orientation);
        const auto result = decodeFile(sandbox, QStringLiteral("a.nef"), makeNef(layout), 2560);
        ASSERT_TRUE(result.ok()) << orientation;
        EXPECT_EQ(result->image.size(), upright.size()) << orientation;
        expectUpright(result->image, QStringLiteral("orientation %1").arg(orientation));
    }
}

TEST(PreviewDecoder, NefIgnoresTheOrientationInsideItsJpeg)
{
    // Nikon's previews carry no rotation of their own; the raw file's (absent here) decides.
    Sandbox sandbox;
    ExifInfo jpegExif;
    jpegExif.orientation = 6;
    NefLayout layout;
    layout.previews = {makeJpeg(patternImage(300, 200), 92, jpegExif)};
    const auto result = decodeFile(sandbox, QStringLiteral("a.nef"), makeNef(layout), 2560);
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result->image.size(), QSize(300, 200));
    expectUpright(result->image, QStringLiteral("jpeg orientation ignored"));
}

TEST(PreviewDecoder, JpegThumbnailSmallerThanTheRequestIsReplacedByTheImage)
{
    const struct {
        QSize image;
        int dimension;
        QSize expected;
        bool fallback;
    } rows[] = {
        {{2400, 1600}, 1600, {1600, 1067}, true},  // 160-px thumbnail too small: full decode
        {{1200, 800}, 1600, {1200, 800}, true},    // full decode, never enlarged
        {{2400, 1600}, 160, {160, 120}, false},    // the thumbnail serves a 160-px request
        {{2400, 1600}, 100, {100, 75}, false},     // and a smaller one, reduced
    };
    for (const auto& row : rows) {
        Sandbox sandbox;
        ExifInfo exif;
        exif.thumbnailJpeg = makeJpeg(160, 120);
        const auto result = decodeFile(sandbox, QStringLiteral("IMG.JPG"),
                                       makeJpeg(patternImage(row.image.width(), row.image.height()), 85, exif), row.dimension);
        ASSERT_TRUE(result.ok());
        EXPECT_EQ(result->image.size(), row.expected) << row.image.width() << " at " << row.dimension;
        EXPECT_EQ(result->usedFallback, row.fallback) << row.image.width() << " at " << row.dimension;
        EXPECT_EQ(result->source, row.fallback ? Source::fullImage : Source::thumbnail);
    }
}

TEST(PreviewDecoder, JpegWithoutThumbnailIsDecodedAsAFallback)
{
    Sandbox sandbox;
    const auto result = decodeFile(sandbox, QStringLiteral("a.jpeg"), makeJpeg(800, 600), 400);
    ASSERT_TRUE(result.ok());
    EXPECT_TRUE(result->usedFallback);
    EXPECT_EQ(result->image.size(), QSize(400, 300));
    EXPECT_EQ(result->metadata.width, 800);
    EXPECT_EQ(result->metadata.height, 600);
}

TEST(PreviewDecoder, JpegTurnsUprightByItsOrientation)
{
    const QImage upright = patternImage(400, 300);
    for (int orientation = 1; orientation <= 8; ++orientation) {
        Sandbox sandbox;
        ExifInfo exif;
        exif.orientation = quint16(orientation);
        const auto result = decodeFile(sandbox, QStringLiteral("a.jpg"),
                                       makeJpeg(storedForOrientation(upright, orientation), 92, exif), 2560);
        ASSERT_TRUE(result.ok());
        EXPECT_EQ(result->image.size(), upright.size()) << orientation;
        expectUpright(result->image, QStringLiteral("jpeg orientation %1").arg(orientation));
    }
}

TEST(PreviewDecoder, PngAndTiffAreDecodedAtReducedSize)
{
    const QImage image = patternImage(900, 600);
    const struct {
        const char* name;
        QByteArray bytes;
    } rows[] = {
        {"a.png", makePng(image)},
        {"a.tif", makeTiff(image)},
        {"a.TIFF", makeTiff(image)},
        {"saved-as.jpg", makePng(image)},  // the content decides, not the name
    };
    for (const auto& row : rows) {
        Sandbox sandbox;
        const auto result = decodeFile(sandbox, QString::fromLatin1(row.name), row.bytes, 450);
        ASSERT_TRUE(result.ok()) << row.name;
        EXPECT_EQ(result->image.size(), QSize(450, 300)) << row.name;
        EXPECT_TRUE(result->usedFallback);
        EXPECT_EQ(result->metadata.width, 900) << row.name;
        expectUpright(result->image, QString::fromLatin1(row.name));
    }
}

TEST(PreviewDecoder, ReadsFilesWhoseNamesAreNotUtf8)
{
    Sandbox sandbox;
    const QString badName = Paths::decode(QByteArray("caf\xE9-\xFF"));
    const struct {
        const char* extension;
        QByteArray bytes;
    } rows[] = {
        {".png", makePng(patternImage(200, 100))},
        {".tif", makeTiff(patternImage(200, 100))},
        {".jpg", makeJpeg(200, 100)},
        {".nef", makeNef(200, 100)},
    };
    for (const auto& row : rows) {
        const auto result = decodeFile(sandbox, badName + QLatin1String(row.extension), row.bytes, 2560);
        ASSERT_TRUE(result.ok()) << row.extension << " " << result.message().toStdString();
        EXPECT_EQ(result->image.size(), QSize(200, 100)) << row.extension;
    }
}

TEST(PreviewDecoder, HeicThumbnailServesSmallRequestsAndIsUpgradedForLargeOnes)
{
    Sandbox sandbox;
    const QString path = sandbox.write(QStringLiteral("IMG_0001.HEIC"), makeHeic(patternImage(640, 480), 160));
    const auto small = PreviewDecoder::decode(itemFor(path), 100);
    ASSERT_TRUE(small.ok()) << small.message().toStdString();
    EXPECT_EQ(small->source, Source::thumbnail);
    EXPECT_FALSE(small->usedFallback);
    EXPECT_EQ(std::max(small->image.width(), small->image.height()), 100);

    const auto large = PreviewDecoder::decode(itemFor(path), 1600);
    ASSERT_TRUE(large.ok());
    EXPECT_EQ(large->source, Source::fullImage);
    EXPECT_TRUE(large->usedFallback);
    EXPECT_EQ(large->image.size(), QSize(640, 480));
    EXPECT_EQ(large->metadata.width, 640);
    expectUpright(large->image, QStringLiteral("heic"));
}

TEST(PreviewDecoder, HeicWithoutThumbnailIsDecodedWhole)
{
    Sandbox sandbox;
    const auto result = decodeFile(sandbox, QStringLiteral("a.heif"), makeHeic(patternImage(320, 240)), 160);
    ASSERT_TRUE(result.ok()) << result.message().toStdString();
    EXPECT_TRUE(result->usedFallback);
    EXPECT_EQ(result->image.size(), QSize(160, 120));
}

TEST(PreviewDecoder, OtherRawsKeepTheirSmallEmbeddedPreview)
{
    // An ARW-like TIFF: IFD0 is the raw image, IFD1 a 160-px JPEG thumbnail.
    TiffIfd ifd0;
    ifd0.ascii(0x10F, "SONY").ascii(0x110, "ILCE-7M4");
    ifd0.longs(0x100, {6000}).longs(0x101, {4000});
    ifd0.shorts(0x103, {32767});
    ifd0.data(0x111, 0x117, QByteArray(2048, '\x11'));
    TiffIfd ifd1;
    ifd1.shorts(0x103, {6});
    ifd1.data(0x201, 0x202, makeJpeg(160, 120));
    Sandbox sandbox;
    const auto result = decodeFile(sandbox, QStringLiteral("DSC0001.ARW"), TiffWriter::write({ifd0, ifd1}, true), 2560);
    ASSERT_TRUE(result.ok()) << result.message().toStdString();
    EXPECT_EQ(result->source, Source::thumbnail);
    EXPECT_FALSE(result->usedFallback);
    EXPECT_EQ(result->image.size(), QSize(160, 120));
    EXPECT_EQ(result->metadata.camera, QStringLiteral("ILCE-7M4"));
}

TEST(PreviewDecoder, NefWithABrokenPreviewFallsBackToItsOtherPreviews)
{
    // The largest JPEG is cut short inside its scan: the embedded path gives up silently and
    // the file's other previews (the 160 × 120 IFD0 thumbnail) serve.
    QByteArray broken = makeJpeg(patternImage(1200, 800), 90);
    broken = broken.left(broken.indexOf("\xFF\xDA") + 200);
    NefLayout layout;
    layout.previews = {broken};
    Sandbox sandbox;
    const auto result = decodeFile(sandbox, QStringLiteral("a.nef"), makeNef(layout), 2560);
    if (result.ok()) {
        EXPECT_NE(result->source, Source::nikonPreview);
        EXPECT_GT(result->image.width(), 0);
    } else {
        EXPECT_EQ(result.message(), BrowserError::unreadableImage(QStringLiteral("a.nef")).message());
    }
}

TEST(PreviewDecoder, RawWithoutAnyPreviewIsDemosaicedAtHalfSize)
{
    Sandbox sandbox;
    const auto result = decodeFile(sandbox, QStringLiteral("a.dng"), makeDng(256, 192), 2560);
    ASSERT_TRUE(result.ok()) << result.message().toStdString();
    EXPECT_EQ(result->source, Source::fullImage);
    EXPECT_TRUE(result->usedFallback);
    EXPECT_EQ(result->image.size(), QSize(128, 96));
}

TEST(PreviewDecoder, BadFilesGiveTheUnreadableMessageAndNeverCrash)
{
    const QByteArray jpeg = makeJpeg(patternImage(640, 480), 85);
    const QByteArray png = makePng(patternImage(320, 240));
    const QByteArray tiff = makeTiff(patternImage(320, 240));
    const QByteArray nef = makeNef(640, 480);
    const QByteArray heic = makeHeic(patternImage(128, 96), 32);
    QByteArray pngHuge = png;  // IHDR claims 30,000 × 30,000
    pngHuge.replace(16, 8, QByteArray("\x00\x00\x75\x30\x00\x00\x75\x30", 8));
    QByteArray nefWild = nef;  // every IFD offset points far away
    nefWild.replace(4, 4, QByteArray("\x00\x00\x00\x08", 4));
    for (qsizetype i = 10; i + 4 < qMin<qsizetype>(nefWild.size(), 600); i += 12)
        nefWild.replace(i, 4, QByteArray("\x7F\x00\x00\x01", 4));

    const struct {
        const char* name;
        QByteArray bytes;
    } rows[] = {
        {"empty.jpg", {}},          {"empty.nef", {}},          {"empty.png", {}},
        {"empty.heic", {}},         {"empty.tif", {}},          {"empty.cr3", {}},
        {"empty.dng", {}},          {"cut.jpg", jpeg.left(jpeg.size() / 2)},
        {"head.jpg", jpeg.left(300)}, {"cut.png", png.left(png.size() / 2)},
        {"cut.tif", tiff.left(200)}, {"cut.nef", nef.left(nef.size() / 3)},
        {"cut.heic", heic.left(heic.size() / 2)}, {"noise.jpg", QByteArray(5000, '\xA7')},
        {"noise.nef", QByteArray(5000, '\x4D')}, {"noise.cr2", QByteArray("II*\0\x08\0\0\0", 8) + QByteArray(900, '\xFF')},
        {"noise.arw", QByteArray(300, '\0')}, {"huge.jpg", hugeJpegHeader(30000, 30000)},
        {"huge.png", pngHuge},      {"wild.nef", nefWild},      {"text.png", QByteArray("not an image")},
        {"a.txt.heic", QByteArray("\0\0\0\x18" "ftypheic\0\0\0\0mif1heic", 24)},
    };
    for (const auto& row : rows) {
        Sandbox sandbox;
        const QString name = QString::fromLatin1(row.name);
        const auto result = decodeFile(sandbox, name, row.bytes, 2560);
        if (!result.ok())
            EXPECT_EQ(result.message(), BrowserError::unreadableImage(name).message()) << row.name;
        else
            EXPECT_FALSE(result->image.isNull()) << row.name;
    }
}

TEST(PreviewDecoder, AMissingFileIsUnreadable)
{
    Sandbox sandbox;
    PhotoItem item;
    item.url = sandbox.file(QStringLiteral("gone.nef"));
    const auto result = PreviewDecoder::decode(item, 2560);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.message(), QStringLiteral("No se puede leer la vista previa de gone.nef. El archivo puede ser "
                                               "incompatible, estar dañado o desconectado."));
}

} // namespace vantelor::test

namespace vantelor::test {

TEST(Downscale, ReductionsKeepColoursAndFollowAnAreaFilter)
{
    const struct {
        QSize source;
        int max;
        QSize target;
    } rows[] = {
        {{3024, 2016}, 2560, {2560, 1707}},  // the two-tap path
        {{300, 200}, 200, {200, 133}},       // a reduction by a third: still two taps
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
    }
}

} // namespace vantelor::test
