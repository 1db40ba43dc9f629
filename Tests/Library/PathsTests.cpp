#include <gtest/gtest.h>

#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <QSemaphore>

#include "Support/FileDescriptor.h"
#include "Support/FileReader.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/SerialExecutor.h"

using namespace vantelor;

// A signal arriving before a read has read anything, once, on the arming thread.
namespace {
thread_local bool interruptNextRead = false;
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

TEST(Paths, EveryByteSequenceSurvivesTheRoundTrip)
{
    const QByteArray rows[] = {
        "/tmp/plain.nef",
        "/tmp/acentuada-\xc3\xa9.nef",
        "/tmp/latin1-\xe9.nef",                 // ISO-8859-1 é: not UTF-8
        "/tmp/\xff\xfe\x80.nef",
        "/tmp/menos-\xe2\x88\x92.nef",          // U+2212, three bytes
        "/tmp/truncated-\xe2\x82.nef",          // a cut three-byte sequence
        "/tmp/overlong-\xc0\xaf.nef",
        "/tmp/surrogate-\xed\xa0\x80.nef",      // UTF-8 of U+D800 is not valid
        "/tmp/surrogate-\xed\xbf\xbf.nef",      // nor that of U+DFFF, the last surrogate
        "/tmp/emoji-\xf0\x9f\x93\xb7.nef",
        "/tmp/emoji-then-bad-\xf0\x9f\x93\xb7\xdc.nef",
    };
    for (const QByteArray& bytes : rows) {
        const QString path = Paths::decode(bytes);
        EXPECT_EQ(Paths::encode(path), bytes) << bytes.toHex().constData();
        EXPECT_EQ(Paths::hasEscapedBytes(path), !QUtf8StringView(bytes).isValidUtf8()) << bytes.toHex().constData();
    }
}

TEST(Paths, TextFormsOfNamesThatAreNotUtf8)
{
    const QString path = Paths::decode("/f/a\xe9 b.nef");
    EXPECT_EQ(Paths::jsonText(path), QStringLiteral("/f/a%E9 b.nef"));
    EXPECT_EQ(Paths::jsonText(QStringLiteral("/f/a%E9 b.nef")), QStringLiteral("/f/a%25E9 b.nef"));
    EXPECT_EQ(Paths::jsonText(Paths::decode("/f/100%\xe9")), QStringLiteral("/f/100%25%E9"));
    EXPECT_EQ(Paths::displayText(path), QStringLiteral("/f/a\uFFFD b.nef"));
    // Beside a stray byte, a valid character is still the character.
    EXPECT_EQ(Paths::displayText(Paths::decode("/f/\xc3\xa9\xff")), QStringLiteral("/f/é\uFFFD"));
    EXPECT_EQ(Paths::fileUrl(path), QStringLiteral("file:///f/a%E9%20b.nef"));
    EXPECT_EQ(Paths::fromFileUrl(Paths::fileUrl(path)), path);
    EXPECT_EQ(Paths::fileUrl(QStringLiteral("/f/é.nef")), QStringLiteral("file:///f/%C3%A9.nef"));
}

TEST(Paths, NameParts)
{
    EXPECT_EQ(Paths::fileName(QStringLiteral("/a/DSC_1.NEF")), QStringLiteral("DSC_1.NEF"));
    EXPECT_EQ(Paths::fileName(QStringLiteral("/DSC_1.NEF")), QStringLiteral("DSC_1.NEF"));
    EXPECT_EQ(Paths::suffix(QStringLiteral("/DSC_1.NEF")), QStringLiteral("NEF"));
    EXPECT_EQ(Paths::baseName(QStringLiteral("/a/DSC_1.x.NEF")), QStringLiteral("DSC_1.x"));
    EXPECT_EQ(Paths::suffix(QStringLiteral("/a/.hidden")), QString());
    EXPECT_EQ(Paths::parent(QStringLiteral("/a/b")), QStringLiteral("/a"));
    EXPECT_EQ(Paths::parent(QStringLiteral("/a")), QStringLiteral("/"));
    EXPECT_EQ(Paths::clean(QStringLiteral("/a//b/../c/")), QStringLiteral("/a/c"));
}

TEST(FileReader, AnInterruptedReadIsRetriedAndAFileCutAfterOpeningReadsShortNeverStale)
{
    vantelor::test::Sandbox box;
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
    const int old = kept.get();
    const int moved = given.get();
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
