#include <gtest/gtest.h>

#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTreeWidget>

#include "HeaderBar.h"
#include "HeaderResizeHandle.h"
#include "LibraryTestSupport.h"
#include "QFileDialogChooser.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "ThumbnailCache.h"
#include "TransferSheet.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

void drag(QWidget& handle, const QList<int>& moves)
{
    const QPoint start(20, 3);
    QTest::mousePress(&handle, Qt::LeftButton, {}, start);
    for (int dy : moves)
        QTest::mouseMove(&handle, start + QPoint(0, dy));
    QTest::mouseRelease(&handle, Qt::LeftButton, {}, start);
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

// The cell's state, and whether it has a picture to paint.
std::pair<ThumbnailCache::State, bool> stateOf(ThumbnailCache& cache, const PhotoItem& item)
{
    QPixmap pixmap;
    const ThumbnailCache::State state = cache.thumbnail(item, &pixmap);
    return {state, !pixmap.isNull()};
}

} // namespace

// Qt's dialog lists names through QFile::decodeName, so a folder whose name is not UTF-8 comes
// back with U+FFFD in place of its bytes: the chooser must find the real folder again. Qt's own
// dialog says fileSelected alone on accept; a later close says nothing more.
TEST(QFileDialogChooser, AnswersOnceWithTheChosenFolderBytesAndWithoutBlocking)
{
    Sandbox sandbox;
    QWidget window;
    QFileDialogChooser chooser(&window);
    // The folder's bytes under the sandbox; none: the dialog is closed without a choice.
    const std::optional<QByteArray> rows[] = {
        QByteArray("Fotos de Dénia"),
        QByteArray("Verano-\xf1/D\xed" "a-1"),  // Latin-1 parent and child
        std::nullopt,
    };
    for (const std::optional<QByteArray>& relative : rows) {
        SCOPED_TRACE(relative.value_or("closed").toStdString());
        const std::optional<QString> folder = relative ? std::optional(sandbox.mkdir(Paths::decode(*relative))) : std::nullopt;
        QList<std::optional<QString>> answers;
        chooser.chooseFolder({QStringLiteral("Abrir carpeta"), QString(), false}, [&](std::optional<QString> chosen) { answers.append(chosen); });
        QFileDialog* dialog = chooser.dialog();
        ASSERT_NE(dialog, nullptr);
        EXPECT_FALSE(dialog->isModal());
        if (folder) {
            // What QFileDialog hands out for that folder.
            const QUrl shown = QUrl::fromLocalFile(QFile::decodeName(Paths::encode(*folder)));
            dialog->selectUrl(shown);
            emit dialog->fileSelected(shown.toLocalFile());
        }
        dialog->reject();
        // Paths::decode keeps every byte apart, so equal strings are equal bytes.
        EXPECT_EQ(answers, QList<std::optional<QString>>{folder});
    }
    EXPECT_TRUE(QFileDialogChooser::pathFromUrl(QUrl(QStringLiteral("https://example.org/x"))).isEmpty());
}

// The header's height follows the drag from where it started, stays within 60…150, is kept in
// the preferences, and a double click brings back 68.
TEST(HeaderBar, ResizeHandleClampsStoresAndResets)
{
    QSettings().remove(HeaderBar::preferencesKey);
    Harness harness;
    LibraryModel& library = *harness.model;
    QWidget window;
    HeaderResizeHandle handle(&window);
    HeaderBar header(library, handle, &window);
    EXPECT_EQ(header.headerHeight(), 68);

    struct Row { const char* what; QList<int> moves; double expected; };
    const Row rows[] = {
        // Each drag starts from the height the previous one left.
        {"down by 30", {10, 30}, 98},
        {"back up within the drag", {400, 40}, 138},
        {"far up stops at 60", {-500}, 60},
    };
    for (const Row& row : rows) {
        drag(handle, row.moves);
        EXPECT_EQ(header.headerHeight(), row.expected) << row.what;
        EXPECT_EQ(header.height(), qRound(row.expected)) << row.what;
        EXPECT_EQ(QSettings().value(HeaderBar::preferencesKey).toDouble(), row.expected) << row.what;
    }

    QTest::mouseDClick(&handle, Qt::LeftButton);
    EXPECT_EQ(header.headerHeight(), 68);
    QSettings().remove(HeaderBar::preferencesKey);
}

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

// Each photo heads the files that share its base name (any case), with their sizes; the total
// counts every file.
TEST(TransferSheet, GroupsAssociatedFilesUnderTheirPhoto)
{
    const auto item = [](const QString& name, qint64 bytes) {
        return TransferItem{QStringLiteral("/fotos/") + name, QStringLiteral("/destino/") + name, QString(64, QLatin1Char('0')), bytes};
    };
    TransferPlan plan;
    plan.items = {
        item(QStringLiteral("DSC_0001.NEF"), 25'000'000),
        item(QStringLiteral("DSC_0001.xmp"), 4'000),
        item(QStringLiteral("DSC_0001.JPG"), 3'000'000),
        item(QStringLiteral("dsc_0002.nef"), 24'000'000),
        item(QStringLiteral("DSC_0002.XMP"), 5'000),
        item(Paths::decode(QByteArray("Playa-\xe9t\xe9.JPG")), 2'000'000),
    };
    QWidget window;
    TransferSheet sheet(plan, &window);

    QTreeWidget* list = sheet.list();
    ASSERT_EQ(list->topLevelItemCount(), 3);
    // Each head, and how many files its group holds.
    const std::pair<QString, int> groups[] = {{"DSC_0001.NEF", 3}, {"dsc_0002.nef", 2}, {"Playa-\uFFFDt\uFFFD.JPG", 1}};
    for (int i = 0; i < 3; ++i) {
        QTreeWidgetItem* top = list->topLevelItem(i);
        EXPECT_TRUE(top->text(0).startsWith(groups[i].first)) << top->text(0).toStdString();
        EXPECT_EQ(top->childCount(), groups[i].second) << top->text(0).toStdString();
        EXPECT_FALSE(top->text(1).isEmpty());
    }
    EXPECT_TRUE(sheet.totalText().startsWith(QStringLiteral("3 fotos · 6 archivos"))) << sheet.totalText().toStdString();
}
