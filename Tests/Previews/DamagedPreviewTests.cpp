#include <gtest/gtest.h>

#include "PreviewFixtures.h"
#include "Previews/PreviewDecoder.h"
#include "Support/CliRunner.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

namespace {

QByteArray cut(const QByteArray& bytes, double keep)
{
    return bytes.left(qsizetype(double(bytes.size()) * keep));
}

// A DNG whose sensor data is zero after `keep` of its rows, as LibRaw reads a file cut short.
QByteArray damagedDng(double keep)
{
    QByteArray dng = makeDng(96, 64);
    const qsizetype mosaicBytes = 96 * 64 * 2;
    const qsizetype kept = qsizetype(double(mosaicBytes) * keep);
    const qsizetype strip = dng.indexOf(QByteArray("\xB8\x0B\xB8\x0B", 4));
    return dng.replace(strip + kept, mosaicBytes - kept, QByteArray(mosaicBytes - kept, '\0'));
}

QByteArray goodJpeg()
{
    return makeJpeg(patternImage(800, 600));
}

QByteArray cutNef()
{
    NefLayout layout;
    layout.previews = {cut(makeJpeg(640, 480), 0.5)};
    return makeNef(layout);
}

ExifInfo withThumbnail(const QByteArray& jpeg)
{
    ExifInfo info;
    info.thumbnailJpeg = jpeg;
    return info;
}

} // namespace

// What each kind of damage becomes: a damaged embedded preview is passed over for the next
// source; a last source decoded only in part is shown but marked; no data at all is unreadable.
TEST(DamagedPreview, FallsThroughOrIsMarked)
{
    using Source = PreviewResult::Source;
    const QByteArray thumbnail = makeJpeg(patternImage(160, 120));
    const struct { const char* what; QString name; QByteArray bytes; bool readable; bool damaged; Source source; } rows[] = {
        {"intact JPEG", "good.jpg", goodJpeg(), true, false, Source::fullImage},
        {"JPEG cut short", "cut.jpg", cut(goodJpeg(), 0.6), true, true, Source::fullImage},
        {"intact EXIF thumbnail", "thumb.jpg", makeJpeg(patternImage(800, 600), 85, withThumbnail(thumbnail)), true, false,
         Source::thumbnail},
        {"EXIF thumbnail cut short", "cut-thumb.jpg", makeJpeg(patternImage(800, 600), 85, withThumbnail(cut(thumbnail, 0.5))),
         true, false, Source::fullImage},
        // Its raw data is a dummy that LibRaw cannot decode either.
        {"NEF preview cut short", "cut.nef", cutNef(), false, false, Source::fullImage},
        {"DNG cut in its sensor data", "cut.dng", damagedDng(0.5), true, true, Source::fullImage},
        {"DNG without sensor data", "zero.dng", damagedDng(0), false, false, Source::fullImage},
    };
    Sandbox sandbox;
    for (const auto& row : rows) {
        PhotoItem item;
        item.url = sandbox.write(row.name, row.bytes);
        const Result<PreviewResult> result = PreviewDecoder::decode(item, 120);
        ASSERT_EQ(result.ok(), row.readable) << row.what;
        if (!result)
            continue;
        EXPECT_FALSE(result->image.isNull()) << row.what;
        EXPECT_EQ(result->damaged, row.damaged) << row.what;
        EXPECT_EQ(int(result->source), int(row.source)) << row.what;
    }
}

// The commands that decode a preview warn about a damaged one on standard error and still do
// their work; an intact one gives no warning.
TEST(DamagedPreview, CommandsWarnWithoutFailing)
{
    Sandbox sandbox;
    const QString good = sandbox.write("good.jpg", goodJpeg());
    const QString damaged = sandbox.write("cut.jpg", cut(goodJpeg(), 0.6));
    const std::pair<QStringList, bool> rows[] = {{{"preview", good}, false},
                                                 {{"preview", "--size", "64", damaged, good}, true},
                                                 {{"peaking", damaged}, true},
                                                 {{"nef-preview", sandbox.write("cut.nef", cutNef())}, true}};
    for (const auto& [arguments, warns] : rows) {
        const CliRun run = runCli(arguments);
        EXPECT_EQ(run.status, 0) << run.err.toStdString();
        EXPECT_EQ(run.err.contains("vista previa dañada"), warns) << arguments.join(' ').toStdString() << run.err.toStdString();
    }
}

} // namespace vantelor::test
