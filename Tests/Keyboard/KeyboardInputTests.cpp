#include <functional>

#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <QVBoxLayout>

#include "FocusInputView.h"
#include "Input/InputTestSupport.h"
#include "Input/ShortcutProfile.h"
#include "KeyboardInput.h"
#include "KeyboardTestSupport.h"

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

} // namespace

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

