#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>

#include "FakePreviewLoader.h"
#include "ThumbnailCache.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

PhotoItem photo(const QString& name)
{
    const QDateTime when(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC);
    return PhotoItem(QStringLiteral("/fotos/") + name, 1000, when, when, name);
}

// Paints a frame in which exactly these photos are on screen.
void frame(ThumbnailCache& cache, const QList<PhotoItem>& onScreen)
{
    cache.beginFrame();
    QPixmap pixmap;
    for (const PhotoItem& item : onScreen)
        (void)cache.thumbnail(item, &pixmap);
    cache.endFrame();
}

} // namespace

TEST(ThumbnailCache, LoadsOnlyWhatIsOnScreenAndDropsWhatScrolledAway)
{
    FakePreviewLoader loader;
    ThumbnailCache cache(loader, 320, 16);
    const PhotoItem a = photo(QStringLiteral("a.NEF")), b = photo(QStringLiteral("b.NEF")), c = photo(QStringLiteral("c.NEF"));

    frame(cache, {a, b});
    ASSERT_EQ(loader.requests().size(), 2);
    EXPECT_EQ(loader.requests()[0].dimension, 320);

    // Scrolled on: a left the screen, c came in. a's load is cancelled, b's is not asked twice.
    frame(cache, {b, c});
    ASSERT_EQ(loader.requests().size(), 3);
    EXPECT_TRUE(loader.requests()[0].future.isCanceled());
    EXPECT_FALSE(loader.requests()[1].future.isCanceled());
    EXPECT_EQ(cache.pendingCount(), 2);

    // A repaint of a single cell (not a whole frame) cancels nothing.
    QPixmap pixmap;
    EXPECT_EQ(cache.thumbnail(c, &pixmap), ThumbnailCache::State::loading);
    EXPECT_FALSE(loader.requests()[1].future.isCanceled());
}

TEST(ThumbnailCache, ReadyFailedAndLateAnswers)
{
    FakePreviewLoader loader;
    ThumbnailCache cache(loader, 320, 16);
    QSignalSpy ready(&cache, &ThumbnailCache::ready);
    const PhotoItem good = photo(QStringLiteral("good.NEF")), broken = photo(QStringLiteral("broken.NEF")), gone = photo(QStringLiteral("gone.NEF"));
    frame(cache, {good, broken, gone});
    ASSERT_EQ(loader.requests().size(), 3);

    QImage image(320, 213, QImage::Format_RGB32);
    image.fill(Qt::darkGreen);
    FakePreviewLoader::answer(loader.requests()[0], image);
    FakePreviewLoader::fail(loader.requests()[1]);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ready.count() == 2; }));

    struct Row {
        const PhotoItem& item;
        ThumbnailCache::State state;
    };
    const Row rows[] = {
        {good, ThumbnailCache::State::ready},
        // A file that cannot be read shows the placeholder and is not asked for again.
        {broken, ThumbnailCache::State::failed},
    };
    for (const Row& row : rows) {
        QPixmap pixmap;
        EXPECT_EQ(cache.thumbnail(row.item, &pixmap), row.state) << row.item.url.toStdString();
        EXPECT_EQ(pixmap.isNull(), row.state != ThumbnailCache::State::ready);
    }
    EXPECT_EQ(loader.requests().size(), 3);

    // Another folder: pending loads are cancelled and their late answers change nothing.
    cache.clear();
    EXPECT_TRUE(loader.requests()[2].future.isCanceled());
    FakePreviewLoader::answer(loader.requests()[2], image);
    QTest::qWait(20);
    EXPECT_EQ(ready.count(), 2);
    QPixmap pixmap;
    EXPECT_EQ(cache.thumbnail(good, &pixmap), ThumbnailCache::State::loading);
}
