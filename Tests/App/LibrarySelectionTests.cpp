#include <gtest/gtest.h>

#include <QSignalSpy>

#include "LibraryTestSupport.h"

namespace vantelor::test {
namespace {

// Ten photos on a scripted scanner, prepared and showing the first.
struct Strip {
    Strip()
    {
        h.model->open(QStringLiteral("/strip"));
        h.scans.deliver(h.scans.requests.at(0), names(10), true);
        EXPECT_TRUE(eventually([&] { return !h.model->isPreparing(); }));
        h.model->setPhotoOrder(PhotoOrder::name);
    }
    static QString name(int i) { return QStringLiteral("%1.jpg").arg(i, 2, 10, QLatin1Char('0')); }
    static QStringList names(int count)
    {
        QStringList all;
        for (int i = 1; i <= count; ++i)
            all.append(name(i));
        return all;
    }
    QString url(int i) const { return QStringLiteral("/strip/") + name(i); }
    void show(int i)
    {
        h.model->select(url(i));
        h.previews.answer(h.previews.lastLoad());
        settle();
    }
    Harness h{true};
};

TEST(LibrarySelection, SteppingStopsAtBothEndsAndClicksFollowTheModifiers)
{
    Strip s;
    LibraryModel& m = *s.h.model;
    const auto url = [&](int i) { return s.url(i); };
    struct Row { const char* name; std::function<void()> act; QString current; QSet<QString> selection; };
    const QList<Row> rows = {
        {"next from nothing lands on the second", [&] { m.select(std::nullopt); m.move(1); }, url(2), {url(2)}},
        {"previous from nothing lands on the first", [&] { m.select(std::nullopt); m.move(-1); }, url(1), {url(1)}},
        {"next on the last stays", [&] { m.select(url(10)); m.move(1); }, url(10), {url(10)}},
        {"previous on the first stays", [&] { m.select(url(1)); m.move(-1); }, url(1), {url(1)}},
        {"shift without a prior click", [&] { m.select(std::nullopt); m.selectClick(url(3), Qt::ShiftModifier); }, url(3), {url(3)}},
        {"shift range adds to the selection", [&] {
             m.select(url(4)); m.selectClick(url(1), Qt::ControlModifier); m.selectClick(url(3), Qt::ShiftModifier); },
         url(3), {url(1), url(2), url(3), url(4)}},
        {"command-click on the only selected", [&] { m.select(url(2)); m.selectClick(url(2), Qt::ControlModifier); }, url(2), {}},
        {"command-click adds", [&] { m.select(url(2)); m.selectClick(url(10), Qt::ControlModifier); }, url(10), {url(2), url(10)}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.act();
        EXPECT_EQ(m.selectedID(), row.current);
        EXPECT_EQ(m.selectedIDs(), row.selection);
        EXPECT_EQ(s.h.previews.lastLoad().item.url, row.current) << "the preview follows the current photo";
    }
}

// A filter says so once per change and not for the same value again; the selected photos still
// in sight stay selected, and when the current one leaves, the first visible photo takes over.
TEST(LibrarySelection, AFilterKeepsWhatStaysInSight)
{
    Strip s;
    LibraryModel& m = *s.h.model;
    QSignalSpy filters(&m, &LibraryModel::filterChanged);
    m.select(s.url(1));
    m.selectClick(s.url(10), Qt::ControlModifier);
    m.selectClick(s.url(4), Qt::ControlModifier);
    m.setSearch(QStringLiteral("1"));
    m.setSearch(QStringLiteral("1"));
    EXPECT_EQ(filters.count(), 1);
    ASSERT_EQ(m.visiblePhotos().size(), 2);
    EXPECT_EQ(m.selectedID(), s.url(1)) << "the current photo left the strip";
    EXPECT_EQ(m.selectedIDs(), QSet<QString>({s.url(1)}));

    m.selectClick(s.url(10), Qt::ControlModifier);
    m.setMinimumRating(0);
    m.setSearch(QStringLiteral("10"));
    EXPECT_EQ(filters.count(), 2);
    EXPECT_EQ(m.selectedID(), s.url(10));
    EXPECT_EQ(m.selectedIDs(), QSet<QString>({s.url(10)}));
}

// The window redraws on the controller's signals alone: each change announces what it changed,
// and nothing else, so that no screen misses a change or redraws for nothing.
TEST(LibrarySelection, EachChangeAnnouncesWhatItChangedAndNothingElse)
{
    Strip s;
    LibraryModel& m = *s.h.model;
    const QMetaObject& meta = LibraryModel::staticMetaObject;
    struct Row { const char* name; std::function<void()> act; QStringList announced; };  // announced: sorted
    const QList<Row> rows = {
        {"large preview window", [&] { m.run(ActionID::preview); }, {"previewRequestChanged"}},
        {"zoom", [&] { m.run(ActionID::actual); }, {"displayChanged"}},
        {"step (the preview is announced when it comes)", [&] { m.move(1); }, {"selectionChanged"}},
        {"rating", [&] { m.setRating(2); }, {"marksChanged"}},
        {"order", [&] { m.setDescending(true); }, {"filterChanged", "visiblePhotosChanged"}},
        {"a folder read again", [&] {
             m.run(ActionID::reload);
             s.h.scans.deliver(s.h.scans.requests.last(), Strip::names(11), true);
             // To the end of its preparation: when its dates come back is not ours to guess.
             EXPECT_TRUE(eventually([&] { return m.photos().size() == 11 && !m.isPreparing(); }));
         }, {"captureDatesChanged", "folderChanged", "metadataChanged", "photosChanged", "preparationChanged", "previewChanged", "visiblePhotosChanged"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<std::unique_ptr<QSignalSpy>> spies;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
            if (meta.method(i).methodType() == QMetaMethod::Signal)
                spies.push_back(std::make_unique<QSignalSpy>(&m, meta.method(i)));
        row.act();
        QStringList heard;
        for (const auto& spy : spies)
            if (spy->count() > 0)
                heard.append(QString::fromLatin1(spy->signal()).section(QLatin1Char('('), 0, 0));
        heard.sort();
        EXPECT_EQ(heard.join(QLatin1Char(' ')).toStdString(), row.announced.join(QLatin1Char(' ')).toStdString());
    }
}

// A step drops the answer for the photo left, whether it was already queued or comes later.
TEST(LibraryPreview, OnlyTheAnswerForTheCurrentPhotoIsShown)
{
    Strip s;
    const auto expectNothingShown = [&] {
        settle();
        EXPECT_FALSE(s.h.model->preview().has_value());
        EXPECT_FALSE(s.h.model->displayedID().has_value());
        EXPECT_TRUE(s.h.model->previewLoading());
    };
    s.h.previews.answer(s.h.previews.lastLoad());
    s.h.model->run(ActionID::next);
    expectNothingShown();
    const auto second = s.h.previews.lastLoad();
    ASSERT_EQ(second.item.url, s.url(2));
    s.h.model->run(ActionID::next);
    s.h.previews.answer(second);
    expectNothingShown();

    s.h.previews.answer(s.h.previews.lastLoad());
    settle();
    EXPECT_EQ(s.h.model->displayedID(), s.url(3));
    EXPECT_FALSE(s.h.model->previewLoading());
}

TEST(LibraryPreview, PrefetchLooksFurtherInTheDirectionOfTravel)
{
    struct Row { const char* name; QList<int> path; double zoom; QList<int> expected; };
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
            expected.append(Strip::name(i));
        QStringList live = s.h.previews.livePrefetches();
        std::sort(live.begin(), live.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(live, expected);
        const int dimension = row.zoom > 0 ? LibraryModel::zoomedDimension : LibraryModel::fitDimension;
        EXPECT_EQ(s.h.previews.calls.last().dimension, dimension);
    }
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
    EXPECT_EQ(s.h.previews.lastLoad().dimension, LibraryModel::zoomedDimension);
    s.h.previews.answer(s.h.previews.lastLoad(), 6048);
    settle();
    s.h.model->run(ActionID::zoomIn);
    s.h.model->run(ActionID::fit);
    EXPECT_EQ(loadsOf3(), 2) << "the large preview serves every zoom and fit";

    s.h.model->select(s.url(8));
    s.h.previews.fail(s.h.previews.lastLoad());
    settle();
    EXPECT_EQ(s.h.model->previewError(), QStringLiteral("No se puede leer la vista previa de 08.jpg. El archivo puede ser incompatible, estar dañado o desconectado."));
    EXPECT_FALSE(s.h.model->previewLoading());
    EXPECT_EQ(s.h.model->displayedID(), s.url(3)) << "the last good preview stays";
    EXPECT_TRUE(s.h.previews.livePrefetches().contains(QStringLiteral("09.jpg")));

    s.show(9);
    EXPECT_EQ(s.h.model->previewError(), std::nullopt) << "the next photo does not carry the message";
}

} // namespace
} // namespace vantelor::test
