#include <gtest/gtest.h>

#include <QApplication>
#include <QLineEdit>
#include <QTreeView>

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
