#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include "KeyboardInput.h"
#include "KeyboardTestSupport.h"
#include "Model/ShortcutStore.h"
#include "ShortcutSettingsWindow.h"

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

    screen.click(QStringLiteral("add-copy"));
    QApplication::processEvents();
    EXPECT_TRUE(screen.window.keyboardInput()->capturing());
    field->setFocus();
    pressKey(&screen.window, KEY_K, Qt::Key_K, QStringLiteral("k"));
    EXPECT_EQ(field->text(), QString());
    EXPECT_EQ(screen.store.profile().action(InputTrigger::key(40, 0, {})), ActionID::copy);
    EXPECT_FALSE(screen.window.keyboardInput()->capturing());
    pressKey(&screen.window, KEY_J, Qt::Key_J, QStringLiteral("j"));
    EXPECT_EQ(field->text(), QStringLiteral("j")) << "not recording: the field types again";

    screen.click(QStringLiteral("add-move"));
    pressKey(&screen.window, KEY_ESC, Qt::Key_Escape);
    EXPECT_FALSE(screen.store.recording().has_value());
    EXPECT_TRUE(screen.window.isVisible());
    EXPECT_EQ(screen.store.profile().bindings.size(), ShortcutProfile::defaults().bindings.size() + 1) << "only K was added";
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
