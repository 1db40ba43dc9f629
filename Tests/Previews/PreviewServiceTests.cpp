#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDeadlineTimer>
#include <QWaitCondition>

#include "Previews/PreviewServiceProbe.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

namespace {

using Probe = PreviewService::Probe;

// A preview service whose decoder is under the test's control: it records the files it is asked
// for, the nice value of the thread that took each and the sizes it finished, and holds back the
// files the test names until it lets them go. Files named "fail…" are unreadable.
struct Fixture {
    QMutex mutex;
    QWaitCondition changed;
    QSet<QString> heldBack;
    QStringList startedNames;
    QList<int> finished;
    QHash<QString, int> nice;
    Sandbox sandbox;
    PreviewService service{PreviewService::sharedCacheBytes, sandbox.mkdir(QStringLiteral("cache")),
                           [this](const PhotoItem& item, int dimension) { return decode(item, dimension); }};

    Result<PreviewResult> decode(const PhotoItem& item, int dimension)
    {
        QMutexLocker lock(&mutex);
        startedNames.append(item.name());
        nice.insert(item.name(), ::getpriority(PRIO_PROCESS, ::gettid()));
        changed.wakeAll();
        while (heldBack.contains(item.name()))
            changed.wait(&mutex);
        finished.append(dimension);
        if (item.name().startsWith(QLatin1String("fail")))
            return BrowserError::unreadableImage(item.name());
        PreviewResult result;
        result.image = QImage(dimension, dimension / 2, QImage::Format_RGB32);
        return result;
    }
    void release(const QStringList& names)
    {
        QMutexLocker lock(&mutex);
        for (const QString& name : names)
            heldBack.remove(name);
        changed.wakeAll();
    }
    // Whether the file's decode started before the deadline (by default, none).
    bool waitUntilStarted(const QString& name, QDeadlineTimer deadline = QDeadlineTimer(QDeadlineTimer::Forever))
    {
        QMutexLocker lock(&mutex);
        while (!startedNames.contains(name))
            if (!changed.wait(&mutex, deadline))
                return false;
        return true;
    }
    QStringList started() { const QMutexLocker lock(&mutex); return startedNames; }
    int niceOf(const QString& name) { const QMutexLocker lock(&mutex); return nice.value(name, -100); }
    QList<int> dimensions() { const QMutexLocker lock(&mutex); return finished; }

    PhotoItem photo(const QString& name)
    {
        return **PhotoItem::inspect(sandbox.exists(name) ? sandbox.file(name) : sandbox.write(name, QByteArray("pixels")));
    }
    // A request for the file (a display one unless warming), held in its decode until the test lets it go.
    QFuture<Result<PreviewResult>> held(const QString& name, bool warming = false)
    {
        QMutexLocker lock(&mutex);
        heldBack.insert(name);
        lock.unlock();
        auto future = warming ? service.prefetch(photo(name), 2560) : service.load(photo(name), 2560);
        waitUntilStarted(name);
        return future;
    }
    // Both display threads held by decodes of busy1.jpg and busy2.jpg, until the test lets them go.
    QList<QFuture<Result<PreviewResult>>> occupyDisplayThreads() { return {held(QStringLiteral("busy1.jpg")), held(QStringLiteral("busy2.jpg"))}; }
    void releaseDisplayThreads() { release({QStringLiteral("busy1.jpg"), QStringLiteral("busy2.jpg")}); }
};

} // namespace

// Results are keyed by file, its state on disk now and the clamped size.
TEST(PreviewService, ResultsAreKeyedByFileAndClampedSize)
{
    const struct { int asked, used; } rows[] = {{31, 32}, {32, 32}, {8192, 8192}, {8193, 8192}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.asked);
        Fixture f;
        const PhotoItem item = f.photo(QStringLiteral("a.jpg"));
        const auto first = f.service.load(item, row.asked).result();
        ASSERT_TRUE(first.ok());
        EXPECT_EQ(f.dimensions(), QList<int>{row.used});
        // The clamped size is a hit without decoding again; another size is another entry.
        EXPECT_EQ(f.service.load(item, row.used).result()->image.size(), first->image.size());
        EXPECT_EQ(Probe::decodeCount(f.service), 1);
        const int other = row.used == 32 ? 400 : 2560;
        ASSERT_TRUE(f.service.load(item, other).result().ok());
        EXPECT_EQ(Probe::decodeCount(f.service), 2);
        EXPECT_EQ(Probe::cache(f.service).count(), 2);
        // The caller's record is stale once the file changes; the service looks at it as it is now.
        const timespec times[2] = {{0, UTIME_OMIT}, {1'600'000'000, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, Paths::encode(item.url).constData(), times, 0), 0);
        ASSERT_TRUE(f.service.load(item, other).result().ok());
        EXPECT_EQ(Probe::decodeCount(f.service), 3);
    }
}

TEST(PreviewService, RequestsJoiningADecodeHoldNoThreadCancelAtOnceAndLiftAWarmingOne)
{
    Fixture f;
    const auto first = f.held(QStringLiteral("a.jpg"));
    // Later requests are misses too, and join the decode under way.
    const auto joined = f.service.load(f.photo(QStringLiteral("a.jpg")), 2560);
    auto waiting = f.service.load(f.photo(QStringLiteral("a.jpg")), 2560);
    waiting.cancel();
    waiting.waitForFinished();   // the decode is still held
    EXPECT_TRUE(waiting.isCanceled());
    EXPECT_FALSE(joined.isFinished());
    // The second display thread is free for another photo.
    ASSERT_TRUE(f.service.load(f.photo(QStringLiteral("b.jpg")), 2560).result().ok());

    // The user reaches a photo queued for warming behind another: it is decoded for display.
    const auto warming1 = f.held(QStringLiteral("ahead1.jpg"), true);
    const auto warming2 = f.service.prefetch(f.photo(QStringLiteral("ahead2.jpg")), 2560);
    ASSERT_TRUE(f.service.load(f.photo(QStringLiteral("ahead2.jpg")), 2560).result().ok());
    ASSERT_TRUE(warming2.result().ok());
    EXPECT_FALSE(warming1.isFinished());

    f.release({QStringLiteral("a.jpg"), QStringLiteral("ahead1.jpg")});
    ASSERT_TRUE(first.result().ok());
    ASSERT_TRUE(joined.result().ok());
    Probe::waitForIdle(f.service);
    EXPECT_EQ(Probe::decodeCount(f.service), 4);
    EXPECT_EQ(Probe::decodeLockCount(f.service), 0);
}

// With both display threads busy, a cache hit is still answered; a cancelled request ends at
// once, and never decodes when it was only queued, while a running decode still fills the cache.
TEST(PreviewService, AHitNeverWaitsAndACancelledRequestEndsAtOnce)
{
    Fixture f;
    const PhotoItem item = f.photo(QStringLiteral("a.jpg"));
    const auto first = f.service.load(item, 1000).result();
    ASSERT_TRUE(first.ok());
    auto busy = f.occupyDisplayThreads();
    const auto hit = f.service.load(item, 1000);
    ASSERT_TRUE(hit.result().ok());
    EXPECT_EQ(hit.result()->image.size(), QSize(1000, 500));
    EXPECT_EQ(Probe::cache(f.service).totalCost(), first->cost());
    auto queued = f.service.load(f.photo(QStringLiteral("queued.jpg")), 2560);
    for (auto* cancelled : {&queued, &busy[0]}) {
        cancelled->cancel();
        cancelled->waitForFinished();  // both display threads are still held: only cancellation ends it
        EXPECT_TRUE(cancelled->isCanceled());
        EXPECT_EQ(cancelled->resultCount(), 0);
    }
    f.releaseDisplayThreads();
    Probe::waitForIdle(f.service);
    EXPECT_TRUE(f.service.load(f.photo(QStringLiteral("busy1.jpg")), 2560).result().ok());
    EXPECT_EQ(f.started(), (QStringList{QStringLiteral("a.jpg"), QStringLiteral("busy1.jpg"), QStringLiteral("busy2.jpg")}));
    EXPECT_EQ(Probe::decodeLockCount(f.service), 0);
}

TEST(PreviewService, LargeRequestsOvertakeThumbnailsPrefetchTakesNoDisplaySlotAndDestroyingEndsTheRest)
{
    auto f = std::make_unique<Fixture>();
    auto busy = f->occupyDisplayThreads();
    const auto thumb1 = f->service.load(f->photo(QStringLiteral("thumb1.jpg")), 200);
    const auto thumb2 = f->service.load(f->photo(QStringLiteral("thumb2.jpg")), 800);
    const auto large = f->service.load(f->photo(QStringLiteral("large.jpg")), 801);
    // Warming runs on its own queue while both display threads are held.
    ASSERT_TRUE(f->service.prefetch(f->photo(QStringLiteral("ahead.jpg")), 2560).result().ok());
    EXPECT_FALSE(thumb1.isFinished());
    // Each request reaches its decode queue through the lookup worker: wait until all three wait.
    while (Probe::decodeLockCount(f->service) < 5)
        QThread::yieldCurrentThread();
    // One display thread alone then empties the queue: the order it decodes in is the queue's.
    f->release({QStringLiteral("busy1.jpg")});
    ASSERT_TRUE(thumb2.result().ok());
    EXPECT_EQ(f->started().mid(3), (QStringList{QStringLiteral("large.jpg"), QStringLiteral("thumb1.jpg"), QStringLiteral("thumb2.jpg")}));
    // Destroying the service ends what is still pending: a held decode and those queued behind it.
    for (int i = 0; i < 5; ++i)
        busy.append(f->service.load(f->photo(QStringLiteral("p%1.jpg").arg(i)), 900));
    f->releaseDisplayThreads();
    f.reset();
    for (auto& future : busy) {
        future.waitForFinished();
        EXPECT_TRUE(future.isCanceled() || future.result().ok());
    }
}

TEST(PreviewService, PrefetchDecodesOneFileAtATime)
{
    Fixture f;
    const auto first = f.held(QStringLiteral("ahead1.jpg"), true);
    const auto second = f.service.prefetch(f.photo(QStringLiteral("ahead2.jpg")), 2560);
    // A second warming thread would have started it at once.
    EXPECT_FALSE(f.waitUntilStarted(QStringLiteral("ahead2.jpg"), QDeadlineTimer(300)));
    f.release({QStringLiteral("ahead1.jpg")});
    EXPECT_TRUE(second.result().ok());
    // Decoding yields the CPU to the window: what may come next more than what is on screen.
    ASSERT_TRUE(f.service.load(f.photo(QStringLiteral("shown.jpg")), 2560).result().ok());
    EXPECT_GT(f.niceOf(QStringLiteral("shown.jpg")), ::getpriority(PRIO_PROCESS, ::gettid()));
    EXPECT_GT(f.niceOf(QStringLiteral("ahead2.jpg")), f.niceOf(QStringLiteral("shown.jpg")));
}

TEST(PreviewService, FailuresAreNotCached)
{
    for (const QString name : {"fail.jpg", "gone.jpg"}) {
        Fixture f;
        const PhotoItem item = f.photo(name);
        // A vanished file is unreadable without a decode.
        const bool gone = name.startsWith('g');
        if (gone)
            ::unlink(Paths::encode(item.url).constData());
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(f.service.load(item, 500).result().message(), BrowserError::unreadableImage(name).message());
        EXPECT_EQ(Probe::decodeCount(f.service), gone ? 0 : 2);
        EXPECT_EQ(Probe::cache(f.service).count(), 0);
    }
}

TEST(PreviewService, RemovesOnlyOldCacheFilesAtStartAndFollowsXdg)
{
    Sandbox sandbox;
    const QString hex64 = QStringLiteral("0123456789abcdef").repeated(4);
    const QStringList removed = {hex64, hex64.toUpper()};
    const QStringList kept = {hex64.left(63), hex64 + QStringLiteral("0"), hex64.left(63) + QStringLiteral("g")};
    for (const QString& name : removed + kept)
        sandbox.write(QStringLiteral("cache/") + name, "x");
    Probe::waitForIdle(*std::make_unique<PreviewService>(1024 * 1024, sandbox.file(QStringLiteral("cache"))));  // and gone
    for (const QString& name : removed + kept)
        EXPECT_EQ(sandbox.exists(QStringLiteral("cache/") + name), kept.contains(name)) << name.toStdString();
    // A relative XDG_CACHE_HOME is ignored, as the XDG base directory rules say.
    EnvironmentGuard environment;
    environment.set("XDG_CACHE_HOME", QByteArray("relative/cache"));
    environment.set("HOME", QByteArray("/home/ana"));
    EXPECT_EQ(PreviewService::defaultCacheDirectory(), QStringLiteral("/home/ana/.cache/com.vantelor.culling/previews-v1"));
    environment.set("XDG_CACHE_HOME", QByteArray("/tmp/xdg"));
    EXPECT_TRUE(PreviewService::defaultCacheDirectory().startsWith(QStringLiteral("/tmp/xdg/")));
}

TEST(PreviewCache, EvictsTheLeastRecentlyUsedByCountAndByCost)
{
    const auto of = [](int width, int height) {
        PreviewResult result;
        result.image = QImage(width, height, QImage::Format_RGB32);
        return result;
    };
    PreviewCache byCount(1'000'000, 3), byCost(1000, 400);  // a 10 × 10 RGB32 bitmap costs 400 bytes
    for (const QString key : {"a", "b", "c"}) {
        byCount.insert(key, of(10, 10));
        byCost.insert(key, of(10, 10));
    }
    ASSERT_TRUE(byCount.find(QStringLiteral("a")).has_value());  // "a" is now the most recent
    byCount.insert(QStringLiteral("d"), of(10, 10));
    EXPECT_FALSE(byCount.find(QStringLiteral("b")).has_value());
    EXPECT_TRUE(byCount.find(QStringLiteral("a")).has_value());
    EXPECT_FALSE(byCost.find(QStringLiteral("a")).has_value());
    // Replacing an entry replaces its cost; an entry above the whole limit is not kept.
    byCost.insert(QStringLiteral("c"), of(5, 10));
    byCost.insert(QStringLiteral("huge"), of(100, 100));
    EXPECT_EQ(byCost.totalCost(), 600);
    byCost.insert(QStringLiteral("whole"), of(25, 10));   // exactly the limit: kept alone
    EXPECT_EQ(byCost.totalCost(), 1000);
}

} // namespace vantelor::test
