#include <gtest/gtest.h>

#include <QFile>
#include <QUrl>

#include "QFileDialogChooser.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

// Qt's dialog lists names through QFile::decodeName, so a folder whose name is not UTF-8 comes
// back with U+FFFD in place of its bytes: the chooser must find the real folder again.
TEST(QFileDialogChooser, ChosenFolderKeepsItsBytes)
{
    Sandbox sandbox;
    struct Row {
        const char* what;
        QByteArray relative;   // bytes under the sandbox
    };
    const Row rows[] = {
        {"UTF-8 name", QByteArray("Fotos de Dénia")},
        {"Latin-1 parent and child", QByteArray("Verano-\xf1/D\xed" "a-1")},
        {"lone continuation byte", QByteArray("raw\x80" "2024")},
    };
    for (const Row& row : rows) {
        const QString path = sandbox.mkdir(Paths::decode(row.relative));
        const QByteArray bytes = Paths::encode(path);
        // What QFileDialog hands out for that folder.
        const QUrl shown = QUrl::fromLocalFile(QFile::decodeName(bytes));
        EXPECT_EQ(Paths::encode(QFileDialogChooser::pathFromUrl(shown)), bytes) << row.what;
    }
    EXPECT_TRUE(QFileDialogChooser::pathFromUrl(QUrl(QStringLiteral("https://example.org/x"))).isEmpty());
}

// Qt's own dialog says fileSelected alone on accept; a later close says nothing more.
TEST(QFileDialogChooser, AnswersOnceWithoutBlocking)
{
    Sandbox sandbox;
    const QString folder = sandbox.mkdir(Paths::decode(QByteArray("Sesi\xf3n")));
    QWidget window;
    QFileDialogChooser chooser(&window);
    for (const bool accept : {true, false}) {
        QList<std::optional<QString>> answers;
        chooser.chooseFolder({QStringLiteral("Abrir carpeta"), QString(), false}, [&](std::optional<QString> chosen) { answers.append(chosen); });
        QFileDialog* dialog = chooser.dialog();
        ASSERT_NE(dialog, nullptr);
        EXPECT_FALSE(dialog->isModal());
        if (accept) {
            const QUrl shown = QUrl::fromLocalFile(QFile::decodeName(Paths::encode(folder)));
            dialog->selectUrl(shown);
            emit dialog->fileSelected(shown.toLocalFile());
        }
        dialog->reject();
        EXPECT_EQ(answers, (QList<std::optional<QString>>{accept ? std::optional(folder) : std::nullopt}));
    }
}
