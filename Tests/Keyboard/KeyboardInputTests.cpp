#include <functional>

#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QApplication>
#include <QDateTimeEdit>
#include <QDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

#include "FocusInputView.h"
#include "Input/InputTestSupport.h"
#include "Input/ShortcutProfile.h"
#include "KeyboardInput.h"
#include "KeyboardTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

constexpr quint64 shift = InputTrigger::shiftModifier;
constexpr quint64 option = InputTrigger::optionModifier;
constexpr quint64 command = InputTrigger::commandModifier;

// A browser window in miniature: a search field and other editable controls, a button, an area
// that takes no focus, and the capture dispatching through the default profile plus one side
// button. Every action run is recorded.
struct Browser {
    QWidget window;
    QLineEdit* search = new QLineEdit(&window);
    QLineEdit* readOnly = new QLineEdit(&window);
    QSpinBox* spin = new QSpinBox(&window);
    QDateTimeEdit* date = new QDateTimeEdit(&window);
    QPlainTextEdit* notes = new QPlainTextEdit(&window);
    QPushButton* button = new QPushButton(QStringLiteral("Filtrar"), &window);
    QLabel* canvas = new QLabel(QStringLiteral("foto"), &window);
    ShortcutProfile profile = ShortcutProfile::defaults();
    QList<ActionID> ran;
    QList<InputTrigger> offered;
    KeyboardInput* input;

    Browser()
    {
        auto* layout = new QVBoxLayout(&window);
        readOnly->setReadOnly(true);
        canvas->setMinimumSize(200, 120);
        for (QWidget* w : std::initializer_list<QWidget*>{search, readOnly, spin, date, notes, button, canvas})
            layout->addWidget(w);
        EXPECT_TRUE(profile.bind(InputTrigger::mouse(3, 0, {}), ActionID::next, false).ok());
        input = new KeyboardInput(&window, [this](const InputTrigger& trigger) {
            offered.append(trigger);
            const std::optional<ActionID> action = profile.action(trigger);
            if (action)
                ran.append(*action);
            return action.has_value();
        });
    }
};

} // namespace

// Keys by their physical key, whatever the layout typed; buttons other than left and right.
TEST(EventConversion, PressesBecomeTriggersAndEverythingElseIsIgnored)
{
    const auto key = [](QEvent::Type type, quint32 scanCode, Qt::Key k, const char* text, Qt::KeyboardModifiers modifiers) {
        return std::shared_ptr<QInputEvent>(new QKeyEvent(type, k, modifiers, scanCode, 0, 0, QString::fromUtf8(text)));
    };
    const auto mouse = [](QEvent::Type type, Qt::MouseButton button, Qt::KeyboardModifiers modifiers) {
        return std::shared_ptr<QInputEvent>(new QMouseEvent(type, QPointF(3, 3), QPointF(3, 3), button, button, modifiers));
    };
    struct Row {
        const char* name;
        std::shared_ptr<QInputEvent> event;
        std::optional<InputTrigger> expected;
    };
    const Row rows[] = {
        {"Ctrl+Shift+S", key(QEvent::KeyPress, KEY_S + 8, Qt::Key_S, "S", Qt::ControlModifier | Qt::ShiftModifier),
         InputTrigger::key(1, shift | command, QStringLiteral("⇧⌘S"))},
        {"Shift+5 shows 5, not the % it typed", key(QEvent::KeyPress, KEY_5 + 8, Qt::Key_Percent, "%", Qt::ShiftModifier),
         InputTrigger::key(23, shift, QStringLiteral("⇧5"))},
        {"keypad bit dropped", key(QEvent::KeyPress, KEY_MINUS + 8, Qt::Key_Minus, "-", Qt::KeypadModifier),
         InputTrigger::key(27, 0, QStringLiteral("-"))},
        {"Alt+Return", key(QEvent::KeyPress, KEY_ENTER + 8, Qt::Key_Return, "\r", Qt::AltModifier),
         InputTrigger::key(36, option, QStringLiteral("⌥Intro"))},
        {"Shift alone", key(QEvent::KeyPress, KEY_LEFTSHIFT + 8, Qt::Key_Shift, "", Qt::ShiftModifier), std::nullopt},
        {"synthetic, no scan code", key(QEvent::KeyPress, 0, Qt::Key_5, "5", Qt::NoModifier), std::nullopt},
        {"key release", key(QEvent::KeyRelease, KEY_5 + 8, Qt::Key_5, "5", Qt::NoModifier), std::nullopt},
        {"middle", mouse(QEvent::MouseButtonPress, Qt::MiddleButton, Qt::NoModifier), InputTrigger::mouse(2, 0, QStringLiteral("Ratón 3"))},
        {"Ctrl+back", mouse(QEvent::MouseButtonPress, Qt::BackButton, Qt::ControlModifier),
         InputTrigger::mouse(3, command, QStringLiteral("⌘Ratón 4"))},
        {"fourth extra", mouse(QEvent::MouseButtonPress, Qt::ExtraButton4, Qt::NoModifier), InputTrigger::mouse(6, 0, QStringLiteral("Ratón 7"))},
        {"left", mouse(QEvent::MouseButtonPress, Qt::LeftButton, Qt::NoModifier), std::nullopt},
        {"right", mouse(QEvent::MouseButtonPress, Qt::RightButton, Qt::NoModifier), std::nullopt},
        {"release of back", mouse(QEvent::MouseButtonRelease, Qt::BackButton, Qt::NoModifier), std::nullopt},
        {"double click of back", mouse(QEvent::MouseButtonDblClick, Qt::BackButton, Qt::NoModifier), std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::optional<InputTrigger> trigger = KeyboardInput::trigger(row.event.get());
        ASSERT_EQ(trigger.has_value(), row.expected.has_value());
        if (trigger) {
            EXPECT_EQ(*trigger, *row.expected);
            EXPECT_EQ(trigger->display, row.expected->display);
        }
    }
}

TEST(EventCapture, TextFieldsBeingEditedKeepTheirKeysUnlessCapturing)
{
    struct Row {
        const char* name;
        std::function<QWidget*(Browser&)> focus;
        bool capturing;
        bool rated;  // the 5 reached rating5 and was swallowed
    };
    const auto field = [](auto member) { return [member](Browser& b) -> QWidget* { return b.*member; }; };
    const Row rows[] = {
        {"button", field(&Browser::button), false, true},
        {"search field", field(&Browser::search), false, false},
        {"read-only field", field(&Browser::readOnly), false, true},
        {"spin box", field(&Browser::spin), false, false},
        {"date field", field(&Browser::date), false, false},
        {"notes", field(&Browser::notes), false, false},
        {"search field, capturing", field(&Browser::search), true, true},
        {"spin box, capturing", field(&Browser::spin), true, true},
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

TEST(EventCapture, PressesTheActionDoesNotTakeReachTheWidgets)
{
    Browser browser;
    browser.input->setCapturing(true);
    activate(browser.window);
    browser.search->setFocus();
    pressKey(&browser.window, KEY_K, Qt::Key_K, QStringLiteral("k"));  // bound to nothing
    pressKey(&browser.window, KEY_1, Qt::Key_1, QStringLiteral("1"));
    clickButton(&browser.window, Qt::MiddleButton);  // bound to nothing
    EXPECT_EQ(browser.search->text(), QStringLiteral("k"));
    EXPECT_EQ(browser.ran, QList<ActionID>{ActionID::rating1});
    // Each press is offered once, not again for every widget Qt passes it on to.
    EXPECT_EQ(browser.offered, (QList<InputTrigger>{InputTrigger::key(40, 0, {}), InputTrigger::key(18, 0, {}),
                                                    InputTrigger::mouse(2, 0, {})}));
}

TEST(EventCapture, NothingFiresWhileTheWindowIsInactiveOrADialogIsOpen)
{
    Browser browser;
    QWidget other;
    activate(browser.window);
    browser.button->setFocus();

    activate(other);
    pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
    clickButton(&browser.window, Qt::BackButton);
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
        clickButton(&browser.window, Qt::BackButton);
        EXPECT_TRUE(browser.ran.isEmpty());
        dialog.close();
    }

    // A sheet over another window does not block this one.
    QDialog sheet(&other);
    sheet.setWindowModality(Qt::WindowModal);
    sheet.open();
    activate(browser.window);
    pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
    EXPECT_EQ(browser.ran, QList<ActionID>{ActionID::rating5});
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
            clickButton(&browser.window, Qt::BackButton, Qt::NoModifier, browser.canvas->geometry().center());
            expected.append(ActionID::next);
        }
        pressKey(&browser.window, KEY_LEFT, Qt::Key_Left, {}, Qt::NoModifier, i > 0);
        expected.append(ActionID::previous);
    }
    EXPECT_EQ(browser.ran, expected);
}

TEST(EventCapture, StopsWithItsView)
{
    QList<ActionID> ran;
    QWidget window;
    auto* view = new QWidget(&window);
    new KeyboardInput(view, [&ran](const InputTrigger&) {
        ran.append(ActionID::next);
        return true;
    });
    activate(window);
    delete view;
    pressKey(&window, KEY_RIGHT, Qt::Key_Right);
    EXPECT_TRUE(ran.isEmpty());
}

TEST(FocusKeeper, AClickOutsideTheSearchFieldGivesTheKeysBackToTheBrowser)
{
    Browser browser;
    activate(browser.window);
    browser.search->setFocus();
    pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
    ASSERT_EQ(browser.search->text(), QStringLiteral("5"));

    QSignalSpy took(browser.input->focusView(), &FocusInputView::tookFocus);
    QTest::mouseClick(browser.canvas, Qt::LeftButton);  // the photo takes no focus itself
    ASSERT_TRUE(took.wait());
    pressKey(&browser.window, KEY_5, Qt::Key_5, QStringLiteral("5"));
    EXPECT_EQ(browser.search->text(), QStringLiteral("5"));
    EXPECT_EQ(browser.ran, QList<ActionID>{ActionID::rating5});
}

TEST(FocusKeeper, TheFocusStaysWhereTheUserWentOrWhileADialogIsOpen)
{
    Browser browser;
    activate(browser.window);
    FocusInputView* keeper = browser.input->focusView();

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
    QSignalSpy took(keeper, &FocusInputView::tookFocus);
    browser.input->prepareNavigation();
    ASSERT_TRUE(took.wait());
    EXPECT_EQ(QApplication::focusWidget(), keeper);
}

TEST(FocusKeeper, AnInputAddedToAWindowOnScreenTakesTheFocus)
{
    QWidget window;
    activate(window);
    auto* input = new KeyboardInput(&window, [](const InputTrigger&) { return false; });
    QSignalSpy took(input->focusView(), &FocusInputView::tookFocus);
    ASSERT_TRUE(took.wait());
    EXPECT_EQ(QApplication::focusWidget(), input->focusView());
}
