#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include "Input/InputTestSupport.h"
#include "Input/ShortcutProfileFile.h"
#include "KeyboardInput.h"
#include "KeyboardTestSupport.h"
#include "Model/ShortcutStore.h"
#include "ShortcutSettingsWindow.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

const InputTrigger back = InputTrigger::mouse(3, 0, QStringLiteral("Ratón 4"));

template <typename T>
T* child(const QWidget& window, const QString& name)
{
    T* found = window.findChild<T*>(name);
    EXPECT_NE(found, nullptr) << name.toStdString();
    return found;
}

// The visible texts of one action's row, in order: what the user reads there.
QStringList rowTexts(const QWidget& window, ActionID action)
{
    const QString raw = ActionIDs::rawValue(action);
    QList<QWidget*> widgets;
    for (QWidget* w : window.findChildren<QWidget*>())
        if (w->objectName().endsWith(QLatin1Char('-') + raw) && !w->isHidden())
            widgets.append(w);
    std::sort(widgets.begin(), widgets.end(), [](QWidget* a, QWidget* b) { return a->x() < b->x(); });
    QStringList texts;
    for (QWidget* w : widgets) {
        if (auto* label = qobject_cast<QLabel*>(w))
            texts.append(label->text() + QStringLiteral(" (") + label->toolTip() + QLatin1Char(')'));
        else if (auto* button = qobject_cast<QPushButton*>(w))
            texts.append(button->text());
        else
            texts.append(QLatin1Char('[') + w->toolTip() + QLatin1Char(']'));
    }
    return texts;
}

struct Screen {
    ShortcutStore store{false};
    ShortcutSettingsWindow window{store};

    Screen()
    {
        activate(window);
        QApplication::processEvents();  // lays out the rows
    }
    void click(const QString& name) { QTest::mouseClick(child<QAbstractButton>(window, name), Qt::LeftButton); }
};

} // namespace

// While recording, the screen takes every press, even from a focused text field; Escape ends the
// recording with nothing added and leaves the window open.
TEST(ShortcutSettings, RecordsFromTheScreenEvenWithATextFieldFocused)
{
    Screen screen;
    auto* field = new QLineEdit(&screen.window);
    field->show();
    EXPECT_EQ(rowTexts(screen.window, ActionID::rating5), (QStringList{"5 (Atajo básico)", "⇧5 (Atajo básico)", "Añadir"}));

    screen.click(QStringLiteral("add-copy"));
    QApplication::processEvents();
    EXPECT_EQ(rowTexts(screen.window, ActionID::copy), QStringList{"Pulsa tecla / botón…"});
    EXPECT_TRUE(screen.window.keyboardInput()->capturing());
    field->setFocus();
    pressKey(&screen.window, KEY_K, Qt::Key_K, QStringLiteral("k"));
    EXPECT_EQ(field->text(), QString());
    EXPECT_EQ(screen.store.profile().action(InputTrigger::key(40, 0, {})), ActionID::copy);
    EXPECT_FALSE(screen.window.keyboardInput()->capturing());
    QApplication::processEvents();
    EXPECT_EQ(rowTexts(screen.window, ActionID::copy), (QStringList{"K", "[Quitar este atajo adicional]", "Añadir"}));
    pressKey(&screen.window, KEY_J, Qt::Key_J, QStringLiteral("j"));
    EXPECT_EQ(field->text(), QStringLiteral("j")) << "not recording: the field types again";

    screen.click(QStringLiteral("add-move"));
    pressKey(&screen.window, KEY_ESC, Qt::Key_Escape);
    EXPECT_FALSE(screen.store.recording().has_value());
    EXPECT_TRUE(screen.window.isVisible());
    QApplication::processEvents();
    EXPECT_EQ(rowTexts(screen.window, ActionID::move), QStringList{"Añadir"});
}

TEST(ShortcutSettings, ConflictsAndErrorsShowInTheirBarsAndResetKeepsOnlyTheBasicShortcuts)
{
    Screen screen;
    screen.click(QStringLiteral("add-next"));
    QTest::mousePress(screen.window.windowHandle(), Qt::BackButton, {}, QPoint(40, 40));
    EXPECT_EQ(screen.store.profile().action(back), ActionID::next);

    screen.click(QStringLiteral("add-previous"));
    QTest::mousePress(screen.window.windowHandle(), Qt::BackButton, {}, QPoint(40, 40));
    QApplication::processEvents();
    auto* bar = child<QWidget>(screen.window, "conflictBar");
    ASSERT_TRUE(bar->isVisible());
    EXPECT_TRUE(child<QLabel>(screen.window, "conflictText")->text().contains(QStringLiteral("Ya está asignado a Foto siguiente")));
    screen.click(QStringLiteral("replaceConflict"));
    EXPECT_EQ(screen.store.profile().action(back), ActionID::previous);
    EXPECT_FALSE(bar->isVisible());
    QApplication::processEvents();
    EXPECT_TRUE(rowTexts(screen.window, ActionID::previous).contains(QStringLiteral("Ratón 4")));

    screen.click(QStringLiteral("add-copy"));
    pressKey(&screen.window, KEY_G, Qt::Key_G, QStringLiteral("g"));
    EXPECT_TRUE(child<QWidget>(screen.window, "errorBar")->isVisible());
    EXPECT_EQ(child<QLabel>(screen.window, "errorText")->text(),
              QStringLiteral("Este atajo básico se conserva para Alternar hoja de contactos"));
    screen.click(QStringLiteral("add-copy"));
    QTest::mousePress(screen.window.windowHandle(), Qt::ForwardButton, {}, QPoint(40, 40));
    EXPECT_FALSE(child<QWidget>(screen.window, "errorBar")->isVisible());

    screen.click(QStringLiteral("reset"));
    EXPECT_EQ(screen.store.profile(), ShortcutProfile::defaults());
    QApplication::processEvents();
    const QList<QToolButton*> buttons = screen.window.findChildren<QToolButton*>();
    EXPECT_EQ(std::count_if(buttons.begin(), buttons.end(), [](QToolButton* b) { return b->isVisible(); }), 0);
}

TEST(ShortcutSettings, ExportProposesItsNameAndWritesTheProfileInForce)
{
    Sandbox sandbox;
    Screen screen;
    screen.store.startRecording(ActionID::move);
    screen.store.capture(back);
    screen.click(QStringLiteral("export"));
    auto* save = screen.window.findChild<QFileDialog*>();
    ASSERT_NE(save, nullptr);
    EXPECT_TRUE(save->selectedFiles().value(0).endsWith(QStringLiteral("/Vantelor-shortcuts.json")));
    save->setDirectory(sandbox.path());
    save->selectFile(ShortcutProfileFile::suggestedName);
    static_cast<QDialog*>(save)->accept();
    const QString file = sandbox.file(ShortcutProfileFile::suggestedName);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ShortcutProfileFile::read(file).ok(); }));
    expectSameProfile(*ShortcutProfileFile::read(file), screen.store.profile());
}

TEST(ShortcutSettings, PresentShowsOneWindowWhoseClosingEndsRecording)
{
    ShortcutStore store(false);
    QWidget main;
    QAction* preferences = ShortcutSettingsWindow::preferencesAction(store, &main);
    EXPECT_EQ(preferences->menuRole(), QAction::PreferencesRole);
    preferences->trigger();
    ShortcutSettingsWindow* first = ShortcutSettingsWindow::presented();
    ASSERT_NE(first, nullptr);
    ShortcutSettingsWindow::present(store, &main);
    EXPECT_EQ(ShortcutSettingsWindow::presented(), first);
    EXPECT_TRUE(first->isVisible());
    store.startRecording(ActionID::copy);
    first->close();  // deletes itself
    EXPECT_FALSE(store.recording().has_value());
    QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(ShortcutSettingsWindow::presented(), nullptr);
}
