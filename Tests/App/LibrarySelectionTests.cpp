#include <gtest/gtest.h>

#include <QSignalSpy>

#include "LibraryTestSupport.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"

namespace vantelor::test {
namespace {

// p2 and p4 share a capture time; p3 and p5 have none.
struct DatedFolder {
    DatedFolder()
    {
        sandbox.write(QStringLiteral("p1.jpg"), jpegWithDate("2024:03:01 10:00:00"));
        sandbox.write(QStringLiteral("p2.jpg"), jpegWithDate("2024:03:01 09:00:00"));
        sandbox.write(QStringLiteral("p3.jpg"), jpegWithDate());
        sandbox.write(QStringLiteral("p4.jpg"), jpegWithDate("2024:03:01 09:00:00"));
        sandbox.write(QStringLiteral("p5.png"), makePng(patternImage(8, 8)));
        h.openAndPrepare(sandbox.path());
    }
    QString url(const QString& name) const { return sandbox.file(name); }

    Sandbox sandbox;
    Harness h;
};

TEST(LibraryOrder, PhotosWithoutACaptureTimeStayLastInBothDirections)
{
    struct Row {
        PhotoOrder order;
        bool descending;
        QStringList expected;
    };
    const QList<Row> rows = {
        {PhotoOrder::captured, false, {"p2.jpg", "p4.jpg", "p1.jpg", "p3.jpg", "p5.png"}},
        {PhotoOrder::captured, true, {"p1.jpg", "p4.jpg", "p2.jpg", "p5.png", "p3.jpg"}},
        {PhotoOrder::name, false, {"p1.jpg", "p2.jpg", "p3.jpg", "p4.jpg", "p5.png"}},
        {PhotoOrder::name, true, {"p5.png", "p4.jpg", "p3.jpg", "p2.jpg", "p1.jpg"}},
    };
    DatedFolder f;
    QSignalSpy visible(f.h.model.get(), &LibraryModel::visiblePhotosChanged);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.expected.join(' ').toStdString());
        f.h.model->setPhotoOrder(row.order);
        f.h.model->setDescending(row.descending);
        EXPECT_EQ(names(f.h.model->visiblePhotos()), row.expected);
        for (int i = 0; i < row.expected.size(); ++i)
            EXPECT_EQ(f.h.model->visiblePosition(f.url(row.expected[i])), i);
    }
    EXPECT_EQ(visible.count(), 4) << "one signal per change of the list, none when it stays the same";
}

TEST(LibraryFilter, EveryFilterKeepsEachMatchingPhotoExactlyOnce)
{
    struct Row {
        const char* name;
        std::function<void(LibraryModel&)> set;
        QStringList expected;
    };
    const QDateTime nine = QDateTime(QDate(2024, 3, 1), QTime(9, 0), Qt::UTC);
    const QList<Row> rows = {
        {"nothing", [](LibraryModel&) {}, {"p1.jpg", "p2.jpg", "p3.jpg", "p4.jpg", "p5.png"}},
        {"three stars", [](LibraryModel& m) { m.setMinimumRating(3); }, {"p1.jpg", "p3.jpg"}},
        {"red", [](LibraryModel& m) { m.setLabelFilter(SessionLabel::red); }, {"p3.jpg"}},
        {"no colour", [](LibraryModel& m) { m.setLabelFilter(SessionLabel::none); }, {"p1.jpg", "p2.jpg", "p4.jpg", "p5.png"}},
        {"name", [](LibraryModel& m) { m.setSearch(QStringLiteral("P5")); }, {"p5.png"}},
        {"interval", [&](LibraryModel& m) { m.setTimeFrom(nine); m.setTimeTo(nine); m.setTimeEnabled(true); }, {"p2.jpg", "p4.jpg"}},
        {"interval reversed", [&](LibraryModel& m) { m.setTimeFrom(nine.addSecs(1)); m.setTimeTo(nine); m.setTimeEnabled(true); }, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        DatedFolder f;
        LibraryModel& m = *f.h.model;
        m.setPhotoOrder(PhotoOrder::name);
        m.select(f.url(QStringLiteral("p1.jpg")));
        m.setRating(4);
        m.select(f.url(QStringLiteral("p3.jpg")));
        m.setRating(5);
        m.setLabel(SessionLabel::red);
        m.selectAll();
        row.set(m);
        EXPECT_EQ(names(m.visiblePhotos()), row.expected);
        for (const QString& url : m.selectedIDs())
            EXPECT_TRUE(m.visiblePosition(url).has_value()) << "hidden photos leave the selection";
        EXPECT_EQ(m.selectedID().has_value(), !row.expected.isEmpty());
    }
}

TEST(LibrarySelection, SteppingStopsAtBothEndsAndClicksFollowTheModifiers)
{
    DatedFolder f;
    LibraryModel& m = *f.h.model;
    m.setPhotoOrder(PhotoOrder::name);
    const auto url = [&](int i) { return f.url(i == 5 ? QStringLiteral("p5.png") : QStringLiteral("p%1.jpg").arg(i)); };
    struct Row {
        const char* name;
        std::function<void()> act;
        QString current;
        QSet<QString> selection;
    };
    const QList<Row> rows = {
        {"next from nothing lands on the second", [&] { m.select(std::nullopt); m.move(1); }, url(2), {url(2)}},
        {"previous from nothing lands on the first", [&] { m.select(std::nullopt); m.move(-1); }, url(1), {url(1)}},
        {"next on the last stays", [&] { m.select(url(5)); m.move(1); }, url(5), {url(5)}},
        {"previous on the first stays", [&] { m.select(url(1)); m.move(-1); }, url(1), {url(1)}},
        {"shift without a prior click", [&] { m.select(std::nullopt); m.selectClick(url(3), Qt::ShiftModifier); }, url(3), {url(3)}},
        {"shift range adds to the selection", [&] {
             m.select(url(4)); m.selectClick(url(1), Qt::ControlModifier); m.selectClick(url(3), Qt::ShiftModifier); },
         url(3), {url(1), url(2), url(3), url(4)}},
        {"command-click on the only selected", [&] { m.select(url(2)); m.selectClick(url(2), Qt::ControlModifier); }, url(2), {}},
        {"command-click adds", [&] { m.select(url(2)); m.selectClick(url(5), Qt::ControlModifier); }, url(5), {url(2), url(5)}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.act();
        EXPECT_EQ(m.selectedID(), row.current);
        EXPECT_EQ(m.selectedIDs(), row.selection);
        EXPECT_EQ(f.h.previews.loads().last().item.url, row.current) << "the preview follows the current photo";
    }
}

// Ten photos on a scripted scanner, prepared and showing the first.
struct Strip {
    Strip()
    {
        h.model->open(QStringLiteral("/strip"));
        QStringList all;
        for (int i = 1; i <= 10; ++i)
            all.append(QStringLiteral("%1.jpg").arg(i, 2, 10, QLatin1Char('0')));
        h.scans.deliver(h.scans.requests.at(0), all, true);
        EXPECT_TRUE(eventually([&] { return !h.model->isPreparing(); }));
        h.model->setPhotoOrder(PhotoOrder::name);
    }
    QString url(int i) const { return QStringLiteral("/strip/%1.jpg").arg(i, 2, 10, QLatin1Char('0')); }
    void show(int i)
    {
        h.model->select(url(i));
        h.previews.answer(h.previews.loads().last());
        settle();
    }
    Harness h{true};
};

TEST(LibraryPreview, OnlyTheAnswerForTheCurrentPhotoIsShown)
{
    struct Row {
        const char* name;
        bool firstAnswerBeforeTheStep;
    };
    for (const Row row : {Row{"answer already queued when the user steps", true}, Row{"answer after the step", false}}) {
        SCOPED_TRACE(row.name);
        Strip s;
        const auto first = s.h.previews.loads().last();
        ASSERT_EQ(first.item.url, s.url(1));
        if (row.firstAnswerBeforeTheStep)
            s.h.previews.answer(first);
        s.h.model->run(ActionID::next);
        if (!row.firstAnswerBeforeTheStep)
            s.h.previews.answer(first);
        settle();
        EXPECT_FALSE(s.h.model->preview().has_value());
        EXPECT_FALSE(s.h.model->displayedID().has_value());
        EXPECT_TRUE(s.h.model->previewLoading());

        s.h.previews.answer(s.h.previews.loads().last());
        settle();
        EXPECT_EQ(s.h.model->displayedID(), s.url(2));
        EXPECT_FALSE(s.h.model->previewLoading());
    }
}

TEST(LibraryPreview, PrefetchLooksFurtherInTheDirectionOfTravel)
{
    struct Row {
        const char* name;
        QList<int> path;
        double zoom;
        QList<int> expected;
    };
    const QList<Row> rows = {
        {"forward", {4, 5}, 0, {6, 7, 8, 9, 4, 3}},
        {"backward", {6, 5}, 0, {4, 3, 2, 1, 6, 7}},
        {"at the last photo", {9, 10}, 0, {9, 8}},
        {"zoomed", {4, 5}, 1.0, {6, 7, 4}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Strip s;
        s.h.model->setZoom(row.zoom);
        for (int i : row.path)
            s.show(i);
        QStringList expected;
        for (int i : row.expected)
            expected.append(QStringLiteral("%1.jpg").arg(i, 2, 10, QLatin1Char('0')));
        QStringList live = s.h.previews.livePrefetches();
        std::sort(live.begin(), live.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(live, expected);
        const int dimension = row.zoom > 0 ? LibraryModel::zoomedDimension : LibraryModel::fitDimension;
        EXPECT_EQ(s.h.previews.calls.last().dimension, dimension);
    }
}

TEST(LibraryPreview, PrefetchStartsAgainWhenTheUserComesBackToAFolder)
{
    Strip s;
    s.show(4);
    s.show(5);
    s.h.model->open(QStringLiteral("/elsewhere"));
    EXPECT_TRUE(s.h.previews.livePrefetches().isEmpty());
    s.h.model->open(QStringLiteral("/strip"));
    s.show(4);
    s.show(5);
    EXPECT_TRUE(s.h.previews.livePrefetches().contains(QStringLiteral("06.jpg")));
}

TEST(LibraryPreview, ZoomFetchesTheLargePreviewOnceAndFailuresShowTheirMessage)
{
    Strip s;
    s.show(3);
    const auto loadsOf3 = [&] {
        return std::count_if(s.h.previews.calls.begin(), s.h.previews.calls.end(),
                             [&](const FakePreviews::Call& c) { return !c.warming && c.item.url == s.url(3); });
    };
    EXPECT_EQ(loadsOf3(), 1);
    s.h.model->run(ActionID::zoomIn);
    EXPECT_EQ(s.h.model->zoom(), 1.0);
    ASSERT_EQ(loadsOf3(), 2);
    EXPECT_EQ(s.h.previews.loads().last().dimension, LibraryModel::zoomedDimension);
    s.h.previews.answer(s.h.previews.loads().last(), 6048);
    settle();
    s.h.model->run(ActionID::zoomIn);
    s.h.model->run(ActionID::fit);
    EXPECT_EQ(loadsOf3(), 2) << "the large preview serves every zoom and fit";

    s.h.model->select(s.url(8));
    s.h.previews.fail(s.h.previews.loads().last());
    settle();
    EXPECT_EQ(s.h.model->previewError(), QStringLiteral("No se puede leer la vista previa de 08.jpg. El archivo puede ser incompatible, estar dañado o desconectado."));
    EXPECT_FALSE(s.h.model->previewLoading());
    EXPECT_EQ(s.h.model->displayedID(), s.url(3)) << "the last good preview stays";
    EXPECT_TRUE(s.h.previews.livePrefetches().contains(QStringLiteral("09.jpg")));
}

TEST(LibraryActions, ZoomStepsStayWithinTheirLimits)
{
    struct Row {
        double from;
        ActionID action;
        double expected;
    };
    const QList<Row> rows = {
        {0, ActionID::zoomIn, 1.0}, {1.0, ActionID::zoomIn, 1.5}, {3.0, ActionID::zoomIn, 4.0},
        {0, ActionID::zoomOut, 0.5}, {0.12, ActionID::zoomOut, 0.1}, {2.0, ActionID::actual, 1.0},
        {2.0, ActionID::fit, 0},
    };
    Harness h;
    for (const Row& row : rows) {
        h.model->setZoom(row.from);
        EXPECT_TRUE(h.model->run(row.action));
        EXPECT_DOUBLE_EQ(h.model->zoom(), row.expected) << row.from;
    }
}

} // namespace
} // namespace vantelor::test
