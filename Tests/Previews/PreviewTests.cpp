#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <future>

#include <gtest/gtest.h>
#include <libheif/heif.h>

#include <QTransform>

#include "Library/CaptureTimeReader.h"
#include "Previews/Downscale.h"
#include "Previews/FocusPeaking.h"
#include "Previews/HeifDecoder.h"
#include "Previews/JpegDecoder.h"
#include "Previews/LibRawReader.h"
#include "Previews/NikonPreview.h"
#include "Previews/PreviewDecoder.h"
#include "Previews/QtImageDecoder.h"
#include "Previews/RawDecoder.h"
#include "Support/CliRunner.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

namespace {

using Source = PreviewResult::Source;

// HEIC through libheif's HEVC encoder; with a thumbnail item when thumbnailSize > 0.
QByteArray makeHeic(const QImage& source, int thumbnailSize = 0)
{
    const QImage rgb = source.convertToFormat(QImage::Format_RGB888);
    heif_context* ctx = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &encoder);
    heif_encoder_set_lossy_quality(encoder, 80);
    heif_image* image = nullptr;
    heif_image_create(rgb.width(), rgb.height(), heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image);
    heif_image_add_plane(image, heif_channel_interleaved, rgb.width(), rgb.height(), 8);
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    for (int y = 0; y < rgb.height(); ++y)
        memcpy(plane + qsizetype(y) * stride, rgb.constScanLine(y), size_t(rgb.width()) * 3);
    heif_image_handle *handle = nullptr, *thumb = nullptr;
    heif_context_encode_image(ctx, image, encoder, nullptr, &handle);
    if (thumbnailSize > 0)
        heif_context_encode_thumbnail(ctx, image, handle, encoder, nullptr, thumbnailSize, &thumb);
    QByteArray bytes;
    heif_writer writer{1, [](heif_context*, const void* data, size_t size, void* out) {
                           static_cast<QByteArray*>(out)->append(static_cast<const char*>(data), qsizetype(size));
                           return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
                       }};
    heif_context_write(ctx, &writer, &bytes);
    heif_image_handle_release(thumb);
    heif_image_handle_release(handle);
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(ctx);
    return bytes;
}

// A minimal DNG that LibRaw demosaics: a 16-bit RGGB mosaic, bright left half and dark right
// half, in an uncompressed strip with no embedded preview; with an EXIF IFD when exif is given.
QByteArray makeDng(int width, int height, const std::optional<ExifInfo>& exif = std::nullopt)
{
    QByteArray mosaic;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const quint16 v = quint16(x < width / 2 ? 3000 + (y % 7) * 50 : 400);
            mosaic.append(char(v & 0xFF)).append(char(v >> 8));
        }
    TiffIfd ifd0;
    ifd0.longs(0xFE, {0}).longs(0x100, {quint32(width)}).longs(0x101, {quint32(height)});
    ifd0.shorts(0x102, {16}).shorts(0x103, {1}).shorts(0x106, {32803}).ascii(0x10F, "Vantelor").ascii(0x110, "Test DNG");
    ifd0.shorts(0x115, {1}).longs(0x116, {quint32(height)}).data(0x111, 0x117, mosaic).shorts(0x828D, {2, 2});
    ifd0.bytes(0x828E, TiffIfd::typeByte, QByteArray("\x00\x01\x01\x02", 4)).bytes(0xC612, TiffIfd::typeByte, QByteArray("\x01\x04\x00\x00", 4));
    ifd0.ascii(0xC614, "Vantelor Test DNG").longs(0xC61D, {4095}).shorts(0xC628, {1, 1, 1});
    // ColorMatrix1: identity, so that LibRaw has a colour transform to work with.
    ifd0.rationals(0xC621, {{1, 1}, {0, 1}, {0, 1}, {0, 1}, {1, 1}, {0, 1}, {0, 1}, {0, 1}, {1, 1}});
    if (exif)
        ifd0.exif(exifIfd(*exif));
    return TiffWriter::write({ifd0}, true);
}

// A JPEG of exactly `length` bytes (a real JPEG, padded after its end marker).
QByteArray jpegOfLength(qsizetype length, int seed)
{
    const QByteArray jpeg = makeJpeg(patternImage(32 + seed, 24));
    return jpeg + QByteArray(std::max<qsizetype>(0, length - jpeg.size()), char(seed));
}

TiffIfd previewIfd(const QByteArray& jpeg) { return TiffIfd().longs(0xFE, {1}).data(0x201, 0x202, jpeg); }

// Black left of column `edge`, grey of the given level (white by default) from it on.
QImage verticalStep(int width, int height, int edge, int level = 255)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, x < edge ? qRgb(0, 0, 0) : qRgb(level, level, level));
    return image;
}

} // namespace

// Each format takes its cheapest source that covers the size. A damaged embedded preview is
// passed over for the next source; a last source decoded only in part, or a cut preview where
// nothing else decodes, is shown but marked, as viewers show it; a file with nothing to decode
// gives the unreadable message. Inputs that merely must not crash are replayed from
// Fuzz/regressions (decode-…).
TEST(PreviewDecoder, EachFormatTakesItsCheapestSourceUprightOrIsMarkedDamaged)
{
    const auto cut = [](const QByteArray& bytes, double keep) { return bytes.left(qsizetype(double(bytes.size()) * keep)); };
    const NefLayout nef{.previews = {makeJpeg(160, 120), makeJpeg(patternImage(1200, 800), 90)}, .exif = {.model = "NIKON Z 6_2"}};
    // Its raw data is a dummy that LibRaw cannot decode either: the cut preview is all there is.
    const NefLayout cutNef{.previews = {cut(makeJpeg(640, 480), 0.5)}};
    const QByteArray thumbnail = makeJpeg(160, 120);
    const ExifInfo withThumbnail{.thumbnailJpeg = thumbnail};
    const ExifInfo cutThumbnail{.thumbnailJpeg = cut(thumbnail, 0.5)};
    // A thumbnail that does not decode, in a file with an orientation: the image itself serves.
    const ExifInfo damagedThumbnail{.orientation = 1, .thumbnailJpeg = QByteArray("\xFF\xD8\xFF\xDB", 4) + QByteArray(300, '\x5A')};
    // An orientation that exiv2 reads, for an image that never decodes (a scan without a frame).
    const ExifInfo rotated{.orientation = 6};
    const QByteArray noiseRotated = QByteArray("\xFF\xD8", 2) + jpegSegment(0xE1, exifApp1(rotated))
        + jpegSegment(0xDA, QByteArray(10, '\0')) + QByteArray(5000, '\xA7');
    const QImage image = patternImage(900, 600);
    const QByteArray big = makeJpeg(patternImage(2400, 1600), 85, withThumbnail), good = makeJpeg(patternImage(800, 600));
    // An ARW-like TIFF: IFD0 is the raw image, IFD1 a 160-px JPEG thumbnail.
    TiffIfd arw0, arw1;
    arw0.ascii(0x110, "ILCE-7M4").longs(0x100, {6000}).longs(0x101, {4000}).shorts(0x103, {32767}).data(0x111, 0x117, QByteArray(2048, '\x11'));
    arw1.shorts(0x103, {6}).data(0x201, 0x202, makeJpeg(160, 120));
    // A DNG whose sensor data is zero after `keep` of its rows, as LibRaw reads a file cut short.
    const auto damagedDng = [](double keep) {
        const qsizetype mosaicBytes = 96 * 64 * 2, kept = qsizetype(double(mosaicBytes) * keep);
        QByteArray dng = makeDng(96, 64);
        return dng.replace(dng.indexOf(QByteArray("\xB8\x0B\xB8\x0B", 4)) + kept, mosaicBytes - kept, QByteArray(mosaicBytes - kept, '\0'));
    };
    const QString notUtf8 = Paths::decode(QByteArray("caf\xE9-\xFF"));
    // size: none when unreadable. metadata: the width, or for raws the camera, the result carries ("" for neither).
    struct Row { QString name; QByteArray bytes; int dimension; QSize size; Source source; QString metadata; bool damaged; };
    QList<Row> rows = {
        {"DSC_0001.NEF", makeNef(nef), 600, {600, 400}, Source::nikonPreview, "NIKON Z 6_2", false},
        {notUtf8 + ".nef", makeNef(200, 100), 2560, {200, 100}, Source::nikonPreview, "", false},
        {"big.jpg", big, 1600, {1600, 1067}, Source::fullImage, "2400", false},
        {"thumb.jpg", big, 160, {160, 120}, Source::thumbnail, "2400", false},
        {"reduced.jpg", big, 100, {100, 75}, Source::thumbnail, "2400", false},
        {"damaged-thumb.jpg", makeJpeg(image, 85, damagedThumbnail), 100, {100, 66}, Source::fullImage, "900", false},
        {"cut-thumb.jpg", makeJpeg(patternImage(800, 600), 85, cutThumbnail), 120, {120, 90}, Source::fullImage, "800", false},
        {notUtf8 + ".jpeg", makeJpeg(800, 600), 400, {400, 300}, Source::fullImage, "800", false},
        {"good.jpg", good, 120, {120, 90}, Source::fullImage, "800", false},
        {"cut.jpg", cut(good, 0.6), 120, {120, 90}, Source::fullImage, "", true},
        {"cmyk.jpg", makeCmykJpeg(image), 450, {450, 300}, Source::fullImage, "900", false},
        {"cut-cmyk.jpg", makeCmykJpeg(patternImage(640, 480)).chopped(3000), 120, {120, 90}, Source::fullImage, "", true},
        {notUtf8 + ".TIFF", makeTiff(image), 450, {450, 300}, Source::fullImage, "900", false},
        {"saved-as.jpg", makePng(image), 450, {450, 300}, Source::fullImage, "900", false},  // the content decides
        {"IMG_0001.HEIC", makeHeic(image, 160), 100, {100, 66}, Source::thumbnail, "900", false},
        {"IMG_0002.HEIC", makeHeic(image, 160), 1600, {900, 600}, Source::fullImage, "900", false},
        {"a.heif", makeHeic(patternImage(320, 240)), 160, {160, 120}, Source::fullImage, "320", false},
        {"DSC0001.ARW", TiffWriter::write({arw0, arw1}, true), 2560, {160, 120}, Source::thumbnail, "ILCE-7M4", false},
        {"a.dng", makeDng(256, 192), 2560, {128, 96}, Source::fullImage, "", false},  // LibRaw at half size
        {"cut.nef", makeNef(cutNef), 120, {120, 90}, Source::nikonPreview, "", true},
        {"cut.dng", damagedDng(0.5), 120, {48, 32}, Source::fullImage, "", true},
        {"zero.dng", damagedDng(0), 120, {}, Source::fullImage, "", false},
        {"empty.jpg", {}, 120, {}, Source::fullImage, "", false},
        {"noise-rotated.jpg", noiseRotated, 120, {}, Source::fullImage, "", false},
    };
    // Images turn upright by the file's orientation; a NEF's preview by the raw file's, never by
    // one inside the JPEG. What a camera stores instead of turning the pixels: a turn, then a mirror.
    const QImage upright = patternImage(480, 320);
    const struct { int degrees; bool horizontal, vertical; } stored[] = {
        {0, false, false}, {0, true, false}, {180, false, false}, {0, false, true}, {90, true, false}, {270, false, false}, {90, false, true}, {90, false, false}};
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const auto& s = stored[orientation - 1];
        const QImage pixels = upright.transformed(QTransform().rotate(s.degrees)).mirrored(s.horizontal, s.vertical);
        const ExifInfo exif{.orientation = quint16(orientation)};
        const ExifInfo misleading{.orientation = quint16(9 - orientation)};
        const NefLayout turned{.previews = {makeJpeg(pixels, 92, misleading)}, .exif = exif};
        rows.append({QStringLiteral("turned-%1.jpg").arg(orientation), makeJpeg(pixels, 92, exif), 2560, upright.size(), Source::fullImage, "", false});
        rows.append({QStringLiteral("turned-%1.nef").arg(orientation), makeNef(turned), 2560, upright.size(), Source::nikonPreview, "", false});
    }
    Sandbox sandbox;
    for (const auto& row : rows) {
        SCOPED_TRACE(Paths::displayText(row.name).toStdString());
        PhotoItem item;
        item.url = sandbox.write(row.name, row.bytes);
        const auto result = PreviewDecoder::decode(item, row.dimension);
        if (row.size.isEmpty()) {
            EXPECT_EQ(result.message(), BrowserError::unreadableImage(row.name).message());
            continue;
        }
        ASSERT_TRUE(result.ok()) << result.message().toStdString();
        EXPECT_EQ(result->image.size(), row.size);
        EXPECT_EQ(result->source, row.source);
        EXPECT_EQ(result->usedFallback, row.source == Source::fullImage);
        EXPECT_EQ(result->damaged, row.damaged);
        const QString& camera = result->metadata.camera;
        EXPECT_EQ(row.metadata.isEmpty() ? "" : row.metadata[0].isDigit() ? QString::number(result->metadata.width) : camera, row.metadata);
        if (row.size.width() < 400)
            continue;
        // The corner marks of patternImage, sampled in their middle where compression and scaling keep them.
        const QImage& shown = result->image;
        const int m = std::max(2, std::min(shown.width(), shown.height()) / 8) / 2;
        const std::pair<QPoint, QColor> corners[] = {{{m, m}, Qt::red}, {{shown.width() - 1 - m, m}, Qt::green}, {{m, shown.height() - 1 - m}, Qt::blue}};
        for (const auto& [at, e] : corners) {
            const QColor c = shown.pixelColor(at);
            EXPECT_TRUE(std::abs(c.red() - e.red()) <= 60 && std::abs(c.green() - e.green()) <= 60 && std::abs(c.blue() - e.blue()) <= 60)
                << at.x() << "," << at.y() << " " << c.name().toStdString();
        }
    }
    PhotoItem gone;
    gone.url = sandbox.file(QStringLiteral("gone.nef"));
    EXPECT_EQ(PreviewDecoder::decode(gone, 2560).message(),
              QStringLiteral("No se puede leer la vista previa de gone.nef. El archivo puede ser incompatible, estar dañado o desconectado."));
    // The commands that decode a preview warn about a damaged one on standard error and still do
    // their work; an intact one gives no warning.
    const QString intact = sandbox.file("good.jpg"), damaged = sandbox.file("cut.jpg");
    const std::pair<QStringList, bool> commands[] = {{{"preview", intact}, false}, {{"preview", "--size", "64", damaged, intact}, true},
                                                     {{"peaking", damaged}, true}, {{"nef-preview", sandbox.file("cut.nef")}, true}};
    for (const auto& [arguments, warns] : commands) {
        const CliRun run = runCli(arguments);
        EXPECT_EQ(run.status, 0) << run.err.toStdString();
        EXPECT_EQ(run.err.contains("vista previa dañada"), warns) << arguments.join(' ').toStdString() << run.err.toStdString();
    }
}

TEST(Downscale, JpegsDecodeAtTheSmallestScaleAndReductionsFollowAnAreaFilter)
{
    // 3/8 would give 2268 for 2560; the longer side counts, whichever it is.
    const struct { QSize size; int max; std::pair<int, int> scale; } scales[] = {
        {{6048, 4032}, 2560, {1, 2}}, {{6048, 4032}, 3025, {5, 8}}, {{6048, 4032}, 756, {1, 8}}, {{4032, 6048}, 2560, {1, 2}}};
    for (const auto& scale : scales)
        EXPECT_EQ(JpegDecoder::scaleFor(scale.size, scale.max), scale.scale) << scale.size.width() << " at " << scale.max;
    const struct { QSize source; int max; QSize target; } rows[] = {
        {{3024, 2016}, 2560, {2560, 1707}},  // the two-tap path
        {{300, 200}, 200, {200, 133}},       // a reduction by a third: still two taps
        {{302, 201}, 202, {202, 134}},       // two taps, with columns left over after four at a time
        {{301, 200}, 151, {151, 100}},       // by half: Qt's area filter
        {{1200, 800}, 160, {160, 107}},      // a larger reduction: Qt's area filter
        {{64, 48}, 100, {64, 48}},           // never enlarged
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.source.width());
        QImage flat(row.source, QImage::Format_RGB32);
        flat.fill(qRgb(10, 200, 77));
        const QImage small = Downscale::fit(flat, row.max);
        ASSERT_EQ(small.size(), row.target);
        for (const QPoint p : {QPoint(0, 0), QPoint(row.target.width() - 1, row.target.height() - 1), QPoint(row.target.width() / 2, row.target.height() / 3)})
            EXPECT_EQ(small.pixel(p), qRgb(10, 200, 77));
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
        EXPECT_LE(double(difference) / double(samples * 3), 6.0);
        // The last column and row blend the source's last pixels, never what lies beyond them.
        const QRgb a = ours.pixel(row.target.width() - 1, row.target.height() - 1);
        const QRgb b = reference.pixel(row.target.width() - 1, row.target.height() - 1);
        EXPECT_LE(std::abs(qRed(a) - qRed(b)) + std::abs(qGreen(a) - qGreen(b)) + std::abs(qBlue(a) - qBlue(b)), 24);
        // Other formats (a PNG's 24-bit pixels) take Qt's own path.
        const QImage rgb888 = picture.convertToFormat(QImage::Format_RGB888);
        EXPECT_EQ(Downscale::fit(rgb888, row.max), rgb888.scaled(row.target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
    }
}

// Raws that exiv2 0.27 cannot parse (CR3) still show their capture data, read by LibRaw. The
// fixture is a DNG whose TIFF magic number is not 42: exiv2 refuses it as an unknown format,
// while LibRaw, like for the raws that only it knows, reads its header and EXIF block.
TEST(PhotoMetadata, ReadsCaptureDataFromExifOrLibRawAndFormatsIt)
{
    const ExifInfo exif{.dateTimeOriginal = "2024:03:01 10:15:30",
                        .model = "NIKON Z 8",  // the DNG's own IFD0 names its camera
                        .lens = "RF24-70mm F2.8 L IS USM",
                        .iso = 3200,
                        .fNumber = QPair<quint32, quint32>{28, 10},
                        .exposureTime = QPair<quint32, quint32>{1, 250}};
    QByteArray raw = makeDng(96, 64, exif);
    raw[2] = 43;
    const PhotoMetadata rawMetadata{96, 64, "Vantelor Test DNG", "RF24-70mm F2.8 L IS USM", "ISO 3200", "ƒ/2.8", "1/250 s"};
    const QDateTime taken(QDate(2024, 3, 1), QTime(10, 15, 30), Qt::UTC);
    // Only the first ISO counts, and values of the wrong type or count are absent.
    TiffIfd wrongExif, wrong0;
    wrongExif.shorts(0x8827, {3200, 1600}).raw(0x829D, TiffIfd::typeRational, 0, 0);  // FNumber with no value at all
    wrongExif.shorts(0x829A, {250}).rationals(0xA434, {{1, 2}});  // ExposureTime as SHORT, LensModel as RATIONAL
    wrong0.shorts(0x110, {42}).exif(wrongExif);                     // Model as SHORT
    QByteArray wrongTypes = makeJpeg(64, 48);
    wrongTypes.insert(2, jpegSegment(0xE1, QByteArray("Exif\0\0", 6) + TiffWriter::write({wrong0}, true)));
    // Where exiv2 knows no size, the decoders' own headers give it.
    const struct { const char* name; QByteArray bytes; PhotoMetadata expected; std::optional<QDateTime> taken; } rows[] = {
        {"exif.jpg", makeJpeg(patternImage(300, 200), 80, exif), {300, 200, "NIKON Z 8", "RF24-70mm F2.8 L IS USM", "ISO 3200", "ƒ/2.8", "1/250 s"}, taken},
        {"a.png", makePng(patternImage(120, 80)), {120, 80, "—", "—", "—", "—", "—"}, {}},
        {"a.jpg", makeJpeg(120, 80), {120, 80, "—", "—", "—", "—", "—"}, {}},
        {"a.heic", makeHeic(patternImage(120, 80)), {120, 80, "—", "—", "—", "—", "—"}, {}},
        {"types.jpg", wrongTypes, {64, 48, "—", "—", "ISO 3200", "—", "—"}, {}},
        {"IMG_0001.CR3", raw, rawMetadata, taken},
        {"IMG_0002.dng", raw, rawMetadata, taken},
    };
    Sandbox sandbox;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const QString path = sandbox.write(QString::fromUtf8(row.name), row.bytes);
        const auto metadata = PreviewDecoder::metadata(path);
        ASSERT_TRUE(metadata.ok());
        EXPECT_EQ(*metadata, row.expected);
        EXPECT_EQ(CaptureTimeReader::captureTime(path), row.taken);
    }
    // A file of another kind is never handed to LibRaw, whatever it holds.
    const QString tiff = sandbox.write("scan.tif", raw);
    EXPECT_EQ(PreviewDecoder::metadata(tiff)->camera, "—");
    EXPECT_FALSE(CaptureTimeReader::captureTime(tiff));
    EXPECT_EQ(PreviewDecoder::metadata(QStringLiteral("/nonexistent/DSC_9.NEF")).message(),
              BrowserError::unreadableImage(QStringLiteral("DSC_9.NEF")).message());
    // Shutter speeds: a fraction below one second, a decimal from it on.
    const std::pair<double, const char*> shutters[] = {{0.004, "1/250 s"}, {0.3, "1/3 s"}, {0.9999, "1/1 s"}, {1.0, "1.00 s"}, {2.5, "2.50 s"}, {0.0, "0.00 s"}};
    for (const auto& [seconds, text] : shutters)
        EXPECT_EQ(PhotoMetadata::formatShutter(seconds), QString::fromUtf8(text)) << seconds;
    // A damaged file's absurd exposure still gives text, not an overflow.
    const QString tiny = PhotoMetadata::formatShutter(1e-30);
    EXPECT_TRUE(tiny.startsWith(QLatin1String("1/")) && tiny.endsWith(QLatin1String(" s")) && tiny.size() > 30) << tiny.toStdString();
    EXPECT_EQ(PhotoMetadata::formatAperture(5.66), QStringLiteral("ƒ/5.7"));
    EXPECT_EQ(PhotoMetadata::formatAperture(4), QStringLiteral("ƒ/4.0"));
    // exiv2 built without HEIF support knows no size at all; the fallbacks must give it.
    EXPECT_EQ(HeifDecoder::size(makeHeic(patternImage(120, 80))), QSize(120, 80));
    EXPECT_EQ(HeifDecoder::size(makeJpeg(120, 80)), std::nullopt);
    EXPECT_EQ(JpegDecoder::size(makeJpeg(120, 80)), QSize(120, 80));
}

// A named pipe where a photo was expected: opening it for reading waits for a writer that never
// comes. Every reader, ours or a library's, must see what it is before it opens it that way.
TEST(NamedPipe, NoReaderWaitsOnIt)
{
    Sandbox sandbox;
    const auto fifo = [&](const QString& name) {
        EXPECT_EQ(mkfifo(Paths::encode(sandbox.file(name)).constData(), 0600), 0);
        return sandbox.file(name);
    };
    const QString nef = fifo("pipe.nef"), cr3 = fifo("pipe.cr3"), png = fifo("pipe.png"), jpg = fifo("pipe.jpg");
    PhotoItem item;
    item.url = jpg;
    // read: true when it (wrongly) found something.
    const struct { const char* reader; QString pipe; std::function<bool()> read; } rows[] = {
        {"exiv2 properties", cr3, [&] { return ImageProperties::read(cr3, ImageProperties::Previews::largestPreview).model.has_value(); }},
        {"exiv2 capture time", cr3, [&] { return CaptureTimeReader::captureTime(cr3).has_value(); }},
        {"LibRaw header", cr3, [&] { return LibRawReader::properties(cr3, ImageProperties::Previews::none).has_value(); }},
        {"LibRaw decode", nef, [&] { return RawDecoder::decode(nef, 64).has_value(); }},
        {"Qt image reader", png, [&] { return QtImageDecoder::decode(png, "png", 64).has_value(); }},
        {"NEF preview", nef, [&] { return NikonPreview::jpeg(nef).has_value(); }},
        {"preview", jpg, [&] { return PreviewDecoder::decode(item, 64).ok(); }},
        {"capture data", jpg, [&] { return PreviewDecoder::metadata(jpg).ok(); }},
    };
    for (const auto& row : rows) {
        auto done = std::async(std::launch::async, row.read);
        if (done.wait_for(std::chrono::seconds(5)) == std::future_status::timeout) {
            ADD_FAILURE() << row.reader << " waits on the pipe";
            // A writer that comes and goes lets the stuck reader see the end, so that the test ends.
            ::close(::open(Paths::encode(row.pipe).constData(), O_WRONLY | O_NONBLOCK));
            done.wait();
            continue;
        }
        EXPECT_FALSE(done.get()) << row.reader;
    }
}

// The longest preview wins wherever it stands and whatever the byte order; a file that breaks
// the rules, or whose walk would go beyond its bounds, gives none.
TEST(NikonPreview, TakesTheLongestValidPreviewAndBoundsEveryWalk)
{
    const QByteArray jpeg = makeJpeg(64, 48), nef = makeNef(64, 48);
    const QByteArray small = jpegOfLength(1000, 1), large = jpegOfLength(2'000'000, 2);
    const QByteArray equal1 = jpegOfLength(5000, 1), equal2 = jpegOfLength(5000, 2);
    QByteArray notJpeg = jpegOfLength(9000, 3);
    notJpeg[0] = 'N';
    const auto withPreviews = [](const QList<QByteArray>& previews, bool littleEndian, int rawBytes = 4096) {
        return makeNef({.previews = previews, .exif = {.model = "NIKON Z 8"}, .littleEndian = littleEndian, .rawBytes = rawBytes});
    };
    const QByteArray large4MB = jpegOfLength(4'000'000, 5);
    const auto withIfd = [&jpeg](const TiffIfd& ifd) { return TiffWriter::write({ifd}, true) + jpeg; };
    const auto chain = [&jpeg](int count, int previewAt) {
        QList<TiffIfd> ifds;
        for (int i = 0; i < count; ++i)
            ifds.append(i == previewAt ? previewIfd(jpeg) : TiffIfd().longs(0xFE, {1}));
        return TiffWriter::write(ifds, true);
    };
    const auto subIfds = [&jpeg](int empty) {
        QList<TiffIfd> children(empty, TiffIfd().longs(0xFE, {1}));
        children.append(previewIfd(jpeg));  // the last listed sub-IFD is visited first
        return TiffWriter::write({TiffIfd().subIfds(children)}, false);
    };
    const auto wide = [&jpeg](int entries) {
        TiffIfd big;
        for (int i = 0; i < entries; ++i)
            big.raw(quint16(0x9000 + i), 4, 1, 0);
        // The valid preview comes first in the chain, the oversized IFD after it.
        return TiffWriter::write({previewIfd(jpeg), big}, true);
    };
    // Two sub-IFD offsets (both 0, so nothing to visit) as the file's last eight bytes.
    const auto listAtTheEnd = [&jpeg] {
        const auto write = [&jpeg](quint32 at) { return TiffWriter::write({previewIfd(jpeg).raw(0x14A, 4, 2, at)}, true); };
        return write(quint32(write(0).size())) + QByteArray(8, '\0');
    };
    const TiffIfd loop = previewIfd(jpeg).raw(0x14A, 4, 1, 8);  // SubIFDs pointing back at IFD0 itself
    const std::nullopt_t none = std::nullopt;
    const struct { const char* name; QByteArray file; std::optional<QByteArray> found; } rows[] = {
        {"the longer second", withPreviews({small, large}, false), large},
        // A camera-like NEF: a 4 MB preview among several IFDs and 16 MB of raw data.
        {"camera-like", withPreviews({makeJpeg(640, 424), large4MB}, false, 16 * 1024 * 1024), large4MB},
        {"the longer first, little-endian", withPreviews({large, small}, true), large},
        {"equal lengths: sub-IFDs are visited from the last listed", withPreviews({equal1, equal2}, false), equal2},
        {"the longest is no JPEG", withPreviews({small, notJpeg}, false), none},
        {"empty", {}, none},
        {"bad byte-order mark", QByteArray("X") + nef.mid(1), none},
        {"bad magic", nef.left(3) + char(43) + nef.mid(4), none},
        {"zero length", withIfd(TiffIfd().raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 0)), none},
        {"over 32 MiB", withIfd(TiffIfd().raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 33'554'433)), none},
        {"past the end", withIfd(TiffIfd().raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 100'000)), none},
        {"offset alone", withIfd(TiffIfd().raw(0x201, 4, 1, 8)), none},
        {"length alone", TiffWriter::write({TiffIfd().data(0x111, 0x202, jpeg)}, true), none},
        {"offset as SHORT", withIfd(TiffIfd().raw(0x201, 3, 1, 40).raw(0x202, 4, 1, quint32(jpeg.size()))), none},
        {"offset count 2", withIfd(TiffIfd().raw(0x201, 4, 2, 40).raw(0x202, 4, 1, quint32(jpeg.size()))), none},
        {"valid", TiffWriter::write({TiffIfd().data(0x201, 0x202, jpeg)}, true), jpeg},
        {"32 sub-IFDs", subIfds(31), jpeg},
        {"33 sub-IFDs", subIfds(32), none},
        {"sub-IFD list at the very end", listAtTheEnd(), jpeg},
        {"preview in the 32nd IFD", chain(40, 31), jpeg},
        {"preview in the 33rd IFD", chain(40, 32), none},
        {"512 entries", wide(512), jpeg},
        {"513 entries void everything", wide(513), none},
        {"a loop keeps what it found", TiffWriter::write({loop, TiffIfd().longs(0xFE, {1})}, true), jpeg},
    };
    Sandbox sandbox;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const QString path = sandbox.write(QStringLiteral("DSC_0001.NEF"), row.file);
        EXPECT_EQ(NikonPreview::jpeg(path), row.found);
        // Besides the preview, only the structure is read.
        auto file = FileReader::open(path);
        const auto found = file ? NikonPreview::locate(*file) : std::nullopt;
        EXPECT_LE(file ? file->bytesRead() - (found ? found->length : 0) : 0, 64 * 1024);
    }
    for (const char* name : {"a.NEF", "a.nef", "a.Nef", "a.tif", "a.nrw", "nef"})
        EXPECT_EQ(NikonPreview::jpeg(sandbox.write(QString::fromLatin1(name), nef)).has_value(), QByteArray(name).toLower().endsWith(".nef")) << name;
    EXPECT_FALSE(NikonPreview::jpeg(QStringLiteral("/nonexistent/a.nef")).has_value());
}

TEST(FocusPeaking, SizeAndThresholdStayInRangeAndTheMaskRunsInTheBackground)
{
    const std::pair<QSize, QSize> sizes[] = {
        {{6000, 4000}, {2560, 1706}}, {{4000, 6000}, {1706, 2560}}, {{2560, 1706}, {2560, 1706}}, {{1, 1}, {3, 3}}, {{10000, 2}, {2560, 3}}};
    for (const auto& [image, analysis] : sizes)
        EXPECT_EQ(FocusPeaking::analysisSize(image), analysis) << image.width() << "×" << image.height();
    const std::pair<double, int> thresholds[] = {{1.0, 60}, {0.0, 560}, {0.5, 310}, {2.0, 60}, {-1.0, 560}, {0.999, 60}, {std::nan(""), 560}};
    for (const auto& [sensitivity, threshold] : thresholds)
        EXPECT_EQ(FocusPeaking::threshold(sensitivity), threshold) << sensitivity;
    // The mask is made in the background, stops when cancelled, and says when memory runs out.
    PreviewResult preview;
    preview.image = verticalStep(64, 64, 32);
    EXPECT_EQ(FocusPeaking::mask(preview, 1.0).result()->highlightedPixels, 2 * 62);
    int looks = 0;
    const auto cancelled = FocusPeaking::calculate(patternImage(300, 200), 0.5, [&looks] { return ++looks >= 2; });
    ASSERT_FALSE(cancelled.ok());
    EXPECT_TRUE(isCancelled(cancelled.failure()));
    EXPECT_EQ(looks, 2);  // rows 32 and 64
    EXPECT_EQ(FocusPeaking::calculate(QImage(), 0.5).message(), QStringLiteral("No se pudo reservar memoria para analizar el enfoque"));
}

TEST(FocusPeaking, OnlyInteriorPixelsOnStrongEdgesAreHighlighted)
{
    // A checkerboard: every interior pixel is on a strong edge.
    QImage board(20, 12, QImage::Format_RGB32);
    for (int y = 0; y < board.height(); ++y)
        for (int x = 0; x < board.width(); ++x)
            board.setPixel(x, y, ((x / 2 + y / 2) % 2) ? qRgb(255, 255, 255) : qRgb(0, 0, 0));
    // highlighted: -1 for some. A step's |gx| is 4 × its level beside the edge (columns 19 and
    // 20), rows 1 … 28, at every sensitivity.
    const struct { const char* name; QImage image; double sensitivity; QSize size; qint64 highlighted; } rows[] = {
        {"grey", verticalStep(200, 100, 0, 160), 1.0, {200, 100}, 0},
        {"step, least sensitive", verticalStep(40, 30, 20), 0.0, {40, 30}, 2 * 28},
        {"step, halfway", verticalStep(40, 30, 20), 0.5, {40, 30}, 2 * 28},
        {"step of exactly the threshold, 4 × 15", verticalStep(40, 30, 20, 15), 1.0, {40, 30}, 2 * 28},
        {"step just below it", verticalStep(40, 30, 20, 14), 1.0, {40, 30}, 0},
        {"checkerboard", board, 1.0, {20, 12}, -1},
        {"one pixel, analysed at 3 × 3", verticalStep(1, 1, 0), 1.0, {3, 3}, 0},
        {"large, analysed at the limit", patternImage(6000, 4000), 0.5, {2560, 1706}, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto mask = FocusPeaking::calculate(row.image, row.sensitivity);
        ASSERT_TRUE(mask.ok());
        ASSERT_EQ(mask->image.size(), row.size);
        EXPECT_EQ(mask->image.format(), QImage::Format_RGBA8888_Premultiplied);
        qint64 marked = 0;
        for (int y = 0; y < row.size.height(); ++y)
            for (int x = 0; x < row.size.width(); ++x) {
                const QRgb pixel = mask->image.pixel(x, y);
                const bool border = x == 0 || y == 0 || x == row.size.width() - 1 || y == row.size.height() - 1;
                const bool besideEdge = row.size.width() == 40 && (x == 19 || x == 20) && !border;
                EXPECT_TRUE(pixel == 0 || (!border && pixel == qRgba(220, 220, 220, 220))) << x << "," << y;
                EXPECT_TRUE(row.highlighted != 2 * 28 || (pixel != 0) == besideEdge) << x << "," << y;
                marked += pixel != 0;
            }
        EXPECT_EQ(mask->highlightedPixels, marked);
        EXPECT_TRUE(row.highlighted < 0 ? marked > 0 : marked == row.highlighted) << marked;
    }
}

} // namespace vantelor::test
