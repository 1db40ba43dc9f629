#include <gtest/gtest.h>

#include "LibraryTestSupport.h"
#include "Model/NavigatorModel.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

namespace vantelor::test {
namespace {

TEST(LibraryLoading, AScanAnswerThatArrivesAfterTheUserMovedOnChangesNothing)
{
    struct Row { const char* name; std::function<void(LibraryModel&)> action; QString folder; int photos; bool scanning; };
    const QList<Row> rows = {
        {"another folder opened", [](LibraryModel& m) { m.open(QStringLiteral("/shoot/b")); }, "/shoot/b", 0, true},
        {"scan stopped", [](LibraryModel& m) { m.cancelScan(); }, "/shoot/a", 1, false},
        {"folder reloaded", [](LibraryModel& m) { m.reload(); }, "/shoot/a", 1, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Harness h(true);
        h.model->open(QStringLiteral("/shoot/a"));
        h.scans.deliver(h.scans.requests.at(0), {QStringLiteral("1.jpg")}, false);
        settle();
        EXPECT_TRUE(h.model->visiblePhotos().isEmpty()) << "not filtered before the scan ends";

        // The old scan's next answer is already on its way when the user acts.
        h.scans.deliver(h.scans.requests.at(1), {QStringLiteral("1.jpg"), QStringLiteral("2.jpg")}, true);
        row.action(*h.model);
        settle();

        EXPECT_EQ(h.model->folder(), row.folder);
        EXPECT_EQ(h.model->photos().size(), row.photos);
        EXPECT_EQ(h.model->isScanning(), row.scanning);
        EXPECT_EQ(h.model->status(), QStringLiteral("Lectura detenida • 1 fotos encontradas"));
        EXPECT_EQ(h.model->preparationTotal(), 0) << "the old folder's preparation never started";
    }
}

TEST(LibraryLoading, AFolderThatCannotBeReadEndsInItsMessageWithNothingBusy)
{
    Sandbox sandbox;
    const QString missing = sandbox.file(QStringLiteral("gone"));
    struct Row { const char* name; std::function<void(Harness&)> run; int photos; };
    const QList<Row> rows = {
        {"missing from the start", [&](Harness& h) { h.model->open(missing); }, 0},
        {"vanishing mid-scan", [&](Harness& h) {
             h.model->open(missing);
             h.scans.deliver(h.scans.requests.at(0), {QStringLiteral("1.jpg")}, false);
             settle();
             h.scans.failWith(h.scans.requests.at(1), BrowserError::folderUnavailable(missing));
         }, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Harness h(row.photos > 0);
        row.run(h);
        ASSERT_TRUE(eventually([&] { return h.model->folderError().has_value(); }));
        EXPECT_EQ(h.model->folderError(), QStringLiteral("Carpeta no disponible o ilegible: ") + missing);
        EXPECT_FALSE(h.model->isScanning() || h.model->isPreparing() || h.model->metadataLoading());
        EXPECT_EQ(h.model->photos().size(), row.photos);
        if (row.photos == 0) {
            EXPECT_TRUE(h.model->status().isEmpty() && h.model->preparationStatus().isEmpty());
            EXPECT_TRUE(h.model->navigator().recentFolders().isEmpty()) << "a folder that failed is not recent";
        }
    }
}

TEST(LibraryLoading, PreparationReadsDatesAndSidecarsAndKeepsEachSidecarFailure)
{
    Sandbox sandbox;
    sandbox.write(QStringLiteral("a.NEF"), makeNef(32, 24, "2024:03:01 10:00:00"));
    sandbox.write(QStringLiteral("a.xmp"), XmpFixtures::lightroom(3, QStringLiteral("Red")));
    sandbox.write(QStringLiteral("b.nef"), makeNef(32, 24));
    sandbox.write(QStringLiteral("B.XMP"), XmpFixtures::captureOne(-1, QStringLiteral("Violeta")));
    sandbox.write(QStringLiteral("c.NEF"), makeNef(32, 24));
    sandbox.write(QStringLiteral("c.xmp"), "<?xml version=\"1.0\"?><!DOCTYPE x [<!ENTITY e \"e\">]><x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>");
    sandbox.write(QStringLiteral("e.jpg"), makeJpeg(16, 12, ExifInfo{.dateTimeOriginal = "2024:03:01 09:00:00"}));

    Harness h;
    h.openAndPrepare(sandbox.path());
    const auto url = [&](const char* name) { return sandbox.file(QString::fromLatin1(name)); };

    EXPECT_EQ(h.model->preparationTotal(), 4);
    EXPECT_EQ(QSet<QString>(h.model->captureDates().keyBegin(), h.model->captureDates().keyEnd()), (QSet<QString>{url("a.NEF"), url("e.jpg")}));
    EXPECT_EQ(h.model->mark(url("a.NEF")), (SessionMark{3, SessionLabel::red}));
    EXPECT_EQ(h.model->mark(url("b.nef")), (SessionMark{0, SessionLabel::none})) << "-1 shows no stars; unknown colours none";
    EXPECT_EQ(h.model->metadataErrors().value(url("c.NEF")), QStringLiteral("El XMP debe ser XML UTF-8 sin DTD ni entidades"));
    EXPECT_EQ(h.model->metadataErrors().size(), 1);
    EXPECT_TRUE(h.model->snapshots().contains(url("b.nef")));
    EXPECT_FALSE(h.model->snapshots().contains(url("c.NEF")));
    QStringList shown;
    for (const PhotoItem& photo : h.model->visiblePhotos())
        shown.append(photo.name());
    EXPECT_EQ(shown, (QStringList{"e.jpg", "a.NEF", "b.nef", "c.NEF"}));
    EXPECT_EQ(h.model->selectedID(), url("e.jpg"));
    EXPECT_EQ(h.model->navigator().recentFolders(), QStringList{sandbox.path()});
}

TEST(LibraryLoading, StoppedPreparationAppliesNothingMoreAndAReopenPreparesInSteps)
{
    Sandbox a;
    Sandbox b;
    const int count = 2 * LibraryModel::preparationBatchSize + 50;
    for (int i = 0; i < count; ++i)
        a.write(QStringLiteral("DSC_%1.NEF").arg(i, 4, 10, QLatin1Char('0')), makeNef(32, 24, "2024:03:01 10:00:00"));
    b.write(QStringLiteral("x.jpg"), makeJpeg(16, 12, ExifInfo{.dateTimeOriginal = "2024:03:02 10:00:00"}));
    const auto datesIn = [](const LibraryModel& m, const QString& folder) {
        return std::count_if(m.captureDates().keyBegin(), m.captureDates().keyEnd(), [&](const QString& url) { return Paths::parent(url) == folder; });
    };

    Harness h;
    qsizetype datesAtStop = -1;
    QObject::connect(h.model.get(), &LibraryModel::preparationChanged, [&] {
        if (datesAtStop < 0 && h.model->isPreparing() && h.model->preparationDone() > 0) {
            h.model->stopPreparation();
            datesAtStop = datesIn(*h.model, a.path());
        }
    });
    h.model->open(a.path());
    ASSERT_TRUE(eventually([&] { return h.model->preparationCancelled(); }));
    EXPECT_EQ(h.model->preparationStatus(), QStringLiteral("Preparación detenida"));
    EXPECT_FALSE(h.model->isScanning() || h.model->isPreparing() || h.model->metadataLoading());
    h.model->select(h.model->photos().at(3).url);
    h.model->setRating(4);
    h.model->move(1);
    EXPECT_TRUE(h.model->marks().isEmpty() || h.model->mark(h.model->photos().at(3).url).rating == 0) << "no edits while stopped";
    EXPECT_EQ(h.model->selectedID(), h.model->photos().at(3).url) << "no stepping while stopped";

    // Work for the stopped folder queued ahead of the next folder's: once that is prepared,
    // everything the stopped one had asked for has come back.
    QObject::disconnect(h.model.get(), &LibraryModel::preparationChanged, nullptr, nullptr);
    h.openAndPrepare(b.path());
    EXPECT_EQ(datesIn(*h.model, a.path()), datesAtStop);

    QList<int> done;
    QObject::connect(h.model.get(), &LibraryModel::preparationChanged, [&] { done.append(h.model->preparationDone()); });
    h.openAndPrepare(a.path());
    EXPECT_EQ(datesIn(*h.model, a.path()), count);
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
    EXPECT_TRUE(done.contains(0)) << "the count starts again, not from the last folder's";
    EXPECT_TRUE(done.contains(LibraryModel::preparationBatchSize)) << "progress shows between steps";
    EXPECT_EQ(h.model->preparationDone(), count);
    EXPECT_EQ(h.model->status(), QStringLiteral("%1 fotos • RAW sin modificar").arg(count));
}

TEST(LibraryTabs, ACompleteTabComesBackAtOnceAnIncompleteOneIsReadAgainAndAClosedOneGivesWayToItsNeighbour)
{
    Harness h(true);
    h.model->open(QStringLiteral("/shoot/a"));
    h.scans.deliver(h.scans.requests.last(), {QStringLiteral("1.jpg"), QStringLiteral("2.jpg")}, true);
    ASSERT_TRUE(eventually([&] { return !h.model->isPreparing(); }));
    h.model->select(QStringLiteral("/shoot/a/2.jpg"));
    h.previews.answer(h.previews.lastLoad());
    ASSERT_TRUE(eventually([&] { return h.model->displayedID() == QStringLiteral("/shoot/a/2.jpg"); }));

    h.model->open(QStringLiteral("/shoot/b"));
    EXPECT_FALSE(h.model->displayedID().has_value()) << "nothing of the folder left stays on show";
    h.scans.deliver(h.scans.requests.last(), {QStringLiteral("3.jpg")}, false);
    settle();
    h.model->setSearch(QStringLiteral("3"));

    const int clears = h.previews.clears;
    h.model->open(QStringLiteral("/shoot/a"));
    EXPECT_EQ(h.scans.created.size(), 2) << "no scan for a complete tab";
    EXPECT_EQ(h.model->selectedID(), QStringLiteral("/shoot/a/2.jpg"));
    EXPECT_EQ(h.model->search(), QString());
    EXPECT_EQ(h.previews.lastLoad().item.name(), QStringLiteral("2.jpg"));
    EXPECT_EQ(h.previews.clears, clears + 1);

    h.model->open(QStringLiteral("/shoot/b"));
    EXPECT_EQ(h.scans.created.size(), 3) << "a tab left mid-scan is read again";
    EXPECT_EQ(h.model->search(), QStringLiteral("3"));

    // Closing a tab opens its neighbour, or empties the window after the last one.
    for (const char* folder : {"/shoot/c", "/shoot/d", "/shoot/b"}) {
        h.model->open(QString::fromLatin1(folder));
        if (h.scans.requests.last().promise->future().isRunning())
            h.scans.deliver(h.scans.requests.last(), {QStringLiteral("p.jpg")}, true);
        ASSERT_TRUE(eventually([&] { return !h.model->isPreparing(); }));
    }
    struct Row { const char* name; QString close; std::optional<QString> folder; QStringList tabs; };
    const QList<Row> rows = {
        {"the current one: the next opens", "/shoot/b", "/shoot/c", {"/shoot/a", "/shoot/c", "/shoot/d"}},
        {"another one: the current stays", "/shoot/d", "/shoot/c", {"/shoot/a", "/shoot/c"}},
        {"the current and last: the one before opens", "/shoot/c", "/shoot/a", {"/shoot/a"}},
        {"the only one", "/shoot/a", std::nullopt, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const int clearsBefore = h.previews.clears;
        h.model->closeTab(row.close);
        EXPECT_EQ(h.model->folder(), row.folder);
        EXPECT_EQ(h.model->tabs(), row.tabs);
        ASSERT_TRUE(eventually([&] { return !h.model->isPreparing(); }));
        if (!row.folder) {
            EXPECT_TRUE(h.model->photos().isEmpty() && h.model->visiblePhotos().isEmpty());
            EXPECT_FALSE(h.model->selectedID().has_value());
            EXPECT_GT(h.previews.clears, clearsBefore);
        }
    }
}

} // namespace
} // namespace vantelor::test
