#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>

#include "LibraryTestSupport.h"
#include "ThumbnailCache.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

// Paints a frame in which exactly these photos are on screen.
void frame(ThumbnailCache& cache, const QList<PhotoItem>& onScreen)
{
    cache.beginFrame();
    QPixmap pixmap;
    for (const PhotoItem& item : onScreen)
        (void)cache.thumbnail(item, &pixmap);
    cache.endFrame();
}

// The cell's state, and whether it has a picture to paint.
std::pair<ThumbnailCache::State, bool> stateOf(ThumbnailCache& cache, const PhotoItem& item)
{
    QPixmap pixmap;
    const ThumbnailCache::State state = cache.thumbnail(item, &pixmap);
    return {state, !pixmap.isNull()};
}

} // namespace

// Only cells on screen load; a cell scrolled away is cancelled, a repaint of one cell cancels
// nothing; a failure is final; another folder cancels what is pending and ignores late answers.
TEST(ThumbnailCache, LoadsWhatIsOnScreenOnceAndDropsTheRest)
{
    FakePreviews loader;
    ThumbnailCache cache(loader, 320, 16);
    QSignalSpy ready(&cache, &ThumbnailCache::ready);
    const PhotoItem a = photoAt(QStringLiteral("/f/a.NEF")), b = photoAt(QStringLiteral("/f/b.NEF")),
                    c = photoAt(QStringLiteral("/f/c.NEF")), d = photoAt(QStringLiteral("/f/d.NEF"));
    const auto cancelled = [&](int i) { return loader.calls[i].promise->isCanceled(); };

    frame(cache, {a, b});
    ASSERT_EQ(loader.calls.size(), 2);
    frame(cache, {b, c, d});
    ASSERT_EQ(loader.calls.size(), 4) << "b is not asked twice";
    EXPECT_TRUE(cancelled(0));
    EXPECT_FALSE(cancelled(1));
    EXPECT_EQ(cache.pendingCount(), 3);
    EXPECT_EQ(stateOf(cache, c).first, ThumbnailCache::State::loading);
    EXPECT_FALSE(cancelled(1));

    loader.answer(loader.calls[1], 320);
    loader.fail(loader.calls[2]);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ready.count() == 2; }));
    EXPECT_EQ(stateOf(cache, b), std::pair(ThumbnailCache::State::ready, true));
    EXPECT_EQ(stateOf(cache, c), std::pair(ThumbnailCache::State::failed, false));
    EXPECT_EQ(loader.calls.size(), 4) << "a failed file is not asked for again";

    cache.clear();
    EXPECT_TRUE(cancelled(3));
    loader.answer(loader.calls[3], 320);
    QTest::qWait(20);
    EXPECT_EQ(ready.count(), 2);
    EXPECT_EQ(stateOf(cache, b).first, ThumbnailCache::State::loading);

    // Larger than its cell: reduced once, on the pool, to fit; a reduction overtaken by a clear
    // says nothing.
    cache.setDisplaySize(QSize(100, 100));
    frame(cache, {d});
    loader.answer(loader.calls.last(), 320);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ready.count() == 3; }));
    QPixmap pixmap;
    ASSERT_EQ(cache.thumbnail(d, &pixmap), ThumbnailCache::State::ready);
    EXPECT_EQ(std::max(pixmap.width(), pixmap.height()), 100);
    frame(cache, {a});
    loader.answer(loader.calls.last(), 320);
    cache.clear();
    QTest::qWait(50);
    EXPECT_EQ(ready.count(), 3);
}
