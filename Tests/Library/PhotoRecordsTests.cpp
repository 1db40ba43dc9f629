#include <gtest/gtest.h>

#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <QSemaphore>
#include <QSet>

#include "Library/PhotoFilter.h"
#include "Library/PhotoItem.h"
#include "Support/FileDescriptor.h"
#include "Support/FileReader.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/SerialExecutor.h"

using namespace vantelor;
using vantelor::test::Sandbox;

// A signal arriving before a read has read anything, once, on the arming thread.
namespace {
thread_local bool interruptNextRead = false;
}

extern "C" ssize_t pread(int fd, void* buffer, size_t count, off_t offset)
{
    static const auto real = reinterpret_cast<ssize_t (*)(int, void*, size_t, off_t)>(dlsym(RTLD_NEXT, "pread"));
    if (std::exchange(interruptNextRead, false))
        return errno = EINTR, -1;
    return real(fd, buffer, count, offset);
}

namespace {

PhotoItem item(const QString& path, qint64 bytes = 10, qint64 modifiedMsecs = 0, const QString& id = QStringLiteral("x"))
{
    return PhotoItem(path, bytes, FileStat::distantPast(), QDateTime::fromMSecsSinceEpoch(modifiedMsecs, Qt::UTC), id);
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
    FileDescriptor kept(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    FileDescriptor given(::open("/dev/null", O_RDONLY | O_CLOEXEC));
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
        ASSERT_TRUE(inspected.ok()) << row.name;
        EXPECT_EQ(inspected->has_value(), row.photo) << row.name;
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
    PhotoItem bare;
    bare.url = QStringLiteral("/f/IMG_9.nef");
    EXPECT_TRUE(PhotoItem::ordered(bare, item("/f/IMG_10.nef")));
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
        {0, std::nullopt, "", {0, SessionLabel::none}, true},     {3, std::nullopt, "", {3, SessionLabel::none}, true},
        {4, std::nullopt, "", {3, SessionLabel::none}, false},    {0, SessionLabel::none, "", {0, SessionLabel::red}, false},
        {0, SessionLabel::red, "", {4, SessionLabel::red}, true},
        {0, std::nullopt, "josé", {0, SessionLabel::none}, true}, {0, std::nullopt, "jose", {0, SessionLabel::none}, false},
        {0, std::nullopt, "fotos", {0, SessionLabel::none}, false}, // the folder is not searched
        {0, std::nullopt, ".nef", {0, SessionLabel::none}, true},
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
