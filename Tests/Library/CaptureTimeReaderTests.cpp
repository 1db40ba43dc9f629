#include <gtest/gtest.h>

#include <QtEndian>

#include "Library/CaptureTimeReader.h"
#include "Support/FileStat.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

PhotoItem photoAt(const QString& path) { return PhotoItem(path, 0, FileStat::distantPast(), FileStat::distantPast(), path); }
const QByteArray march1Text("2024:03:01 10:15:30");
const QDateTime march1 = QDateTime(QDate(2024, 3, 1), QTime(10, 15, 30), Qt::UTC);
ExifInfo dated(const QByteArray& text = march1Text)
{
    ExifInfo info;
    info.dateTimeOriginal = text;
    return info;
}
QByteArray tiffWithDate(const TiffIfd& exif) { return TiffWriter::write({TiffIfd().exif(exif)}); }

} // namespace

TEST(CaptureTimeReader, ExifTimesAreReadAsUtcWhateverTheMachinesZone)
{
    EnvironmentGuard environment;
    environment.set("TZ", QByteArray("America/Santiago"));
    Sandbox box;
    NefLayout nef;
    nef.previews = {makeJpeg(64, 48)};
    nef.exif = dated();
    const QByteArray bigEndianNef = makeNef(nef);
    nef.littleEndian = true;
    QList<PhotoItem> photos;
    for (const auto& [name, bytes] : {std::pair{"a.jpg", makeJpeg(64, 48, dated())}, {"b.NEF", bigEndianNef}, {"c.nef", makeNef(nef)},
                                      {"d.tif", tiffWithDate(exifIfd(dated(QByteArray("2024:03:01 10:15:30\0", 20))))},
                                      // Some writers store the date as UNDEFINED bytes rather than ASCII.
                                      {"e.tif", tiffWithDate(TiffIfd().bytes(0x9003, TiffIfd::typeUndefined, march1Text))}})
        photos << photoAt(box.write(QString::fromUtf8(name), bytes));
    const auto table = CaptureTimeReader().read(photos).result();
    ASSERT_EQ(table.size(), photos.size());
    for (const PhotoItem& photo : photos)
        EXPECT_EQ(table.value(photo.url).toString(Qt::ISODate), QStringLiteral("2024-03-01T10:15:30Z")) << photo.url.toStdString();
    EXPECT_TRUE(CaptureTimeReader().read({}).result().isEmpty());
}

TEST(CaptureTimeReader, TimeTextMustBeExact)
{
    const struct { const char* text; bool valid; } rows[] = {
        {"2024:03:01 10:15:30", true},   {"2024:02:29 23:59:59", true},  {"2024:03:01 10:15:30  ", true},
        {"2023:02:29 10:15:30", false},  {"2024:03:01 24:00:00", false}, {"2024-03-01 10:15:30", false},
        {"2024:03:01T10:15:30", false},  {"    :  :     :  :  ", false}, {"2024:03:01 10:15", false},
        {"2024:03:01 10:15:3x", false},  // a letter in the last place as in the first
        {"202a:03:01 10:15:30", false},  // read as digits, a letter would still make a valid year
    };
    for (const auto& row : rows)
        EXPECT_EQ(CaptureTimeReader::parseExifTime(QByteArray(row.text)).has_value(), row.valid) << row.text;
}

TEST(CaptureTimeReader, DamagedAndForeignFilesAreLeftOutWithoutStoppingTheOthers)
{
    const QByteArray good = makeNef(64, 48, march1Text);
    // An IFD whose entry count runs past the end of the file.
    QByteArray truncatedIfd = TiffWriter::write({TiffIfd().shorts(0x100, {1})});
    qToLittleEndian<quint16>(400, truncatedIfd.data() + 8);
    // A JPEG whose APP1 length cuts its EXIF block short.
    QByteArray badSegment = makeJpeg(32, 32, dated());
    badSegment[4] = char(0x00);
    badSegment[5] = char(0x18);
    const QList<QPair<QString, QByteArray>> files{
        {"empty.nef", ""}, {"text.jpg", "this is not an image"}, {"no-exif.jpg", makeJpeg(32, 32)},
        {"malformed.jpg", makeJpeg(32, 32, dated("yesterday, around ten"))},
        {"cut-in-ifd0.nef", good.left(100)}, {"good.nef", good},
        {"cut-in-exif.nef", good.left(good.indexOf(march1Text) + 8)},
        // Cut after the structure, in the image data: the capture time is still there to read.
        {"cut-in-data.nef", good.left(good.size() / 2)}, {"header-only.nef", good.left(8)},
        // IFD0's EXIF pointer aimed far outside the file, and at IFD0 itself (a loop).
        {"outside.nef", TiffWriter::write({TiffIfd().raw(0x8769, 4, 1, 0x7FFFFFF0)})},
        {"loop.nef", TiffWriter::write({TiffIfd().raw(0x8769, 4, 1, 8).shorts(0x100, {1})})},
        // A date entry whose count claims four gigabytes.
        {"huge.nef", tiffWithDate(TiffIfd().raw(0x9003, 2, 0xFFFFFFFF, 8))},
        {"truncated-ifd.tif", truncatedIfd}, {"bad-segment.jpg", badSegment},
        {"png.png", makePng(patternImage(16, 16))}, {"heic.heic", QByteArray("\0\0\0\x18" "ftypheic", 12)},
        {"date-as-numbers.tif", tiffWithDate(TiffIfd().bytes(0x9003, TiffIfd::typeByte, march1Text))},
        {"never-written.nef", QByteArray()},
    };
    Sandbox box;
    QList<PhotoItem> photos;
    for (const auto& [name, bytes] : files)
        photos << photoAt(bytes.isNull() ? box.file(name) : box.write(name, bytes));
    EXPECT_EQ(CaptureTimeReader::readNow(photos), (CaptureTimeReader::Table{{box.file("good.nef"), march1}, {box.file("cut-in-data.nef"), march1}}));
}

TEST(CaptureTimeReader, TheJpegMarkerWalkFindsTheExifSegmentWhereverItStands)
{
    const QByteArray soi("\xFF\xD8", 2);
    const QByteArray exif = jpegSegment(0xE1, exifApp1(dated()));
    const QByteArray xmp = jpegSegment(0xE1, QByteArray("http://ns.adobe.com/xap/1.0/\0<x:xmpmeta/>", 41));
    const QByteArray image = makeJpeg(16, 16).mid(2);  // APP0 to EOI
    const struct { const char* name; QByteArray bytes; bool found; } rows[] = {
        {"xmp in the first APP1", soi + xmp + exif + image, true}, {"fill bytes", soi + QByteArray(2, '\xFF') + exif.mid(1) + image, true},
        {"TEM", soi + QByteArray("\xFF\x01", 2) + exif + image, true}, {"a second SOI", soi + soi + exif + image, true},
        {"RST0", soi + QByteArray("\xFF\xD0", 2) + exif + image, true}, {"RST7", soi + QByteArray("\xFF\xD7", 2) + exif + image, true},
        {"EXIF as the 64th segment", soi + jpegSegment(0xE2, "x").repeated(63) + exif + image, true},
        {"EXIF past the 64 segments walked", soi + jpegSegment(0xE2, "x").repeated(64) + exif + image, false},
        {"xmp only", soi + xmp + image, false}, {"after the scan", soi + image.chopped(2) + exif, false},
        // Two bytes after the end that would read as a segment length leading to the EXIF.
        {"after the end of the image", soi + QByteArray("\xFF\xD9\x00\x02", 4) + exif + image, false},
    };
    Sandbox box;
    for (const auto& row : rows)
        EXPECT_EQ(CaptureTimeReader::captureTime(box.write(QStringLiteral("a.jpg"), row.bytes)), row.found ? std::optional(march1) : std::nullopt)
            << row.name;
    // An IFD of up to 512 entries is read; one more and it is taken as damaged.
    for (const int entries : {512, 513}) {
        TiffIfd ifd0;
        for (int i = 0; i < entries - 1; ++i)
            ifd0.shorts(quint16(0x1000 + i), {1});
        const QString path = box.write(QStringLiteral("a.tif"), TiffWriter::write({ifd0.exif(exifIfd(dated()))}));
        EXPECT_EQ(CaptureTimeReader::captureTime(path).has_value(), entries == 512) << entries;
    }
}

TEST(CaptureTimeReader, CancellingMidwayKeepsTheTimesReadSoFar)
{
    Sandbox box;
    QList<PhotoItem> photos;
    for (int i = 0; i < 6; ++i)
        photos << photoAt(box.write(QStringLiteral("p%1.jpg").arg(i), makeJpeg(16, 16, dated())));
    int checks = 0;
    const auto table = CaptureTimeReader::readNow(photos, [&checks] { return ++checks > 4; });
    EXPECT_EQ(table.size(), 4);
    EXPECT_TRUE(table.contains(photos[3].url));
    EXPECT_FALSE(table.contains(photos[4].url));
}
