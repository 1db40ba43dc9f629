#include <gtest/gtest.h>

#include <cerrno>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QSemaphore>
#include <QSet>
#include <QtEndian>

#include "Library/CaptureTimeReader.h"
#include "Library/DirectoryEnumerator.h"
#include "Library/FolderIndexerProbe.h"
#include "Library/PhotoFilter.h"
#include "Support/FileDescriptor.h"
#include "Support/FileReader.h"
#include "Support/FileStat.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/SerialExecutor.h"

using namespace vantelor;
using namespace vantelor::test;

// No file system fails a read or a listing on demand, so this program's own pread and readdir
// stand in front of the C library's, armed per thread: pread fails once with EINTR (a signal
// before anything was read), readdir with EIO after a set number of entries.
namespace {
thread_local bool interruptNextRead = false;
thread_local int entriesBeforeFailure = -1;
}

extern "C" ssize_t pread(int fd, void* buffer, size_t count, off_t offset)
{
    static const auto real = reinterpret_cast<ssize_t (*)(int, void*, size_t, off_t)>(dlsym(RTLD_NEXT, "pread"));
    if (std::exchange(interruptNextRead, false)) {
        errno = EINTR;
        return -1;
    }
    return real(fd, buffer, count, offset);
}

extern "C" dirent* readdir(DIR* dir)
{
    static const auto real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (entriesBeforeFailure >= 0 && entriesBeforeFailure-- == 0) {
        errno = EIO;
        return nullptr;
    }
    return real(dir);
}

namespace {

PhotoItem item(const QString& path, qint64 bytes = 10, qint64 msecs = 0, const QString& id = QStringLiteral("x"))
{
    return PhotoItem(path, bytes, FileStat::distantPast(), QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC), id);
}

const QByteArray march1Text("2024:03:01 10:15:30");
const QDateTime march1 = QDateTime(QDate(2024, 3, 1), QTime(10, 15, 30), Qt::UTC);
ExifInfo dated(const QByteArray& text = march1Text) { return {.dateTimeOriginal = text}; }
QByteArray tiffWithDate(const TiffIfd& exif) { return TiffWriter::write({TiffIfd().exif(exif)}); }

// Every batch until the end; checks on the way that each snapshot is sorted.
ScanSnapshot scanAll(FolderIndexer& indexer, QList<int>* counts = nullptr)
{
    for (int calls = 0; calls < 100000; ++calls) {
        const auto snapshot = indexer.nextBatch().result();
        if (!snapshot.ok() || !std::is_sorted(snapshot->photos.begin(), snapshot->photos.end(), PhotoItem::ordered)) {
            ADD_FAILURE() << snapshot.message().toStdString();
            return {};
        }
        if (counts)
            counts->append(int(snapshot->photos.size()));
        if (snapshot->finished)
            return *snapshot;
    }
    ADD_FAILURE() << "the scan never finished";
    return {};
}

QStringList urlsOf(const QList<PhotoItem>& photos)
{
    QStringList urls;
    for (const PhotoItem& photo : photos)
        urls << photo.url;
    return urls;
}

QString writePhotos(const Sandbox& box, int count, const char* pattern = "DSC_%1.NEF")
{
    // Written in reverse so that the folder's own order is not already the sorted one.
    for (int i = count; i >= 1; --i)
        box.write(QString::fromUtf8(pattern).arg(i), "n");
    return box.path();
}

} // namespace

TEST(Paths, EveryByteSequenceSurvivesTheRoundTrip)
{
    // Latin-1 é, stray bytes, a cut three-byte sequence, an overlong form and both ends of the
    // surrogates are not UTF-8; the others are.
    for (const QByteArray bytes : {"/tmp/plain.nef", "/tmp/acentuada-\xc3\xa9.nef", "/tmp/latin1-\xe9.nef", "/tmp/\xff\xfe\x80.nef",
                                   "/tmp/menos-\xe2\x88\x92.nef", "/tmp/truncated-\xe2\x82.nef", "/tmp/overlong-\xc0\xaf.nef",
                                   "/tmp/surrogate-\xed\xa0\x80.nef", "/tmp/surrogate-\xed\xbf\xbf.nef", "/tmp/emoji-\xf0\x9f\x93\xb7.nef",
                                   "/tmp/emoji-then-bad-\xf0\x9f\x93\xb7\xdc.nef"}) {
        const QString path = Paths::decode(bytes);
        EXPECT_EQ(Paths::encode(path), bytes) << bytes.toHex().constData();
        EXPECT_EQ(Paths::hasEscapedBytes(path), !QUtf8StringView(bytes).isValidUtf8()) << bytes.toHex().constData();
    }
}

TEST(Paths, TextFormsAndNameParts)
{
    const QString path = Paths::decode("/f/a\xe9 b.nef");
    const std::pair<QString, const char*> rows[] = {
        {Paths::jsonText(path), "/f/a%E9 b.nef"}, {Paths::jsonText(QStringLiteral("/f/a%E9 b.nef")), "/f/a%25E9 b.nef"},
        {Paths::jsonText(Paths::decode("/f/100%\xe9")), "/f/100%25%E9"}, {Paths::displayText(path), "/f/a\uFFFD b.nef"},
        // Beside a stray byte, a valid character is still the character.
        {Paths::displayText(Paths::decode("/f/\xc3\xa9\xff")), "/f/é\uFFFD"},
        {Paths::fileUrl(path), "file:///f/a%E9%20b.nef"}, {Paths::fileUrl(QStringLiteral("/f/é.nef")), "file:///f/%C3%A9.nef"},
        {Paths::fileName(QStringLiteral("/a/DSC_1.NEF")), "DSC_1.NEF"}, {Paths::fileName(QStringLiteral("/DSC_1.NEF")), "DSC_1.NEF"},
        {Paths::suffix(QStringLiteral("/DSC_1.NEF")), "NEF"}, {Paths::suffix(QStringLiteral("/a/.hidden")), ""},
        {Paths::baseName(QStringLiteral("/a/DSC_1.x.NEF")), "DSC_1.x"}, {Paths::clean(QStringLiteral("/a//b/../c/")), "/a/c"},
        {Paths::parent(QStringLiteral("/a/b")), "/a"}, {Paths::parent(QStringLiteral("/a")), "/"},
    };
    for (const auto& [actual, expected] : rows)
        EXPECT_EQ(actual, QString::fromUtf8(expected));
    EXPECT_EQ(Paths::fromFileUrl(Paths::fileUrl(path)), path);
}

TEST(FileReader, AnInterruptedReadIsRetriedAndAFileCutAfterOpeningReadsShortNeverStale)
{
    Sandbox box;
    const QString path = box.write(QStringLiteral("f"), QByteArray(100, 'x'));
    auto file = FileReader::open(path);
    ASSERT_TRUE(file);
    interruptNextRead = true;
    EXPECT_EQ(file->read(0, 100), QByteArray(100, 'x'));
    EXPECT_FALSE(interruptNextRead);
    ASSERT_EQ(::truncate(Paths::encode(path).constData(), 10), 0);
    EXPECT_EQ(file->read(0, 100), QByteArray(10, 'x'));
    EXPECT_EQ(file->read(50, 10), QByteArray());
    EXPECT_EQ(file->bytesRead(), 110);
}

TEST(FileDescriptor, MoveAssignmentClosesTheOldDescriptorAndTakesTheOther)
{
    FileDescriptor kept(::open("/dev/null", O_RDONLY | O_CLOEXEC)), given(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int old = kept.get(), moved = given.get();
    kept = std::move(given);
    EXPECT_EQ(kept.get(), moved);
    EXPECT_FALSE(given.isOpen());
    EXPECT_EQ(::fcntl(old, F_GETFD), -1);
}

TEST(SerialExecutor, RunsOneOperationAtATime)
{
    SerialExecutor executor(QStringLiteral("test"));
    QSemaphore secondStarted;
    // The first operation waits a while for the second; on one worker it never sees it start.
    const auto first = executor.run([&secondStarted](const CancelCheck&) { return secondStarted.tryAcquire(1, 300); });
    auto second = executor.run([&secondStarted](const CancelCheck&) { secondStarted.release(); });
    EXPECT_FALSE(first.result());
    second.waitForFinished();
}

TEST(PhotoItem, OnlyRegularFilesWithAPhotoExtensionArePhotos)
{
    Sandbox box;
    box.mkdir(QStringLiteral("b.jpg"));
    box.symlink(box.write(QStringLiteral("DSC_0001.NEF"), QByteArray(1234, 'x')), QStringLiteral("c.nef"));
    const struct { const char* name; bool photo; } rows[] = {
        {"DSC_0001.NEF", true}, {"a.JpEg", true}, {"b.heif", true}, {"a.raf", false}, {"a.xmp", false},
        {".nef", false}, {"a.nef.bak", false}, {"b.jpg", false}, {"c.nef", false},
    };
    for (const auto& row : rows) {
        const QString name = QString::fromUtf8(row.name);
        const auto inspected = PhotoItem::inspect(box.exists(name) ? box.file(name) : box.write(name, "data"));
        EXPECT_TRUE(inspected.ok() && inspected->has_value() == row.photo) << row.name;
    }
    const PhotoItem photo = **PhotoItem::inspect(box.file(QStringLiteral("DSC_0001.NEF")));
    EXPECT_EQ(photo.byteSize, 1234);
    EXPECT_EQ(photo.modified.timeSpec(), Qt::UTC);
    EXPECT_TRUE(std::holds_alternative<SystemError>(PhotoItem::inspect(box.file(QStringLiteral("gone.nef"))).failure()));
}

TEST(PhotoItem, NamesSortAsAFileBrowserDoesWithAPathTieBreak)
{
    // Each list in order. Equal names in different folders (merged lists) order by path; names that
    // differ only in case, or in leading zeros, compare the same and the path decides; accents are
    // letters of their own place, not bytes above "z".
    const QStringList rows[] = {{"/f/img_1.nef", "/f/IMG_2.nef", "/f/IMG_10.nef"}, {"/b/a.nef", "/z/a.nef"}, {"/f/IMG_1.nef", "/f/img_1.nef"},
                                {"/f/IMG_02.nef", "/f/IMG_2.nef"}, {"/f/e.jpg", "/f/é.jpg", "/f/f.jpg"}};
    for (const QStringList& sorted : rows) {
        for (qsizetype i = 0; i + 1 < sorted.size(); ++i) {
            EXPECT_TRUE(PhotoItem::ordered(item(sorted[i]), item(sorted[i + 1]))) << qPrintable(sorted[i]);
            EXPECT_FALSE(PhotoItem::ordered(item(sorted[i + 1]), item(sorted[i]))) << qPrintable(sorted[i]);
        }
    }
    // A record never comes before itself.
    EXPECT_FALSE(PhotoItem::ordered(item("/f/a.nef"), item("/f/a.nef")));
    // Records built field by field (no collation key kept) must agree with scanned ones.
    PhotoItem bare, bare10;
    bare.url = QStringLiteral("/f/IMG_9.nef");
    bare10.url = QStringLiteral("/f/IMG_10.nef");
    EXPECT_TRUE(PhotoItem::ordered(bare, item("/f/IMG_10.nef")) && PhotoItem::ordered(bare, bare10));
    EXPECT_FALSE(PhotoItem::ordered(item("/f/IMG_10.nef"), bare));
}

TEST(PhotoItem, CacheKeyFollowsEveryIdentityFieldAndNeverRunsFieldsTogether)
{
    const PhotoItem photo = item("/a/b.nef", 10, 5000, "x");
    const QStringList keys = {
        photo.cacheKey(512), photo.cacheKey(2560), item("/a/b.nef", 10, 5001, "x").cacheKey(512),
        item("/a/b.nef", 11, 5000, "x").cacheKey(512), item("/a/b.nef", 10, 5000, "y").cacheKey(512),
        // The same characters split differently between path and identity.
        item("/a/b.ne", 10, 5000, "fx").cacheKey(512),
        item("/a/é.nef", 10, 5000, "x").cacheKey(512), item("/a/e\u0301.nef", 10, 5000, "x").cacheKey(512),
    };
    EXPECT_EQ(QSet<QString>(keys.begin(), keys.end()).size(), keys.size()) << keys.join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(photo.cacheKey(512), item("/a/b.nef", 10, 5000, "x").cacheKey(512));
    EXPECT_NE(qHash(photo), qHash(item("/a/b.nef", 10, 5000, "y")));
}

TEST(PhotoFilter, RatingThenLabelThenNameSearch)
{
    const PhotoItem photo = item("/Fotos/JOSÉ_two  blanks.NEF");
    const struct { int minimum; std::optional<SessionLabel> label; const char* query; SessionMark mark; bool included; } rows[] = {
        {0, std::nullopt, "", {}, true}, {3, std::nullopt, "", {3}, true}, {4, std::nullopt, "", {3}, false},
        {0, SessionLabel::none, "", {0, SessionLabel::red}, false}, {0, SessionLabel::red, "", {4, SessionLabel::red}, true},
        // Accents count, the folder is not searched, the extension is.
        {0, std::nullopt, "josé", {}, true}, {0, std::nullopt, "jose", {}, false}, {0, std::nullopt, "fotos", {}, false}, {0, std::nullopt, ".nef", {}, true},
    };
    for (const auto& row : rows)
        EXPECT_EQ((PhotoFilter{row.minimum, row.label, QString::fromUtf8(row.query)}.includes(photo, row.mark)), row.included)
            << row.minimum << " " << row.query << " " << row.mark.rating;
    // Blanks are searched as they are, not trimmed away.
    EXPECT_FALSE((PhotoFilter{0, std::nullopt, QStringLiteral("  ")}.includes(item("/f/one blank.nef"), SessionMark{})));
}

TEST(SessionLabel, RawValuesRoundTripAndNothingElseIsALabel)
{
    // A raw value shared by two labels would bring back the first of them for both.
    for (SessionLabel label : SessionLabels::allCases)
        EXPECT_EQ(SessionLabels::fromRawValue(SessionLabels::rawValue(label)), label);
    for (const char* bad : {"Red", "", "orange", " red"})
        EXPECT_FALSE(SessionLabels::fromRawValue(QString::fromUtf8(bad)).has_value()) << bad;
}

TEST(CaptureTimeReader, TimeTextMustBeExact)
{
    const struct { const char* text; bool valid; } rows[] = {
        {"2024:03:01 10:15:30", true},   {"2024:02:29 23:59:59", true},  {"2024:03:01 10:15:30  ", true}, {"2024:03:01 00:00:00", true},
        {"2023:02:29 10:15:30", false},  {"2024:03:01 24:00:00", false}, {"2024-03-01 10:15:30", false},
        {"2024:03:01T10:15:30", false},  {"    :  :     :  :  ", false}, {"2024:03:01 10:15", false},
        // A letter in the last place as in the first: read as digits, a letter would still make a valid year.
        {"2024:03:01 10:15:3x", false},  {"202a:03:01 10:15:30", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(CaptureTimeReader::parseExifTime(QByteArray(row.text)).has_value(), row.valid) << row.text;
}

TEST(CaptureTimeReader, TimesAreReadAsUtcAndDamagedOrForeignFilesAreLeftOutWithoutStoppingTheOthers)
{
    EnvironmentGuard environment;
    environment.set("TZ", QByteArray("America/Santiago"));
    const QByteArray good = makeNef(64, 48, march1Text);
    const NefLayout littleEndian{.previews = {makeJpeg(64, 48)}, .exif = dated(), .littleEndian = true};
    // An IFD whose entry count runs past the end of the file.
    QByteArray truncatedIfd = TiffWriter::write({TiffIfd().shorts(0x100, {1})});
    qToLittleEndian<quint16>(400, truncatedIfd.data() + 8);
    // A JPEG whose APP1 length cuts its EXIF block short.
    const QByteArray badSegment = makeJpeg(32, 32, dated()).replace(4, 2, QByteArray("\x00\x18", 2));
    const QList<QPair<QString, QByteArray>> files{
        {"a.jpg", makeJpeg(64, 48, dated())}, {"good.nef", good}, {"c.nef", makeNef(littleEndian)},
        {"d.tif", tiffWithDate(exifIfd(dated(QByteArray("2024:03:01 10:15:30\0", 20))))},
        // Some writers store the date as UNDEFINED bytes rather than ASCII.
        {"e.tif", tiffWithDate(TiffIfd().bytes(0x9003, TiffIfd::typeUndefined, march1Text))},
        {"empty.nef", ""}, {"text.jpg", "this is not an image"}, {"no-exif.jpg", makeJpeg(32, 32)},
        {"malformed.jpg", makeJpeg(32, 32, dated("yesterday, around ten"))},
        {"cut-in-ifd0.nef", good.left(100)}, {"cut-in-exif.nef", good.left(good.indexOf(march1Text) + 8)},
        // Cut after the structure, in the image data: the capture time is still there to read.
        {"cut-in-data.nef", good.left(good.size() / 2)}, {"header-only.nef", good.left(8)},
        // IFD0's EXIF pointer aimed far outside the file, and at IFD0 itself (a loop).
        {"outside.nef", TiffWriter::write({TiffIfd().raw(0x8769, 4, 1, 0x7FFFFFF0)})},
        {"loop.nef", TiffWriter::write({TiffIfd().raw(0x8769, 4, 1, 8).shorts(0x100, {1})})},
        // A date entry whose count claims four gigabytes.
        {"huge.nef", tiffWithDate(TiffIfd().raw(0x9003, 2, 0xFFFFFFFF, 8))},
        {"truncated-ifd.tif", truncatedIfd}, {"bad-segment.jpg", badSegment},
        {"png.png", makePng(patternImage(16, 16))}, {"heic.heic", QByteArray("\0\0\0\x18" "ftypheic", 12)},
        {"date-as-numbers.tif", tiffWithDate(TiffIfd().bytes(0x9003, TiffIfd::typeByte, march1Text))}, {"never-written.nef", QByteArray()},
    };
    Sandbox box;
    QList<PhotoItem> photos;
    for (const auto& [name, bytes] : files)
        photos << item(bytes.isNull() ? box.file(name) : box.write(name, bytes));
    const auto table = CaptureTimeReader().read(photos).result();
    QStringList found;
    for (auto it = table.begin(); it != table.end(); ++it)
        found << Paths::fileName(it.key()) + QLatin1Char(' ') + it.value().toString(Qt::ISODate);
    found.sort();
    const QString utc = QStringLiteral(" 2024-03-01T10:15:30Z");
    EXPECT_EQ(found, (QStringList{"a.jpg" + utc, "c.nef" + utc, "cut-in-data.nef" + utc, "d.tif" + utc, "e.tif" + utc, "good.nef" + utc}));
    EXPECT_TRUE(CaptureTimeReader().read({}).result().isEmpty());
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
        photos << item(box.write(QStringLiteral("p%1.jpg").arg(i), makeJpeg(16, 16, dated())));
    int checks = 0;
    const auto table = CaptureTimeReader::readNow(photos, [&checks] { return ++checks > 4; });
    QStringList read(table.keyBegin(), table.keyEnd());
    read.sort();
    EXPECT_EQ(read, urlsOf(photos.mid(0, 4)));
}

TEST(FolderIndexer, BatchesGrowTheWholeSortedListUntilTheEnd)
{
    // A batch size below 2 is taken as 1; every entry uses a turn, so a batch may hold no photo.
    const struct { int photos; int others; int batchSize; QList<int> firstCounts; } rows[] = {
        {0, 0, 256, {0}}, {600, 0, 256, {256, 512, 600}}, {2, 0, 0, {1, 2, 2}}, {3, 0, 2, {2, 3}}, {5, 300, 10, {0, 0, 0}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.photos);
        Sandbox box;
        writePhotos(box, row.others, "notes-%1.txt");
        FolderIndexer indexer(writePhotos(box, row.photos), row.batchSize);
        QList<int> counts;
        const ScanSnapshot last = scanAll(indexer, &counts);
        EXPECT_EQ(counts.mid(0, row.firstCounts.size()), row.firstCounts);
        EXPECT_EQ(last.skippedCount, 0);
        QStringList expected;
        for (int i = 1; i <= row.photos; ++i)
            expected << box.file(QStringLiteral("DSC_%1.NEF").arg(i));
        EXPECT_EQ(urlsOf(last.photos), expected);
        // After the end, a call examines nothing and repeats the list.
        const auto again = indexer.nextBatch().result();
        EXPECT_TRUE(again.ok() && again->finished && again->photos == last.photos);
    }
}

TEST(FolderIndexer, SubfoldersHiddenFilesAndLinksNeverAppearAndNamesThatAreNotUtf8Do)
{
    Sandbox box;
    const QString odd = box.write(Paths::decode("caf\xe9-\xff.NEF"), "n");
    const QString cafe = box.write(QStringLiteral("café.NEF"), "n");
    for (const char* name : {".hidden.nef", "sub/inner.nef"})
        box.write(QString::fromUtf8(name), "n");
    box.mkdir(QStringLiteral("folder.jpg"));
    box.symlink(cafe, QStringLiteral("link.nef"));
    box.symlink(box.file(QStringLiteral("nowhere.nef")), QStringLiteral("dangling.nef"));
    FolderIndexer indexer(box.path(), 1); // one entry per call: every path through the loop
    const ScanSnapshot last = scanAll(indexer);
    EXPECT_EQ(last.skippedCount, 0);
    EXPECT_EQ(urlsOf(last.photos), (QStringList{cafe, odd}));
}

TEST(FolderIndexer, UnavailableFoldersGiveTheFolderMessageAndCancelledCallsFail)
{
    Sandbox box;
    for (const QString& folder : {box.write(QStringLiteral("photo.nef"), "n"), box.file(QStringLiteral("missing"))}) {
        FolderIndexer indexer(folder, 256);
        EXPECT_EQ(indexer.nextBatch().result().message(), QStringLiteral("Carpeta no disponible o ilegible: ") + folder);
        // A failed first call leaves the indexer unstarted: it tries again, and fails again.
        EXPECT_FALSE(indexer.nextBatch().result().ok());
    }
    FolderIndexer indexer(writePhotos(box, 10), 256);
    ASSERT_TRUE(scanAll(indexer).finished);
    indexer.cancel().waitForFinished();
    EXPECT_TRUE(isCancelled(indexer.nextBatch().result().failure()));
    // A call whose task is cancelled mid-batch keeps nothing of that batch.
    FolderIndexer partial(box.path(), 5);
    int turns = 0;
    EXPECT_TRUE(isCancelled(FolderIndexer::Probe::nextBatchNow(partial, [&turns] { return ++turns > 3; }).failure()));
    const auto resumed = FolderIndexer::Probe::nextBatchNow(partial, {});
    EXPECT_TRUE(resumed.ok() && resumed->photos.size() <= 5);
}

TEST(FolderIndexer, AReadErrorPartWayEndsTheListingAndItAndVanishedEntriesAreCountedAsSkipped)
{
    Sandbox box;
    writePhotos(box, 10);
    for (const int failAfter : {0, 5, -1}) {
        QList<int> errors;
        auto enumerator = DirectoryEnumerator::open(box.path(), [&errors](int error) { errors.append(error); });
        ASSERT_TRUE(enumerator);
        entriesBeforeFailure = failAfter;
        int listed = 0;
        while (enumerator->next())
            ++listed;
        EXPECT_EQ(errors, failAfter < 0 ? QList<int>{} : QList<int>{EIO}) << failAfter;
        EXPECT_EQ(listed == 10, failAfter < 0) << failAfter;
        EXPECT_FALSE(enumerator->next());
    }
    FolderIndexer indexer(box.path(), 4);
    const auto first = FolderIndexer::Probe::nextBatchNow(indexer, {});
    EXPECT_TRUE(first.ok() && first->skippedCount == 0);
    entriesBeforeFailure = 1;
    const auto second = FolderIndexer::Probe::nextBatchNow(indexer, {});
    ASSERT_TRUE(second.ok());
    EXPECT_EQ(second->skippedCount, 1);
    EXPECT_TRUE(second->finished && second->photos.size() < 10);

    // Entries that vanish after the listing, the folder itself included, are skipped too.
    box.write(QStringLiteral("readme.txt"), "t");
    FolderIndexer vanishing(box.path(), 1);
    ASSERT_TRUE(vanishing.nextBatch().result().ok()); // the listing is open and buffered now
    ASSERT_TRUE(QDir(box.path()).removeRecursively());
    const ScanSnapshot last = scanAll(vanishing);
    EXPECT_EQ(last.photos.size() + last.skippedCount, 10);
    EXPECT_GE(last.skippedCount, 9);
}

TEST(FolderIndexer, MergeKeepsListedItemsFirstOnEqualKeys)
{
    const QList<PhotoItem> existing{item("/f/a.nef", 1, 0, "old"), item("/f/c.nef", 1, 0, "1"), item("/f/e.nef", 1, 0, "2")};
    const QList<PhotoItem> batch{item("/f/a.nef", 1, 0, "new"), item("/f/b.nef", 1, 0, "3"), item("/f/f.nef", 1, 0, "4")};
    // The caller's copy of the list stays intact when it is shared.
    const QList<PhotoItem> shared = existing;
    QStringList ids;
    for (const auto& p : FolderIndexer::merge(shared, batch))
        ids << p.resourceID;
    EXPECT_EQ(ids, (QStringList{"old", "new", "3", "1", "2", "4"}));
    EXPECT_EQ(shared, existing);
    EXPECT_EQ(FolderIndexer::merge({}, batch), batch);
    EXPECT_EQ(FolderIndexer::merge(existing, {}), existing);
}
