#include <gtest/gtest.h>

#include "Previews/NikonPreview.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"
#include "Support/TiffWriter.h"

namespace vantelor::test {

namespace {

// A JPEG of exactly `length` bytes (a real JPEG, padded after its end marker).
QByteArray jpegOfLength(qsizetype length, int seed)
{
    const QByteArray jpeg = makeJpeg(patternImage(32 + seed, 24));
    return jpeg + QByteArray(std::max<qsizetype>(0, length - jpeg.size()), char(seed));
}

TiffIfd previewIfd(const QByteArray& jpeg) { return TiffIfd().longs(0xFE, {1}).data(0x201, 0x202, jpeg); }

std::optional<QByteArray> locateIn(const QByteArray& file, const QString& name = QStringLiteral("DSC_0001.NEF"))
{
    Sandbox sandbox;
    return NikonPreview::jpeg(sandbox.write(name, file));
}

} // namespace

// The longest preview wins wherever it stands and whatever the byte order; a file that breaks
// the rules, or whose walk would go beyond its bounds, gives none.
TEST(NikonPreview, TakesTheLongestValidPreviewAndBoundsEveryWalk)
{
    const QByteArray jpeg = makeJpeg(64, 48), nef = makeNef(64, 48);
    const QByteArray small = jpegOfLength(1000, 1), large = jpegOfLength(2'000'000, 2);
    const QByteArray equal1 = jpegOfLength(5000, 1), equal2 = jpegOfLength(5000, 2);
    QByteArray notJpeg = jpegOfLength(9000, 3);
    notJpeg[0] = 'N';
    const auto withPreviews = [](const QList<QByteArray>& previews, bool littleEndian) {
        NefLayout layout;
        layout.previews = previews;
        layout.littleEndian = littleEndian;
        return makeNef(layout);
    };
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
    for (const auto& row : rows)
        EXPECT_EQ(locateIn(row.file), row.found) << row.name;
    for (const char* name : {"a.NEF", "a.nef", "a.Nef", "a.tif", "a.nrw", "nef"})
        EXPECT_EQ(locateIn(nef, QString::fromLatin1(name)).has_value(), QByteArray(name).toLower().endsWith(".nef")) << name;
    EXPECT_FALSE(NikonPreview::jpeg(QStringLiteral("/nonexistent/a.nef")).has_value());
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
    auto file = FileReader::open(sandbox.write(QStringLiteral("DSC_0002.NEF"), makeNef(layout)));
    ASSERT_TRUE(file.has_value());
    const auto found = NikonPreview::locate(*file);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->length, 4'000'000);
    EXPECT_EQ(found->bytes, layout.previews[1]);
    EXPECT_LE(file->bytesRead() - found->length, 64 * 1024);
}

} // namespace vantelor::test
