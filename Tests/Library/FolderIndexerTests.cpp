#include <gtest/gtest.h>

#include <cerrno>
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <QDir>
#include <QSet>

#include "Library/DirectoryEnumerator.h"
#include "Library/FolderIndexerProbe.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using vantelor::test::Sandbox;

// No file system fails a listing half-way on demand, so this program's own readdir stands in
// front of the C library's: after a set number of entries on the arming thread it fails with EIO.
namespace {
thread_local int entriesBeforeFailure = -1;
}

extern "C" dirent* readdir(DIR* dir)
{
    static const auto real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (entriesBeforeFailure >= 0 && entriesBeforeFailure-- == 0)
        return errno = EIO, nullptr;
    return real(dir);
}

namespace {

// Every batch until the end; checks on the way that each snapshot is sorted.
ScanSnapshot scanAll(FolderIndexer& indexer, QList<int>* counts = nullptr)
{
    for (int calls = 0; calls < 100000; ++calls) {
        const auto snapshot = indexer.nextBatch().result();
        if (!snapshot.ok() || !std::is_sorted(snapshot->photos.begin(), snapshot->photos.end(), PhotoItem::ordered))
            return ADD_FAILURE() << snapshot.message().toStdString(), ScanSnapshot{};
        if (counts)
            counts->append(int(snapshot->photos.size()));
        if (snapshot->finished)
            return *snapshot;
    }
    return ADD_FAILURE() << "the scan never finished", ScanSnapshot{};
}

QString writePhotos(const Sandbox& box, int count, const char* pattern = "DSC_%1.NEF")
{
    // Written in reverse so that the folder's own order is not already the sorted one.
    for (int i = count; i >= 1; --i)
        box.write(QString::fromUtf8(pattern).arg(i), "n");
    return box.path();
}

} // namespace

TEST(FolderIndexer, BatchesGrowTheWholeSortedListUntilTheEnd)
{
    const struct { int photos; int others; int batchSize; QList<int> firstCounts; } rows[] = {
        {0, 0, 256, {0}},
        {600, 0, 256, {256, 512, 600}},
        {2, 0, 0, {1, 2, 2}},             // a batch size below 2 is taken as 1
        {5, 300, 10, {0, 0, 0}},          // every entry uses a turn, so a batch may hold no photo
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.photos);
        Sandbox box;
        writePhotos(box, row.others, "notes-%1.txt");
        FolderIndexer indexer(writePhotos(box, row.photos), row.batchSize);
        QList<int> counts;
        const ScanSnapshot last = scanAll(indexer, &counts);
        EXPECT_EQ(counts.mid(0, row.firstCounts.size()), row.firstCounts);
        ASSERT_EQ(last.photos.size(), row.photos);
        EXPECT_EQ(last.skippedCount, 0);
        if (row.photos > 0) {
            EXPECT_EQ(last.photos.first().name(), QStringLiteral("DSC_1.NEF"));
            EXPECT_EQ(last.photos.last().name(), QStringLiteral("DSC_%1.NEF").arg(row.photos));
        }
        // After the end, a call examines nothing and repeats the list.
        const auto again = indexer.nextBatch().result();
        EXPECT_TRUE(again.ok() && again->finished && again->photos == last.photos);
    }
}

TEST(FolderIndexer, SubfoldersHiddenFilesAndLinksNeverAppearAndNamesThatAreNotUtf8Do)
{
    Sandbox box;
    const QString odd = Paths::decode("caf\xe9-\xff.NEF");
    box.write(odd, "raw bytes");
    const QString cafe = box.write(QStringLiteral("café.NEF"), "other");
    box.write(QStringLiteral(".hidden.nef"), "n");
    box.write(QStringLiteral("sub/inner.nef"), "n");
    box.mkdir(QStringLiteral("folder.jpg"));
    box.symlink(cafe, QStringLiteral("link.nef"));
    box.symlink(box.file(QStringLiteral("nowhere.nef")), QStringLiteral("dangling.nef"));
    FolderIndexer indexer(box.path(), 1); // one entry per call: every path through the loop
    const ScanSnapshot last = scanAll(indexer);
    EXPECT_EQ(last.skippedCount, 0);
    QSet<QString> urls;
    for (const PhotoItem& photo : last.photos)
        urls.insert(photo.url);
    EXPECT_EQ(urls, (QSet<QString>{box.file(odd), cafe}));
    EXPECT_EQ(last.photos.size(), 2);
    EXPECT_EQ(Paths::encode(box.file(odd)), Paths::encode(box.path()) + "/caf\xe9-\xff.NEF");
    EXPECT_EQ(vantelor::test::readFile(box.file(odd)), QByteArray("raw bytes"));
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
    ASSERT_TRUE(resumed.ok());
    EXPECT_LE(resumed->photos.size(), 5);
}

TEST(FolderIndexer, EntriesThatVanishAfterListingAreCountedAsSkipped)
{
    Sandbox box;
    writePhotos(box, 5);
    box.write(QStringLiteral("readme.txt"), "t");
    FolderIndexer indexer(box.path(), 1);
    ASSERT_TRUE(indexer.nextBatch().result().ok()); // the listing is open and buffered now
    // The folder itself goes too.
    ASSERT_TRUE(QDir(box.path()).removeRecursively());
    const ScanSnapshot last = scanAll(indexer);
    EXPECT_EQ(last.photos.size() + last.skippedCount, 5);
    EXPECT_GE(last.skippedCount, 4);
}

TEST(FolderIndexer, AReadErrorPartWayEndsTheListingAndIsCountedAsSkipped)
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
    EXPECT_TRUE(second->finished);
    EXPECT_EQ(second->skippedCount, 1);
    EXPECT_LT(second->photos.size(), 10);
}

TEST(FolderIndexer, MergeKeepsListedItemsFirstOnEqualKeys)
{
    const auto photo = [](const char* path, const char* id) { return PhotoItem(QString::fromUtf8(path), 1, QDateTime(), QDateTime(), QString::fromUtf8(id)); };
    const QList<PhotoItem> existing{photo("/f/a.nef", "old"), photo("/f/c.nef", "1"), photo("/f/e.nef", "2")};
    const QList<PhotoItem> batch{photo("/f/a.nef", "new"), photo("/f/b.nef", "3"), photo("/f/f.nef", "4")};
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
