#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QTest>
#include <QTreeView>

#include "LibraryTestSupport.h"
#include "Model/LibraryModel.h"
#include "Model/NavigatorModel.h"
#include "NavigatorView.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

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

    const auto centre = [&](const QModelIndex& index) { return tree.visualRect(index).center(); };
    struct Row { const char* what; std::function<void()> gesture; QStringList tabs; QString current; };
    const Row rows[] = {
        {"Enter replaces the tab being left",
         [&] {
             tree.setCurrentIndex(model.findFolder(shoots[0]));
             QTest::keyClick(&tree, Qt::Key_Return);
         },
         {shoots[0]},
         shoots[0]},
        {"a middle click keeps it and adds one",
         [&] { QTest::mouseClick(tree.viewport(), Qt::MiddleButton, {}, centre(model.findFolder(shoots[1]))); },
         {shoots[0], shoots[1]},
         shoots[1]},
        {"a double click replaces the current tab",
         [&] {
             const QPoint point = centre(model.findFolder(shoots[2]));
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
