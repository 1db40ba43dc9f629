#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

#include "KeyboardInput.h"
#include "KeyboardTestSupport.h"
#include "Model/ShortcutStore.h"
#include "ShortcutSettingsWindow.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

// A browser window in miniature: a search field and other editable controls, a button, an area
// that takes no focus, and the capture dispatching through the default profile plus one side
// button. Every action run is recorded.
struct Browser {
    QWidget window;
    QLineEdit* search = new QLineEdit(&window);
    QLineEdit* readOnly = new QLineEdit(&window);
    QSpinBox* spin = new QSpinBox(&window);
    QPlainTextEdit* notes = new QPlainTextEdit(&window);
    QPushButton* button = new QPushButton(QStringLiteral("Filtrar"), &window);
    QLabel* canvas = new QLabel(QStringLiteral("foto"), &window);
    ShortcutProfile profile = ShortcutProfile::defaults();
    QList<ActionID> ran;
    KeyboardInput* input;

    Browser()
    {
        auto* layout = new QVBoxLayout(&window);
        readOnly->setReadOnly(true);
        canvas->setMinimumSize(200, 120);
        for (QWidget* w : std::initializer_list<QWidget*>{search, readOnly, spin, notes, button, canvas})
            layout->addWidget(w);
        EXPECT_TRUE(profile.bind(InputTrigger::mouse(3, 0, {}), ActionID::next, false).ok());
        input = new KeyboardInput(&window, [this](const InputTrigger& trigger) {
            const std::optional<ActionID> action = profile.action(trigger);
            if (action)
                ran.append(*action);
            return action.has_value();
        });
    }
};

template <typename T>
T* child(const QWidget& window, const QString& name)
{
    T* found = window.findChild<T*>(name);
    EXPECT_NE(found, nullptr) << name.toStdString();
    return found;
}

} // namespace

TEST(EventCapture, TextFieldsBeingEditedKeepTheirKeysUnlessCapturing)
{
    // rated: the 5 reached rating5 and was swallowed.
    struct Row { const char* name; std::function<QWidget*(Browser&)> focus; bool capturing; bool rated; };
    const auto field = [](auto member) { return [member](Browser& b) -> QWidget* { return b.*member; }; };
    const Row rows[] = {
        {"button", field(&Browser::button), false, true},
        {"search field", field(&Browser::search), false, false},
        {"read-only field", field(&Browser::readOnly), false, true},
        {"spin box", field(&Browser::spin), false, false},
        {"notes", field(&Browser::notes), false, false},
        {"search field, capturing", field(&Browser::search), true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Browser browser;
        browser.input->setCapturing(row.capturing);
        activate(browser.window);
        QWidget* focus = row.focus(browser);
        focus->setFocus();
        ASSERT_EQ(QApplication::focusWidget(), focus);
        pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
        EXPECT_EQ(browser.ran, row.rated ? QList<ActionID>{ActionID::rating5} : QList<ActionID>{});
        EXPECT_EQ(browser.search->text(), focus == browser.search && !row.rated ? QStringLiteral("5") : QString());
    }
}

TEST(EventCapture, NothingFiresWhileTheWindowIsInactiveOrADialogIsOpen)
{
    Browser browser;
    QWidget other;
    activate(browser.window);
    browser.button->setFocus();

    activate(other);
    pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
    EXPECT_TRUE(browser.ran.isEmpty());

    for (const Qt::WindowModality modality : {Qt::WindowModal, Qt::ApplicationModal}) {
        SCOPED_TRACE(modality == Qt::WindowModal ? "sheet" : "modal dialog");
        QDialog dialog(&browser.window);
        dialog.setWindowModality(modality);
        dialog.open();
        // Even with the browser window active again, the open dialog keeps shortcuts away.
        QApplication::setActiveWindow(&browser.window);
        ASSERT_EQ(QApplication::activeWindow(), &browser.window);
        pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
        EXPECT_TRUE(browser.ran.isEmpty());
        dialog.close();
    }
}

TEST(EventCapture, FastRepeatsAndSideButtonsActOncePerPress)
{
    Browser browser;
    activate(browser.window);
    // The focus on a widget that ignores keys: Qt passes each press up through its parents.
    browser.canvas->setFocusPolicy(Qt::StrongFocus);
    browser.canvas->setFocus();
    QList<ActionID> expected;
    for (int i = 0; i < 60; ++i) {
        pressKey(&browser.window, KEY_RIGHT, Qt::Key_Right, {}, Qt::NoModifier, /*repeat=*/i > 0);
        expected.append(ActionID::next);
        if (i % 3 == 0) {
            // Faster than a double click: Qt adds a double-click event to every second press.
            QTest::mousePress(browser.window.windowHandle(), Qt::BackButton, {}, browser.canvas->geometry().center());
            QTest::mouseRelease(browser.window.windowHandle(), Qt::BackButton, {}, browser.canvas->geometry().center());
            expected.append(ActionID::next);
        }
        pressKey(&browser.window, KEY_LEFT, Qt::Key_Left, {}, Qt::NoModifier, i > 0);
        expected.append(ActionID::previous);
    }
    EXPECT_EQ(browser.ran, expected);
}

TEST(FocusKeeper, AClickOutsideTheSearchFieldGivesTheKeysBackToTheBrowser)
{
    Browser browser;
    activate(browser.window);
    browser.search->setFocus();
    FocusInputView* keeper = browser.input->focusView();
    QSignalSpy took(keeper, &FocusInputView::tookFocus);
    QTest::mouseClick(browser.canvas, Qt::LeftButton);  // the photo takes no focus itself
    ASSERT_TRUE(took.wait());
    pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
    EXPECT_EQ(browser.ran, QList<ActionID>{ActionID::rating5}) << "the search field lost the key";

    // But the focus stays where the user went, or while a dialog is open.
    // The canvas, then at once the search field: typing there must not be interrupted.
    browser.search->setFocus();
    QTest::mouseClick(browser.canvas, Qt::LeftButton);
    QTest::mouseClick(browser.search, Qt::LeftButton);
    waitPastFocusDelay();
    EXPECT_EQ(QApplication::focusWidget(), browser.search);

    QDialog sheet(&browser.window);
    sheet.setWindowModality(Qt::WindowModal);
    sheet.open();
    QApplication::setActiveWindow(&browser.window);
    keeper->prepareNavigation();
    waitPastFocusDelay();
    EXPECT_NE(QApplication::focusWidget(), keeper);
    sheet.close();

    activate(browser.window);
    took.clear();
    browser.input->prepareNavigation();
    ASSERT_TRUE(took.wait());
    EXPECT_EQ(QApplication::focusWidget(), keeper);
}

// While recording, the screen takes every press, even from a focused text field; Escape ends the
// recording with nothing added and leaves the window open. The store's conflicts and refusals
// show in their bars, and a reset leaves only the basic shortcuts.
TEST(ShortcutSettings, RecordsFromTheScreenAndShowsConflictsAndRefusals)
{
    ShortcutStore store(false);
    ShortcutSettingsWindow window(store);
    activate(window);
    QApplication::processEvents();  // lays out the rows
    const auto click = [&](const QString& name) { QTest::mouseClick(child<QAbstractButton>(window, name), Qt::LeftButton); };
    auto* field = new QLineEdit(&window);
    field->show();

    click(QStringLiteral("add-copy"));
    QApplication::processEvents();
    field->setFocus();
    pressKey(&window, KEY_K, Qt::Key_K, QStringLiteral("k"));
    EXPECT_EQ(field->text(), QString());
    EXPECT_EQ(store.profile().action(InputTrigger::key(40, 0, {})), ActionID::copy);
    pressKey(&window, KEY_J, Qt::Key_J, QStringLiteral("j"));
    EXPECT_EQ(field->text(), QStringLiteral("j")) << "not recording: the field types again";

    click(QStringLiteral("add-move"));
    pressKey(&window, KEY_ESC, Qt::Key_Escape);
    EXPECT_FALSE(store.recording().has_value());
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(store.profile().bindings.size(), ShortcutProfile::defaults().bindings.size() + 1) << "only K was added";

    click(QStringLiteral("add-previous"));
    pressKey(&window, KEY_K, Qt::Key_K, QStringLiteral("k"));
    QApplication::processEvents();
    auto* bar = child<QWidget>(window, "conflictBar");
    ASSERT_TRUE(bar->isVisible());
    EXPECT_TRUE(child<QLabel>(window, "conflictText")->text().contains(store.conflictMessage()));
    click(QStringLiteral("replaceConflict"));
    EXPECT_EQ(store.profile().action(InputTrigger::key(40, 0, {})), ActionID::previous);
    EXPECT_FALSE(bar->isVisible());

    click(QStringLiteral("add-copy"));
    pressKey(&window, KEY_G, Qt::Key_G, QStringLiteral("g"));
    EXPECT_TRUE(child<QWidget>(window, "errorBar")->isVisible());
    EXPECT_EQ(child<QLabel>(window, "errorText")->text(), QStringLiteral("Este atajo básico se conserva para Alternar hoja de contactos"));
    click(QStringLiteral("add-copy"));
    QTest::mousePress(window.windowHandle(), Qt::ForwardButton, {}, QPoint(40, 40));
    EXPECT_FALSE(child<QWidget>(window, "errorBar")->isVisible());
    EXPECT_EQ(store.profile().action(InputTrigger::mouse(4, 0, {})), ActionID::copy);

    click(QStringLiteral("reset"));
    EXPECT_EQ(store.profile(), ShortcutProfile::defaults());
    QApplication::processEvents();
    const QList<QToolButton*> buttons = window.findChildren<QToolButton*>();
    EXPECT_EQ(std::count_if(buttons.begin(), buttons.end(), [](QToolButton* b) { return b->isVisible(); }), 0);
}
