#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include <QtEndian>

#include "Library/CaptureTimeReader.h"
#include "Support/FileStat.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

PhotoItem photoAt(const QString& path)
{
    return PhotoItem(path, 0, FileStat::distantPast(), FileStat::distantPast(), path);
}

ExifInfo dated(const char* text)
{
    ExifInfo info;
    info.dateTimeOriginal = QByteArray(text);
    return info;
}

const QDateTime march1 = QDateTime(QDate(2024, 3, 1), QTime(10, 15, 30), Qt::UTC);

// Runs a block with the machine's time zone set to another place, restoring it afterwards.
struct TimeZoneOverride {
    explicit TimeZoneOverride(const char* zone)
    {
        if (const char* old = getenv("TZ"))
            m_old = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZoneOverride()
    {
        m_old.empty() ? unsetenv("TZ") : setenv("TZ", m_old.c_str(), 1);
        tzset();
    }
    std::string m_old;
};

} // namespace

TEST(CaptureTimeReader, ExifTimesAreReadAsUtcWhateverTheMachinesZone)
{
    TimeZoneOverride zone("America/Santiago");
    Sandbox box;
    NefLayout littleNef;
    littleNef.previews = {makeJpeg(64, 48)};
    littleNef.exif = dated("2024:03:01 10:15:30");
    littleNef.littleEndian = true;
    NefLayout bigNef = littleNef;
    bigNef.littleEndian = false;
    const QList<QString> files{
        box.write(QStringLiteral("a.jpg"), makeJpeg(64, 48, dated("2024:03:01 10:15:30"))),
        box.write(QStringLiteral("b.NEF"), makeNef(littleNef)),
        box.write(QStringLiteral("c.nef"), makeNef(bigNef)),
        box.write(QStringLiteral("d.tif"), TiffWriter::write({TiffIfd().exif(exifIfd(dated("2024:03:01 10:15:30\0")))})),
    };
    QList<PhotoItem> photos;
    for (const QString& f : files)
        photos << photoAt(f);
    const auto table = CaptureTimeReader().read(photos).result();
    ASSERT_EQ(table.size(), files.size());
    for (const QString& f : files) {
        EXPECT_EQ(table.value(f), march1) << f.toStdString();
        EXPECT_EQ(table.value(f).toString(Qt::ISODate), QStringLiteral("2024-03-01T10:15:30Z"));
    }
    EXPECT_TRUE(CaptureTimeReader().read({}).result().isEmpty());
}

TEST(CaptureTimeReader, TimeTextMustBeExact)
{
    const struct {
        const char* text;
        bool valid;
    } rows[] = {
        {"2024:03:01 10:15:30", true},   {"2024:02:29 23:59:59", true},  {"2024:03:01 10:15:30  ", true},
        {"2023:02:29 10:15:30", false},  {"2024:13:01 10:15:30", false}, {"2024:03:01 24:00:00", false},
        {"2024-03-01 10:15:30", false},  {"2024:03:01T10:15:30", false}, {"    :  :     :  :  ", false},
        {"0000:00:00 00:00:00", false},  {"2024:03:01 10:15", false},    {"", false},
        {"2024:03:01 10:15:3x", false},  {"20240301 101530", false},     {"2024:03:01 10:60:00", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(CaptureTimeReader::parseExifTime(QByteArray(row.text)).has_value(), row.valid) << row.text;
}

TEST(CaptureTimeReader, DamagedAndForeignFilesAreLeftOutWithoutStoppingTheOthers)
{
    Sandbox box;
    const QByteArray good = makeNef(64, 48, QByteArray("2024:03:01 10:15:30"));

    // IFD0's EXIF pointer aimed far outside the file, and at IFD0 itself (a loop).
    const QByteArray outside = TiffWriter::write({TiffIfd().raw(0x8769, 4, 1, 0x7FFFFFF0)});
    const QByteArray loop = TiffWriter::write({TiffIfd().raw(0x8769, 4, 1, 8).shorts(0x100, {1})});
    // A date entry whose count claims four gigabytes.
    const QByteArray hugeCount = TiffWriter::write({TiffIfd().exif(TiffIfd().raw(0x9003, 2, 0xFFFFFFFF, 8))});
    // An IFD whose entry count runs past the end of the file.
    QByteArray truncatedIfd = TiffWriter::write({TiffIfd().shorts(0x100, {1})});
    qToLittleEndian<quint16>(400, truncatedIfd.data() + 8);
    // A JPEG whose APP1 length cuts its EXIF block short.
    QByteArray badSegment = makeJpeg(32, 32, dated("2024:03:01 10:15:30"));
    badSegment[4] = char(0x00);
    badSegment[5] = char(0x18);

    const QList<QPair<QString, QByteArray>> bad{
        {"empty.nef", {}},
        {"text.jpg", "this is not an image"},
        {"no-exif.jpg", makeJpeg(32, 32)},
        {"malformed.jpg", makeJpeg(32, 32, dated("yesterday, around ten"))},
        {"cut-in-ifd0.nef", good.left(100)},
        {"cut-in-exif.nef", good.left(good.indexOf("2024:03:01") + 8)},
        {"header-only.nef", good.left(8)},
        {"outside.nef", outside},
        {"loop.nef", loop},
        {"huge.nef", hugeCount},
        {"truncated-ifd.tif", truncatedIfd},
        {"bad-segment.jpg", badSegment},
        {"png.png", makePng(patternImage(16, 16))},
        {"heic.heic", QByteArray("\0\0\0\x18" "ftypheic", 12)},
    };
    QList<PhotoItem> photos;
    for (const auto& [name, bytes] : bad)
        photos << photoAt(box.write(name, bytes));
    photos.insert(5, photoAt(box.write(QStringLiteral("good.nef"), good)));
    // Cut after the structure, in the image data: the capture time is still there to read.
    photos.insert(7, photoAt(box.write(QStringLiteral("cut-in-data.nef"), good.left(good.size() / 2))));
    photos << photoAt(box.file(QStringLiteral("never-written.nef")));

    const auto table = CaptureTimeReader::readNow(photos);
    ASSERT_EQ(table.size(), 2) << table.keys().join(QLatin1Char(' ')).toStdString();
    EXPECT_EQ(table.value(box.file(QStringLiteral("good.nef"))), march1);
    EXPECT_EQ(table.value(box.file(QStringLiteral("cut-in-data.nef"))), march1);
}

TEST(CaptureTimeReader, CancellingMidwayKeepsTheTimesReadSoFar)
{
    Sandbox box;
    QList<PhotoItem> photos;
    for (int i = 0; i < 6; ++i)
        photos << photoAt(box.write(QStringLiteral("p%1.jpg").arg(i), makeJpeg(16, 16, dated("2024:03:01 10:15:30"))));
    int checks = 0;
    const auto table = CaptureTimeReader::readNow(photos, [&checks] { return ++checks > 4; });
    EXPECT_EQ(table.size(), 4);
    EXPECT_TRUE(table.contains(photos[3].url));
    EXPECT_FALSE(table.contains(photos[4].url));
}
