#include <gtest/gtest.h>

#include "Previews/NikonPreview.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"
#include "Support/TiffWriter.h"

namespace vantelor::test {

namespace {

// A JPEG of exactly `length` bytes (a real JPEG, padded after its end marker).
QByteArray jpegOfLength(qsizetype length, int seed = 0)
{
    QByteArray jpeg = makeJpeg(patternImage(32 + seed, 24));
    if (jpeg.size() < length)
        jpeg.append(QByteArray(length - jpeg.size(), char(seed)));
    return jpeg;
}

TiffIfd previewIfd(const QByteArray& jpeg)
{
    TiffIfd ifd;
    ifd.longs(0xFE, {1});
    ifd.data(0x201, 0x202, jpeg);
    return ifd;
}

std::optional<QByteArray> locateIn(const QByteArray& file, const QString& name = QStringLiteral("DSC_0001.NEF"))
{
    Sandbox sandbox;
    return NikonPreview::jpeg(sandbox.write(name, file));
}

} // namespace

TEST(NikonPreview, TakesTheLongestPreviewWhateverItsPlaceAndByteOrder)
{
    const QByteArray small = jpegOfLength(1000, 1);
    const QByteArray large = jpegOfLength(2'000'000, 2);
    const struct {
        QList<QByteArray> previews;
        bool littleEndian;
    } rows[] = {
        {{small, large}, false},
        {{large, small}, false},
        {{small, large}, true},
        {{large, small}, true},
    };
    for (const auto& row : rows) {
        NefLayout layout;
        layout.previews = row.previews;
        layout.littleEndian = row.littleEndian;
        const auto found = locateIn(makeNef(layout));
        ASSERT_TRUE(found.has_value());
        EXPECT_EQ(*found, large);
    }
}

TEST(NikonPreview, OnEqualLengthsKeepsTheFirstVisited)
{
    // Sub-IFDs are visited from the last listed to the first.
    NefLayout layout;
    layout.previews = {jpegOfLength(5000, 1), jpegOfLength(5000, 2)};
    const auto found = locateIn(makeNef(layout));
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(*found, layout.previews[1]);
}

TEST(NikonPreview, LooksOnlyAtNefFilesByExtension)
{
    NefLayout layout;
    layout.previews = {makeJpeg(64, 48)};
    const QByteArray nef = makeNef(layout);
    EXPECT_TRUE(locateIn(nef, QStringLiteral("a.NEF")).has_value());
    EXPECT_TRUE(locateIn(nef, QStringLiteral("a.nef")).has_value());
    EXPECT_TRUE(locateIn(nef, QStringLiteral("a.Nef")).has_value());
    EXPECT_FALSE(locateIn(nef, QStringLiteral("a.tif")).has_value());
    EXPECT_FALSE(locateIn(nef, QStringLiteral("a.nrw")).has_value());
    EXPECT_FALSE(locateIn(nef, QStringLiteral("nef")).has_value());
    EXPECT_FALSE(NikonPreview::jpeg(QStringLiteral("/nonexistent/a.nef")).has_value());
}

TEST(NikonPreview, RefusesBrokenHeaders)
{
    NefLayout layout;
    layout.previews = {makeJpeg(64, 48)};
    const QByteArray nef = makeNef(layout);
    QByteArray badMark = nef;
    badMark[0] = 'X';
    QByteArray badMagic = nef;
    badMagic[3] = 43;
    QByteArray firstIfdPastEnd = nef;
    firstIfdPastEnd.replace(4, 4, QByteArray("\x7F\xFF\xFF\xFF", 4));
    for (const QByteArray& file : {QByteArray(), nef.left(7), nef.left(8), badMark, badMagic, firstIfdPastEnd, nef.left(200)})
        EXPECT_FALSE(locateIn(file).has_value()) << file.size();
}

TEST(NikonPreview, RejectsCandidatesOutsideTheRules)
{
    const QByteArray jpeg = makeJpeg(64, 48);
    const auto withIfd = [](const TiffIfd& ifd) { return TiffWriter::write({ifd}, true); };

    TiffIfd zeroLength;
    zeroLength.raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 0);
    TiffIfd tooLong;
    tooLong.raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 33'554'433);
    TiffIfd pastEnd;
    pastEnd.raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 100'000);
    TiffIfd onlyOffset;
    onlyOffset.raw(0x201, 4, 1, 8);
    TiffIfd onlyLength;
    onlyLength.data(0x111, 0x202, jpeg);  // a length without an offset tag
    TiffIfd offsetAsShort;
    offsetAsShort.raw(0x201, 3, 1, 40).raw(0x202, 4, 1, quint32(jpeg.size()));
    TiffIfd countTwo;
    countTwo.raw(0x201, 4, 2, 40).raw(0x202, 4, 1, quint32(jpeg.size()));

    for (const TiffIfd& ifd : {zeroLength, tooLong, pastEnd, onlyOffset, onlyLength, offsetAsShort, countTwo})
        EXPECT_FALSE(locateIn(withIfd(ifd) + jpeg).has_value());

    // The same structure with valid values is accepted, so the rows above fail for their reason.
    TiffIfd valid;
    valid.data(0x201, 0x202, jpeg);
    EXPECT_TRUE(locateIn(withIfd(valid)).has_value());
}

TEST(NikonPreview, IgnoresSubIfdListsLongerThan32)
{
    const QByteArray jpeg = makeJpeg(64, 48);
    // The last listed sub-IFD is visited first, so the preview there is within the 32-IFD limit.
    QList<TiffIfd> children;
    for (int i = 0; i < 32; ++i)
        children.append(TiffIfd().longs(0xFE, {1}));
    children.append(previewIfd(jpeg));
    TiffIfd ifd0;
    ifd0.subIfds(children);
    EXPECT_FALSE(locateIn(TiffWriter::write({ifd0}, false)).has_value());

    children.removeFirst();
    TiffIfd ifd0With32;
    ifd0With32.subIfds(children);
    EXPECT_TRUE(locateIn(TiffWriter::write({ifd0With32}, false)).has_value());
}

TEST(NikonPreview, SurvivesLoopsAndKeepsWhatItFound)
{
    TiffIfd loop = previewIfd(makeJpeg(64, 48));
    loop.raw(0x14A, 4, 1, 8);  // SubIFDs pointing back at IFD0 itself
    const auto found = locateIn(TiffWriter::write({loop, TiffIfd().longs(0xFE, {1})}, true));
    EXPECT_TRUE(found.has_value());
}

TEST(NikonPreview, StopsAfter32Ifds)
{
    // A main chain of IFDs; only the 33rd holds a preview.
    for (const int previewAt : {31, 32}) {
        QList<TiffIfd> chain;
        for (int i = 0; i < 40; ++i)
            chain.append(i == previewAt ? previewIfd(makeJpeg(64, 48)) : TiffIfd().longs(0xFE, {1}));
        EXPECT_EQ(locateIn(TiffWriter::write(chain, true)).has_value(), previewAt < 32) << previewAt;
    }
}

TEST(NikonPreview, AnIfdOfMoreThan512EntriesVoidsEverything)
{
    for (const int entries : {512, 513}) {
        TiffIfd big;
        for (int i = 0; i < entries; ++i)
            big.raw(quint16(0x9000 + i), 4, 1, 0);
        // The valid preview comes first in the chain, the oversized IFD after it.
        const auto found = locateIn(TiffWriter::write({previewIfd(makeJpeg(64, 48)), big}, true));
        EXPECT_EQ(found.has_value(), entries == 512) << entries;
    }
}

TEST(NikonPreview, ALargestCandidateThatIsNoJpegGivesNothing)
{
    QByteArray notJpeg = jpegOfLength(9000, 3);
    notJpeg[0] = 'N';
    NefLayout layout;
    layout.previews = {makeJpeg(64, 48), notJpeg};
    EXPECT_FALSE(locateIn(makeNef(layout)).has_value());
}

TEST(NikonPreview, ReadsLittleBesidesThePreview)
{
    // A camera-like NEF: a 4 MB preview among several IFDs and 16 MB of raw data.
    NefLayout layout;
    layout.previews = {makeJpeg(640, 424), jpegOfLength(4'000'000, 5)};
    layout.exif.model = QByteArray("NIKON Z 8");
    layout.exif.iso = 3200;
    layout.rawBytes = 16 * 1024 * 1024;
    Sandbox sandbox;
    const QString path = sandbox.write(QStringLiteral("DSC_0002.NEF"), makeNef(layout));
    auto file = FileReader::open(path);
    ASSERT_TRUE(file.has_value());
    const auto found = NikonPreview::locate(*file);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->length, 4'000'000);
    EXPECT_EQ(found->bytes, layout.previews[1]);
    EXPECT_LE(file->bytesRead() - found->length, 64 * 1024);
}

} // namespace vantelor::test
