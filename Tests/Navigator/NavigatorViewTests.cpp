#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QLineEdit>
#include <QTreeView>

#include "LibraryTestSupport.h"
#include "Model/LibraryModel.h"
#include "NavigatorTestSupport.h"
#include "NavigatorView.h"
#include "Support/Paths.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

QLineEdit* openEditor()
{
    return qobject_cast<QLineEdit*>(QApplication::focusWidget());
}

QPoint centreOf(const QTreeView& tree, const QModelIndex& index)
{
    return tree.visualRect(index).center();
}

void typeName(QLineEdit* editor, const QString& name)
{
    editor->setText(name);
    QTest::keyClick(editor, Qt::Key_Return);
}

} // namespace

// The navigator's home is the test run's $HOME, a folder of its own.
TEST(NavigatorView, NewFolderIsNamedInPlaceAndARefusedNameCanBeCorrected)
{
    LibraryModel::Dependencies dependencies;
    dependencies.persistPreferences = false;
    LibraryModel library(dependencies);
    NavigatorView view(library);
    view.resize(320, 600);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    NavigatorModel& model = library.navigator();
    const QString home = Paths::decode(qgetenv("HOME"));
    const QModelIndex homeIndex = homeRow(model);

    struct Row {
        const char* what;
        QString typed;
        QString error;
    };
    const Row rows[] = {
        {"refused by its characters", QStringLiteral("a:b"), QStringLiteral("Elige un nombre de carpeta válido")},
        {"corrected", QStringLiteral("Selección"), QString()},
        {"taken", QStringLiteral("Selección"), QStringLiteral("No se pudo crear la carpeta: File exists")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        if (!openEditor()) {
            view.newFolder(homeIndex);
            ASSERT_TRUE(QTest::qWaitFor([] { return openEditor() != nullptr; }));
        }
        typeName(openEditor(), row.typed);
        if (row.error.isEmpty()) {
            const QString made = Paths::join(home, row.typed);
            ASSERT_TRUE(QTest::qWaitFor([&] { return view.tree()->currentIndex() == model.findFolder(made); }, asyncTimeoutMs));
            EXPECT_TRUE(model.findFolder(made).isValid());
            EXPECT_EQ(openEditor(), nullptr);
            continue;
        }
        const QModelIndex named = model.index(0, 0, homeIndex);
        ASSERT_TRUE(QTest::qWaitFor([&] { return named.data(NavigatorModel::ErrorRole).toString() == row.error; },
                                    asyncTimeoutMs));
        ASSERT_TRUE(QTest::qWaitFor([] { return openEditor() != nullptr; })) << "the editor comes back";
        EXPECT_EQ(openEditor()->text(), row.typed);
        EXPECT_EQ(view.tree()->currentIndex(), named);
        QTest::keyClick(openEditor(), Qt::Key_Escape);
        EXPECT_TRUE(QTest::qWaitFor([&] { return childPaths(model, homeIndex).count(QString()) == 0; }))
            << "Escape removes the new-folder row";
    }
}

TEST(NavigatorView, EnterReplacesTheCurrentTabAndAMiddleClickAddsOne)
{
    const QString home = Paths::decode(qgetenv("HOME"));
    Sandbox sandbox;
    const QString start = sandbox.mkdir(QStringLiteral("Inicio"));
    QStringList shoots;
    for (const char* name : {"Sesión A", "Sesión B", "Sesión C"}) {
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
    ASSERT_TRUE(eventually([&] { return model.findFolder(shoots[2]).isValid(); }));
    library.open(start);

    struct Row {
        const char* what;
        std::function<void()> gesture;
        QStringList tabs;
        QString current;
    };
    const Row rows[] = {
        {"Enter replaces the tab being left",
         [&] {
             tree.setCurrentIndex(model.findFolder(shoots[0]));
             QTest::keyClick(&tree, Qt::Key_Return);
         },
         {shoots[0]},
         shoots[0]},
        {"a middle click keeps it and adds one",
         [&] { QTest::mouseClick(tree.viewport(), Qt::MiddleButton, {}, centreOf(tree, model.findFolder(shoots[1]))); },
         {shoots[0], shoots[1]},
         shoots[1]},
        {"a double click replaces the current tab",
         [&] {
             const QPoint point = centreOf(tree, model.findFolder(shoots[2]));
             QTest::mouseClick(tree.viewport(), Qt::LeftButton, {}, point);
             QTest::mouseDClick(tree.viewport(), Qt::LeftButton, {}, point);
         },
         {shoots[0], shoots[2]},
         shoots[2]},
        {"a folder already in a tab is gone to, and no tab closes",
         [&] {
             tree.setCurrentIndex(model.findFolder(shoots[0]));
             QTest::keyClick(&tree, Qt::Key_Enter);
         },
         {shoots[0], shoots[2]},
         shoots[0]},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        row.gesture();
        EXPECT_TRUE(eventually([&] { return library.tabs() == row.tabs; })) << library.tabs().join(QLatin1Char(',')).toStdString();
        EXPECT_EQ(library.folder(), row.current);
    }
    for (const QString& folder : shoots)
        ::rmdir(Paths::encode(folder).constData());
}
