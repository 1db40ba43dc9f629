#include <gtest/gtest.h>

#include <cerrno>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QSettings>
#include <QSignalSpy>
#include <QTreeView>

#include "LibraryTestSupport.h"
#include "Model/FolderTags.h"
#include "Model/NavigatorModel.h"
#include "NavigatorView.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/SystemError.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

constexpr int asyncTimeoutMs = 10000;

// A navigator whose home is <sandbox>/home and whose only mount root is <sandbox>/media.
std::unique_ptr<NavigatorModel> makeNavigator(const Sandbox& sandbox, bool persist = false, FolderLabels::Attribute attribute = FolderLabels::xdgTags())
{
    const QString home = sandbox.mkdir(QStringLiteral("home"));
    return std::make_unique<NavigatorModel>(persist, std::move(attribute), home, QStringList{sandbox.file(QStringLiteral("media"))});
}

QSettings preferences() { return QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor")); }

// The paths of a row's children, in row order.
QStringList childPaths(const NavigatorModel& model, const QModelIndex& parent)
{
    QStringList paths;
    for (int row = 0; row < model.rowCount(parent); ++row)
        paths.append(model.index(row, 0, parent).data(NavigatorModel::PathRole).toString());
    return paths;
}

QModelIndex homeRow(const NavigatorModel& model) { return model.index(0, 0, model.sectionIndex(NavigatorModel::Section::home)); }

// Does `action` and waits for the signal it causes. A worker may answer before its continuation
// is attached, and Qt then runs the continuation at once: the spy must listen first.
template <typename Signal, typename Action>
bool doAndWait(NavigatorModel& model, Signal signal, Action action)
{
    QSignalSpy spy(&model, signal);
    action();
    return spy.count() > 0 || spy.wait(asyncTimeoutMs);
}

// Expands a folder row and waits until its listing (or its error) arrived.
bool expand(NavigatorModel& model, const QModelIndex& folder)
{
    return doAndWait(model, &NavigatorModel::folderLoaded, [&] { model.fetchMore(folder); });
}

bool refreshPlaces(NavigatorModel& model) { return doAndWait(model, &NavigatorModel::placesUpdated, [&] { model.refresh(); }); }

std::optional<QByteArray> tagsOf(const QString& folder)
{
    char value[8192];
    const ssize_t size = ::getxattr(Paths::encode(folder).constData(), "user.xdg.tags", value, sizeof value);
    return size < 0 ? std::nullopt : std::optional(QByteArray(value, size));
}

void setTags(const QString& folder, const QByteArray& value)
{
    ASSERT_EQ(::setxattr(Paths::encode(folder).constData(), "user.xdg.tags", value.constData(), value.size(), 0), 0);
}

// A file system that refuses extended attributes (FAT cards, some network shares).
FolderLabels::Attribute refusingAttribute()
{
    return {[](const QString& folder) -> Result<QByteArray> { return SystemError(EOPNOTSUPP, folder); },
            [](const QString& folder, const QByteArray&) -> Status { return SystemError(EOPNOTSUPP, folder); }};
}

// A fresh sandbox and its navigator, for the tests that need nothing more.
class NavigatorTree : public testing::Test {
protected:
    Sandbox sandbox;
    std::unique_ptr<NavigatorModel> model = makeNavigator(sandbox);
};

} // namespace

// The colour is found among the file manager's other tags, in either language and any case, and
// setting one keeps every foreign tag byte for byte.
TEST(FolderTags, ColourTagIsFoundAndReplacedAmongForeignTags)
{
    struct Row { QByteArray value; SessionLabel found; SessionLabel set; QByteArray expected; };
    const Row rows[] = {
        {"", SessionLabel::none, SessionLabel::red, "Rojo"},
        {"trabajo,Verde", SessionLabel::green, SessionLabel::blue, "trabajo,Azul"},
        {" viaje , ,Rojo,,\xffx", SessionLabel::red, SessionLabel::green, " viaje ,\xffx,Verde"},
        {"red,Verde,boda", SessionLabel::red, SessionLabel::purple, "boda,Morado"},
        {"Amarilla", SessionLabel::yellow, SessionLabel::none, ""},
        {"\xff\xfe,Amarillo", SessionLabel::yellow, SessionLabel::yellow, "\xff\xfe,Amarillo"},
        {"rojo claro", SessionLabel::none, SessionLabel::none, "rojo claro"},
        {"a;rojo", SessionLabel::none, SessionLabel::none, "a;rojo"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value.toStdString());
        EXPECT_EQ(FolderTags::label(row.value), row.found);
        EXPECT_EQ(FolderTags::withLabel(row.value, row.set), row.expected);
    }
}

TEST_F(NavigatorTree, LabelsRoundTripThroughTheFileManagersTags)
{
    const QString home = sandbox.file(QStringLiteral("home"));
    setTags(home, QByteArray("boda,\xff\xfe,Clientes"));

    model->setLabel(home, SessionLabel::red);
    EXPECT_EQ(model->label(home), SessionLabel::red) << "shown at once";
    EXPECT_TRUE(eventually([&] { return tagsOf(home) == QByteArray("boda,\xff\xfe,Clientes,Rojo"); }));

    // A navigator started later reads the tags back, even a value longer than the first read's buffer.
    const QByteArray longTag(3000, 'x');
    setTags(home, longTag + ",Verde");
    auto reopened = makeNavigator(sandbox);
    EXPECT_TRUE(eventually([&] { return reopened->label(home) == SessionLabel::green; }));

    // With no other tag, the attribute goes rather than staying empty.
    setTags(home, "Azul");
    model->setLabel(home, SessionLabel::yellow);
    model->setLabel(home, SessionLabel::none);
    EXPECT_TRUE(eventually([&] { return !tagsOf(home); }));
    EXPECT_EQ(model->label(home), SessionLabel::none) << "the last choice wins";

    // A folder new in a list is read for its colour at once, not at the next refresh.
    const QString shoot = sandbox.mkdir(QStringLiteral("shoot"));
    setTags(shoot, "Verde");
    model->record(shoot);
    EXPECT_TRUE(eventually([&] { return model->findFolder(shoot).data(NavigatorModel::LabelRole).toInt() == int(SessionLabel::green); }));
}

TEST(FolderLabels, FileSystemWithoutAttributesKeepsTheLabelInThePreferences)
{
    preferences().clear();
    Sandbox sandbox;
    const QString home = sandbox.file(QStringLiteral("home"));
    {
        auto model = makeNavigator(sandbox, true, refusingAttribute());
        model->setLabel(home, SessionLabel::green);
        const auto stored = [] { return preferences().value(QStringLiteral("VantelorFolderLabels")).toMap(); };
        EXPECT_TRUE(eventually([&] { return stored().value(Paths::fileUrl(home)) == QStringLiteral("green"); }));
    }
    auto restarted = makeNavigator(sandbox, true, refusingAttribute());
    QTest::qWait(0);
    EXPECT_EQ(restarted->label(home), SessionLabel::green) << "the refused read does not clear it";

    // The folder later sits where tags work: the label moves into them and out of the preferences.
    auto tagged = makeNavigator(sandbox, true);
    EXPECT_EQ(tagged->label(home), SessionLabel::green);
    tagged->setLabel(home, SessionLabel::blue);
    EXPECT_TRUE(eventually([&] { return tagsOf(home) == QByteArray("Azul"); }));
    EXPECT_TRUE(eventually([&] { return !preferences().contains(QStringLiteral("VantelorFolderLabels")); }));
    preferences().clear();
}

// Stored entries that name no local folder, or one already listed, are dropped, and only the
// twenty newest are kept; reopening the oldest of twenty drops none, a new one drops the oldest.
// Both lists survive a restart, names that are not UTF-8 included.
TEST(RecentFolders, KeepTheTwentyNewestFirstAndSurviveARestart)
{
    preferences().clear();
    QStringList stored = {QStringLiteral("file:///a"), QStringLiteral("http://host/b"), QString(),
                          QStringLiteral("file:///a"), QStringLiteral("carpeta"), QStringLiteral("file://x%2Fy"),
                          QStringLiteral("file:///con%20espacio")};
    for (int i = 0; i < 25; ++i)
        stored.append(QStringLiteral("file:///n/%1").arg(i));
    preferences().setValue(QStringLiteral("VantelorRecent"), stored);
    preferences().setValue(QStringLiteral("VantelorFavorites"), QStringLiteral("file:///solo"));
    QStringList expected = {QStringLiteral("/a"), QStringLiteral("/con espacio")};
    for (int i = 0; i < 18; ++i)
        expected.append(QStringLiteral("/n/%1").arg(i));
    Sandbox sandbox;
    const QString latin1 = Paths::decode(QByteArray("/fotos/caf\xe9"));
    {
        auto model = makeNavigator(sandbox, true);
        EXPECT_EQ(model->recentFolders(), expected);
        EXPECT_EQ(model->favoriteFolders(), QStringList{QStringLiteral("/solo")});
        model->record(QStringLiteral("/n/17"));
        model->record(latin1);
        expected = QStringList{latin1, QStringLiteral("/n/17")} + expected.mid(0, 18);
        EXPECT_EQ(model->recentFolders(), expected);
        EXPECT_EQ(childPaths(*model, model->sectionIndex(NavigatorModel::Section::recent)), expected);
        for (const char* folder : {"/fav/uno", "/fav/dos"})
            model->addFavorite(QString::fromUtf8(folder));
        model->addFavorite(QStringLiteral("/solo"));
        model->removeFavorite(QStringLiteral("/fav/uno"));
    }
    auto restarted = makeNavigator(sandbox, true);
    EXPECT_EQ(restarted->recentFolders(), expected);
    EXPECT_EQ(restarted->favoriteFolders(), (QStringList{QStringLiteral("/solo"), QStringLiteral("/fav/dos")}));
    EXPECT_EQ(childPaths(*restarted, restarted->sectionIndex(NavigatorModel::Section::favorites)), restarted->favoriteFolders());
    preferences().clear();
}

// A listed folder that went is an error on its own row when opened, greyed in both lists once the
// places are read again, and a favourite still; back with its volume, it can be opened afresh.
TEST_F(NavigatorTree, VanishedListedFoldersStayGreyedAndComeBackWithTheirVolume)
{
    const QString card = sandbox.mkdir(QStringLiteral("tarjeta/DCIM"));
    const QString kept = sandbox.mkdir(QStringLiteral("kept"));
    model->record(card);
    model->record(kept);
    ASSERT_TRUE(doAndWait(*model, &NavigatorModel::placesUpdated, [&] { model->addFavorite(card); }));
    ASSERT_EQ(::rmdir(Paths::encode(card).constData()), 0);

    const QModelIndex failed = model->findFolder(card);
    ASSERT_TRUE(expand(*model, failed));
    EXPECT_EQ(failed.data(NavigatorModel::ErrorRole).toString(), QStringLiteral("No such file or directory"));
    EXPECT_FALSE(model->hasChildren(failed));
    ASSERT_TRUE(refreshPlaces(*model));
    for (auto section : {NavigatorModel::Section::recent, NavigatorModel::Section::favorites}) {
        const QModelIndex list = model->sectionIndex(section);
        const int row = int(childPaths(*model, list).indexOf(card));
        ASSERT_GE(row, 0) << "a vanished folder is kept in its list";
        const QModelIndex vanished = model->index(row, 0, list);
        EXPECT_TRUE(vanished.data(NavigatorModel::MissingRole).toBool());
        EXPECT_FALSE(model->hasChildren(vanished));
        EXPECT_FALSE(model->canFetchMore(vanished));
        EXPECT_TRUE(vanished.data(Qt::ToolTipRole).toString().startsWith(QStringLiteral("Carpeta no disponible o ilegible: ")));
    }
    EXPECT_FALSE(model->findFolder(kept).data(NavigatorModel::MissingRole).toBool());

    sandbox.mkdir(QStringLiteral("tarjeta/DCIM"));
    ASSERT_TRUE(refreshPlaces(*model));
    const QModelIndex back = model->index(0, 0, model->sectionIndex(NavigatorModel::Section::favorites));
    EXPECT_FALSE(back.data(NavigatorModel::MissingRole).toBool());
    EXPECT_TRUE(model->canFetchMore(back));
}

// A folder opened below a place is watched too, and its change keeps the rows already open. One
// named in bytes that are not UTF-8 cannot be watched by name: a transfer into it is seen through
// refresh().
TEST_F(NavigatorTree, ChangedFolderIsReadAgainWithoutCollapsingItsOpenRows)
{
    sandbox.mkdir(QStringLiteral("home/Boda/Ceremonia/Entrada"));
    const QString latin1 = sandbox.mkdir(Paths::decode(QByteArray("home/caf\xe9")));
    ASSERT_TRUE(expand(*model, homeRow(*model)));
    const QModelIndex boda = model->findFolder(sandbox.file(QStringLiteral("home/Boda")));
    ASSERT_TRUE(expand(*model, boda));
    ASSERT_TRUE(expand(*model, model->findFolder(sandbox.file(QStringLiteral("home/Boda/Ceremonia")))));

    const QString added = sandbox.mkdir(QStringLiteral("home/Boda/Album"));
    const QStringList listed = {added, sandbox.file(QStringLiteral("home/Boda/Ceremonia"))};
    EXPECT_TRUE(eventually([&] { return childPaths(*model, model->findFolder(sandbox.file(QStringLiteral("home/Boda")))) == listed; }));
    EXPECT_TRUE(model->findFolder(sandbox.file(QStringLiteral("home/Boda/Ceremonia/Entrada"))).isValid()) << "the open folder kept its listing";
    ASSERT_EQ(::rmdir(Paths::encode(added).constData()), 0);
    EXPECT_TRUE(eventually([&] { return !model->findFolder(added).isValid(); }));

    const QModelIndex folder = model->findFolder(latin1);
    EXPECT_EQ(folder.data(Qt::DisplayRole).toString(), QStringLiteral("caf\uFFFD"));
    ASSERT_TRUE(expand(*model, folder));
    EXPECT_EQ(model->rowCount(folder), 0);
    const QString session = sandbox.mkdir(Paths::decode(QByteArray("home/caf\xe9/sesi\xf3n")));
    model->refresh();
    EXPECT_TRUE(eventually([&] { return model->findFolder(session).isValid(); }));
    EXPECT_EQ(model->findFolder(session).data(NavigatorModel::PathRole).toString(), session) << "the bytes survive";
}

TEST_F(NavigatorTree, CardsAppearUnderVolumesAsTheyAreMounted)
{
    // One card is there before the navigator starts.
    const QString first = sandbox.mkdir(QStringLiteral("media/NIKON D850"));
    model = makeNavigator(sandbox);
    const QModelIndex volumes = model->sectionIndex(NavigatorModel::Section::volumes);
    EXPECT_TRUE(eventually([&] { return childPaths(*model, volumes) == QStringList{first}; }));

    const QString second = sandbox.mkdir(QStringLiteral("media/EOS_DIGITAL"));
    EXPECT_TRUE(eventually([&] { return childPaths(*model, volumes) == QStringList{second, first}; }));
}

TEST_F(NavigatorTree, NewFolderNameErrorsAreShownOnItsRowUntilANameWorks)
{
    const QString existing = sandbox.mkdir(QStringLiteral("home/Boda"));
    const QModelIndex home = homeRow(*model);
    ASSERT_TRUE(expand(*model, home));
    ASSERT_TRUE(model->beginNewFolder(home).isValid());
    // A cancelled new folder leaves nothing behind: the rows are counted after the refusals.
    model->cancelNewFolder();
    EXPECT_FALSE(model->beginNewFolder(model->sectionIndex(NavigatorModel::Section::recent)).isValid());
    const QPersistentModelIndex row = model->beginNewFolder(home);
    ASSERT_TRUE(row.isValid());
    EXPECT_FALSE(model->beginNewFolder(home).isValid()) << "one new folder at a time";

    const std::pair<QString, QString> refused[] = {
        {QStringLiteral("  "), QStringLiteral("Elige un nombre de carpeta válido")},
        {QStringLiteral("a/b"), QStringLiteral("Elige un nombre de carpeta válido")},
        {QStringLiteral("Boda"), QStringLiteral("No se pudo crear la carpeta: File exists")},
    };
    for (const auto& [name, message] : refused) {
        SCOPED_TRACE(name.toStdString());
        bool accepted = false;
        QSignalSpy changed(model.get(), &QAbstractItemModel::dataChanged);
        ASSERT_TRUE(doAndWait(*model, &NavigatorModel::newFolderFailed, [&] { accepted = model->setData(row, name); }));
        ASSERT_TRUE(accepted);
        EXPECT_EQ(row.data(NavigatorModel::ErrorRole).toString(), message);
        EXPECT_GE(changed.count(), 2) << "the view hears of the attempt and of its failure";
        EXPECT_EQ(row.data(Qt::EditRole).toString(), name) << "the editor reopens with the refused name";
    }
    EXPECT_EQ(childPaths(*model, home).size(), 2) << "the new-folder row and Boda";

    QSignalSpy created(model.get(), &NavigatorModel::folderCreated);
    ASSERT_TRUE(model->setData(row, QStringLiteral("Selección")));
    ASSERT_TRUE(created.count() > 0 || created.wait(asyncTimeoutMs));
    const QString made = sandbox.file(QStringLiteral("home/Selección"));
    EXPECT_EQ(created.first().first().toString(), made);
    EXPECT_TRUE(eventually([&] { return childPaths(*model, home) == QStringList{existing, made}; }));

    // The name offered is one that is free.
    sandbox.mkdir(QStringLiteral("home/Carpeta nueva"));
    sandbox.mkdir(QStringLiteral("home/Carpeta nueva 2"));
    EXPECT_TRUE(eventually([&] { return model->rowCount(home) == 4; }));
    EXPECT_EQ(model->beginNewFolder(home).data(Qt::EditRole).toString(), QStringLiteral("Carpeta nueva 3"));
}

TEST(NavigatorView, EnterReplacesTheCurrentTabAndAMiddleClickAddsOne)
{
    // $HOME is a folder of this test program's own.
    const QString home = Paths::decode(qgetenv("HOME"));
    QStringList shoots;
    for (const char* name : {"Sesión A", "Sesión B"}) {
        shoots.append(Paths::join(home, QString::fromUtf8(name)));
        ::mkdir(Paths::encode(shoots.last()).constData(), 0755);
    }
    Harness harness;
    LibraryModel& library = *harness.model;
    NavigatorView view(library);
    view.resize(320, 600);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    NavigatorModel& model = library.navigator();
    QTreeView& tree = *view.tree();
    ASSERT_TRUE(eventually([&] { return model.findFolder(shoots[1]).isValid(); }));
    library.open(home);

    const auto centre = [&](int i) { return tree.visualRect(model.findFolder(shoots[i])).center(); };
    const auto enter = [&](int i, Qt::Key key) {
        return [&, i, key] {
            tree.setCurrentIndex(model.findFolder(shoots[i]));
            QTest::keyClick(&tree, key);
        };
    };
    struct Row { const char* what; std::function<void()> gesture; QStringList tabs; QString current; };
    const Row rows[] = {
        {"Enter replaces the tab being left", enter(0, Qt::Key_Return), {shoots[0]}, shoots[0]},
        {"a middle click keeps it and adds one",
         [&] { QTest::mouseClick(tree.viewport(), Qt::MiddleButton, {}, centre(1)); }, {shoots[0], shoots[1]}, shoots[1]},
        // A double click activates a row as Enter does: the same path.
        {"a folder already in a tab is gone to, and no tab closes", enter(0, Qt::Key_Enter), {shoots[0], shoots[1]}, shoots[0]},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        row.gesture();
        EXPECT_TRUE(eventually([&] { return library.tabs() == row.tabs; })) << library.tabs().join(QLatin1Char(',')).toStdString();
        EXPECT_EQ(library.folder(), row.current);
    }
}
