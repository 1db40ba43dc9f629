#include <gtest/gtest.h>

#include <cerrno>
#include <dirent.h>
#include <dlfcn.h>

#include "Library/DirectoryEnumerator.h"
#include "Library/FolderIndexerProbe.h"
#include "Support/Sandbox.h"

// No file system fails a listing half-way on demand, so this program's own readdir stands in
// front of the C library's: after a set number of entries on the arming thread it fails with EIO.
namespace {
thread_local int entriesBeforeFailure = -1;
}

extern "C" dirent* readdir(DIR* dir)
{
    static const auto real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (entriesBeforeFailure == 0) {
        entriesBeforeFailure = -1;
        errno = EIO;
        return nullptr;
    }
    if (entriesBeforeFailure > 0)
        --entriesBeforeFailure;
    return real(dir);
}

namespace vantelor::test {

TEST(DirectoryEnumerator, AReadErrorPartWayIsReportedAndEndsTheListing)
{
    Sandbox box;
    for (int i = 0; i < 10; ++i)
        box.write(QStringLiteral("DSC_%1.NEF").arg(i), "n");
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
}

TEST(FolderIndexer, AReadErrorPartWayIsCountedAsSkipped)
{
    Sandbox box;
    for (int i = 0; i < 10; ++i)
        box.write(QStringLiteral("DSC_%1.NEF").arg(i), "n");
    FolderIndexer indexer(box.path(), 4);
    const auto first = FolderIndexer::Probe::nextBatchNow(indexer, {});
    ASSERT_TRUE(first.ok());
    EXPECT_EQ(first->skippedCount, 0);
    entriesBeforeFailure = 1;
    const auto second = FolderIndexer::Probe::nextBatchNow(indexer, {});
    ASSERT_TRUE(second.ok());
    EXPECT_TRUE(second->finished);
    EXPECT_EQ(second->skippedCount, 1);
    EXPECT_LT(second->photos.size(), 10);
}

} // namespace vantelor::test
