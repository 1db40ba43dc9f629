#include <gtest/gtest.h>

#include <unistd.h>

#include "NavigatorTestSupport.h"
#include "Support/Paths.h"

using namespace vantelor;
using namespace vantelor::test;

TEST(NavigatorTree, ListingErrorStaysOnThatFolderRowOnly)
{
    Sandbox sandbox;
    const QString boda = sandbox.mkdir(QStringLiteral("fotos/Boda"));
    const QString viaje = sandbox.mkdir(QStringLiteral("fotos/Viaje"));
    const QString archivo = sandbox.mkdir(QStringLiteral("fotos/Archivo"));
    auto model = makeNavigator(sandbox);
    ASSERT_TRUE(doAndWait(*model, &NavigatorModel::placesUpdated, [&] {
        for (const QString& folder : {viaje, archivo, boda})
            model->addFavorite(folder);
    }));

    // Gone, and replaced by a file, after being listed among the favourites.
    ASSERT_EQ(::rmdir(Paths::encode(viaje).constData()), 0);
    ASSERT_EQ(::rmdir(Paths::encode(archivo).constData()), 0);
    sandbox.write(QStringLiteral("fotos/Archivo"), "no soy una carpeta");

    const std::pair<QString, QString> rows[] = {
        {viaje, QStringLiteral("No such file or directory")},
        {archivo, QStringLiteral("Not a directory")},
        {boda, QString()},
    };
    for (const auto& [folder, error] : rows) {
        SCOPED_TRACE(folder.toStdString());
        const QModelIndex row = model->findFolder(folder);
        ASSERT_TRUE(row.isValid());
        ASSERT_TRUE(expand(*model, row));
        EXPECT_EQ(row.data(NavigatorModel::ErrorRole).toString(), error);
        EXPECT_FALSE(model->hasChildren(row));
    }
    EXPECT_EQ(model->favoriteFolders().size(), 3) << "a failing folder stays a favourite";
}

// A folder opened below a place is watched too, and its change keeps the rows already open.
TEST(NavigatorTree, ChangedFolderIsReadAgainWithoutCollapsingItsOpenRows)
{
    Sandbox sandbox;
    sandbox.mkdir(QStringLiteral("home/Boda/Ceremonia/Entrada"));
    auto model = makeNavigator(sandbox);
    ASSERT_TRUE(expand(*model, homeRow(*model)));
    const QModelIndex boda = model->findFolder(sandbox.file(QStringLiteral("home/Boda")));
    ASSERT_TRUE(expand(*model, boda));
    ASSERT_TRUE(expand(*model, model->findFolder(sandbox.file(QStringLiteral("home/Boda/Ceremonia")))));

    const QString added = sandbox.mkdir(QStringLiteral("home/Boda/Album"));
    EXPECT_TRUE(eventually([&] { return model->findFolder(added).isValid(); }));
    EXPECT_TRUE(model->findFolder(sandbox.file(QStringLiteral("home/Boda/Ceremonia/Entrada"))).isValid())
        << "the open folder kept its listing";
    EXPECT_EQ(childPaths(*model, model->findFolder(sandbox.file(QStringLiteral("home/Boda")))),
              (QStringList{added, sandbox.file(QStringLiteral("home/Boda/Ceremonia"))}));

    ASSERT_EQ(::rmdir(Paths::encode(added).constData()), 0);
    EXPECT_TRUE(eventually([&] { return !model->findFolder(added).isValid(); }));
}

TEST(NavigatorTree, CardsAppearUnderVolumesAsTheyAreMounted)
{
    Sandbox sandbox;
    const QString first = sandbox.mkdir(QStringLiteral("media/NIKON D850"));
    auto model = makeNavigator(sandbox);
    const QModelIndex volumes = model->sectionIndex(NavigatorModel::Section::volumes);
    EXPECT_TRUE(eventually([&] { return childPaths(*model, volumes) == QStringList{first}; }));

    const QString second = sandbox.mkdir(QStringLiteral("media/EOS_DIGITAL"));
    EXPECT_TRUE(eventually([&] { return childPaths(*model, volumes).size() == 2; }));
    EXPECT_EQ(childPaths(*model, volumes), (QStringList{second, first}));
}

TEST(NavigatorTree, NewFolderNameErrorsAreShownOnItsRowUntilANameWorks)
{
    Sandbox sandbox;
    const QString existing = sandbox.mkdir(QStringLiteral("home/Boda"));
    auto model = makeNavigator(sandbox);
    const QModelIndex home = homeRow(*model);
    ASSERT_TRUE(expand(*model, home));
    ASSERT_TRUE(model->beginNewFolder(home).isValid());
    model->cancelNewFolder();
    EXPECT_EQ(model->rowCount(home), 1) << "a cancelled new folder leaves nothing behind";
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
        ASSERT_TRUE(row.isValid());
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
    EXPECT_FALSE(row.isValid()) << "the new-folder row is gone";
    EXPECT_TRUE(eventually([&] { return model->findFolder(made).isValid(); }));
    EXPECT_EQ(childPaths(*model, home), (QStringList{existing, made}));

    // The name offered is one that is free.
    sandbox.mkdir(QStringLiteral("home/Carpeta nueva"));
    sandbox.mkdir(QStringLiteral("home/Carpeta nueva 2"));
    EXPECT_TRUE(eventually([&] { return model->rowCount(home) == 4; }));
    EXPECT_EQ(model->beginNewFolder(home).data(Qt::EditRole).toString(), QStringLiteral("Carpeta nueva 3"));
}

TEST(NavigatorTree, RefreshReadsAgainAFolderNamedInBytesThatAreNotUtf8)
{
    Sandbox sandbox;
    const QString latin1 = sandbox.mkdir(Paths::decode(QByteArray("home/caf\xe9")));
    auto model = makeNavigator(sandbox);
    ASSERT_TRUE(expand(*model, homeRow(*model)));
    const QModelIndex folder = model->findFolder(latin1);
    ASSERT_TRUE(folder.isValid());
    EXPECT_EQ(folder.data(Qt::DisplayRole).toString(), QStringLiteral("caf\uFFFD"));
    ASSERT_TRUE(expand(*model, folder));
    EXPECT_EQ(model->rowCount(folder), 0);

    // Such a folder cannot be watched by name: a transfer into it is seen through refresh().
    const QString added = sandbox.mkdir(Paths::decode(QByteArray("home/caf\xe9/sesi\xf3n")));
    model->refresh();
    EXPECT_TRUE(eventually([&] { return model->findFolder(added).isValid(); }));
    EXPECT_EQ(model->findFolder(added).data(NavigatorModel::PathRole).toString(), added) << "the bytes survive";
}
