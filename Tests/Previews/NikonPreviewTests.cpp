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
    const QByteArray equal1 = jpegOfLength(5000, 1), equal2 = jpegOfLength(5000, 2);
    QByteArray notJpeg = jpegOfLength(9000, 3);
    notJpeg[0] = 'N';
    const struct { QList<QByteArray> previews; bool littleEndian; std::optional<QByteArray> found; } rows[] = {
        {{small, large}, false, large},
        {{large, small}, true, large},
        {{equal1, equal2}, false, equal2},  // sub-IFDs are visited from the last listed to the first
        {{small, notJpeg}, false, std::nullopt},
    };
    for (const auto& row : rows) {
        NefLayout layout;
        layout.previews = row.previews;
        layout.littleEndian = row.littleEndian;
        EXPECT_EQ(locateIn(makeNef(layout)), row.found);
    }
    for (const char* name : {"a.NEF", "a.nef", "a.Nef", "a.tif", "a.nrw", "nef"})
        EXPECT_EQ(locateIn(makeNef(64, 48), QString::fromLatin1(name)).has_value(), QByteArray(name).toLower().endsWith(".nef")) << name;
    EXPECT_FALSE(NikonPreview::jpeg(QStringLiteral("/nonexistent/a.nef")).has_value());
}

TEST(NikonPreview, RefusesWhatBreaksTheRulesAndBoundsEveryWalk)
{
    const QByteArray jpeg = makeJpeg(64, 48);
    const QByteArray nef = makeNef(64, 48);
    const auto withIfd = [&jpeg](const TiffIfd& ifd) { return TiffWriter::write({ifd}, true) + jpeg; };
    const auto chain = [](int count, int previewAt) {
        QList<TiffIfd> ifds;
        for (int i = 0; i < count; ++i)
            ifds.append(i == previewAt ? previewIfd(makeJpeg(64, 48)) : TiffIfd().longs(0xFE, {1}));
        return TiffWriter::write(ifds, true);
    };
    const auto subIfds = [&jpeg](int empty) {
        // The last listed sub-IFD is visited first.
        QList<TiffIfd> children(empty, TiffIfd().longs(0xFE, {1}));
        children.append(previewIfd(jpeg));
        return TiffWriter::write({TiffIfd().subIfds(children)}, false);
    };
    const auto wide = [](int entries) {
        TiffIfd big;
        for (int i = 0; i < entries; ++i)
            big.raw(quint16(0x9000 + i), 4, 1, 0);
        // The valid preview comes first in the chain, the oversized IFD after it.
        return TiffWriter::write({previewIfd(makeJpeg(64, 48)), big}, true);
    };
    // Two sub-IFD offsets (both 0, so nothing to visit) as the file's last eight bytes.
    const auto listAtTheEnd = [&jpeg] {
        const auto write = [&jpeg](quint32 at) { return TiffWriter::write({previewIfd(jpeg).raw(0x14A, 4, 2, at)}, true); };
        return write(quint32(write(0).size())) + QByteArray(8, '\0');
    };
    TiffIfd loop = previewIfd(jpeg);
    loop.raw(0x14A, 4, 1, 8);  // SubIFDs pointing back at IFD0 itself
    const struct { const char* name; QByteArray file; bool found; } rows[] = {
        {"empty", {}, false},
        {"bad byte-order mark", QByteArray("X") + nef.mid(1), false},
        {"bad magic", nef.left(3) + char(43) + nef.mid(4), false},
        {"zero length", withIfd(TiffIfd().raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 0)), false},
        {"over 32 MiB", withIfd(TiffIfd().raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 33'554'433)), false},
        {"past the end", withIfd(TiffIfd().raw(0x201, 4, 1, 8).raw(0x202, 4, 1, 100'000)), false},
        {"offset alone", withIfd(TiffIfd().raw(0x201, 4, 1, 8)), false},
        {"length alone", TiffWriter::write({TiffIfd().data(0x111, 0x202, jpeg)}, true), false},
        {"offset as SHORT", withIfd(TiffIfd().raw(0x201, 3, 1, 40).raw(0x202, 4, 1, quint32(jpeg.size()))), false},
        {"offset count 2", withIfd(TiffIfd().raw(0x201, 4, 2, 40).raw(0x202, 4, 1, quint32(jpeg.size()))), false},
        {"valid", TiffWriter::write({TiffIfd().data(0x201, 0x202, jpeg)}, true), true},
        {"32 sub-IFDs", subIfds(31), true},
        {"33 sub-IFDs", subIfds(32), false},
        {"sub-IFD list at the very end", listAtTheEnd(), true},
        {"preview in the 32nd IFD", chain(40, 31), true},
        {"preview in the 33rd IFD", chain(40, 32), false},
        {"512 entries", wide(512), true},
        {"513 entries void everything", wide(513), false},
        {"a loop keeps what it found", TiffWriter::write({loop, TiffIfd().longs(0xFE, {1})}, true), true},
    };
    for (const auto& row : rows)
        EXPECT_EQ(locateIn(row.file).has_value(), row.found) << row.name;
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
