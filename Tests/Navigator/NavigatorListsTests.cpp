#include <gtest/gtest.h>

#include <unistd.h>

#include "NavigatorTestSupport.h"
#include "Support/Paths.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

// /fotos/first … /fotos/last, counting up or down.
QStringList numbered(int first, int last)
{
    QStringList folders;
    for (int i = first, step = first <= last ? 1 : -1; i != last + step; i += step)
        folders.append(QStringLiteral("/fotos/%1").arg(i));
    return folders;
}

} // namespace

TEST(RecentFolders, KeepTheTwentyNewestFirstWithoutDuplicates)
{
    struct Row { const char* what; QStringList recorded; QStringList expected; };
    const Row rows[] = {
        {"newest first", {"/a", "/b", "/c"}, {"/c", "/b", "/a"}},
        {"a folder recorded again moves to the top", {"/a", "/b", "/a"}, {"/a", "/b"}},
        {"the 21st drops the oldest", numbered(0, 20), numbered(20, 1)},
        {"reopening the oldest of 20 drops nothing", numbered(0, 19) << QStringLiteral("/fotos/0"), numbered(0, 0) + numbered(19, 1)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Sandbox sandbox;
        auto model = makeNavigator(sandbox);
        for (const QString& folder : row.recorded)
            model->record(folder);
        EXPECT_EQ(model->recentFolders(), row.expected);
        EXPECT_EQ(childPaths(*model, model->sectionIndex(NavigatorModel::Section::recent)), row.expected);
    }
}

TEST(RecentFolders, RecentAndFavouritesSurviveARestartWithNamesThatAreNotUtf8)
{
    preferences().clear();
    Sandbox sandbox;
    const QString latin1 = Paths::decode(QByteArray("/fotos/caf\xe9"));
    {
        auto model = makeNavigator(sandbox, true);
        model->record(QStringLiteral("/fotos/boda"));
        model->record(latin1);
        for (const char* folder : {"/fav/uno", "/fav/dos", "/fav/tres"})
            model->addFavorite(QString::fromUtf8(folder));
        model->addFavorite(QStringLiteral("/fav/uno"));
        model->removeFavorite(QStringLiteral("/fav/dos"));
    }
    auto restarted = makeNavigator(sandbox, true);
    EXPECT_EQ(restarted->recentFolders(), (QStringList{latin1, QStringLiteral("/fotos/boda")}));
    EXPECT_EQ(restarted->favoriteFolders(), (QStringList{QStringLiteral("/fav/uno"), QStringLiteral("/fav/tres")}));
    EXPECT_EQ(childPaths(*restarted, restarted->sectionIndex(NavigatorModel::Section::favorites)),
              restarted->favoriteFolders());
    preferences().clear();
}

TEST(RecentFolders, UnusableEntriesInThePreferencesAreDropped)
{
    preferences().clear();
    QStringList stored = {QStringLiteral("file:///a"), QStringLiteral("http://host/b"), QString(),
                          QStringLiteral("file:///a"), QStringLiteral("carpeta"), QStringLiteral("file://x%2Fy"),
                          QStringLiteral("file:///con%20espacio")};
    for (int i = 0; i < 25; ++i)
        stored.append(QStringLiteral("file:///n/%1").arg(i));
    preferences().setValue(QStringLiteral("VantelorRecent"), stored);
    preferences().setValue(QStringLiteral("VantelorFavorites"), QStringLiteral("file:///solo"));
    Sandbox sandbox;
    auto model = makeNavigator(sandbox, true);
    QStringList expected = {QStringLiteral("/a"), QStringLiteral("/con espacio")};
    for (int i = 0; i < 18; ++i)
        expected.append(QStringLiteral("/n/%1").arg(i));
    EXPECT_EQ(model->recentFolders(), expected);
    EXPECT_EQ(model->favoriteFolders(), QStringList{QStringLiteral("/solo")});
    preferences().clear();
}

TEST(RecentFolders, VanishedFoldersStayGreyedAndComeBackWithTheirVolume)
{
    Sandbox sandbox;
    const QString card = sandbox.mkdir(QStringLiteral("tarjeta/DCIM"));
    const QString kept = sandbox.mkdir(QStringLiteral("kept"));
    auto model = makeNavigator(sandbox);
    model->record(card);
    model->record(kept);
    model->addFavorite(card);
    ASSERT_EQ(::rmdir(Paths::encode(card).constData()), 0);
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
    const QModelIndex back = model->findFolder(card);
    EXPECT_FALSE(back.data(NavigatorModel::MissingRole).toBool());
    EXPECT_TRUE(model->canFetchMore(back));
}
