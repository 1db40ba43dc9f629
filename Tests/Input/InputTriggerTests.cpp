#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include "Input/KeyCodeTable.h"
#include "Input/ShortcutProfile.h"
#include "InputTestSupport.h"

using namespace vantelor;

namespace {

// Qt's native scan code on X11 and Wayland is the evdev code + 8.
quint32 scan(quint32 evdev)
{
    return evdev + 8;
}

constexpr quint64 shift = InputTrigger::shiftModifier;
constexpr quint64 control = InputTrigger::controlModifier;
constexpr quint64 option = InputTrigger::optionModifier;
constexpr quint64 command = InputTrigger::commandModifier;

} // namespace

TEST(KeyPress, BuildsCodeModifiersAndDisplay)
{
    struct Row {
        const char* name;
        quint32 evdev;
        const char* text;
        Qt::KeyboardModifiers modifiers;
        quint16 code;
        quint64 bits;
        const char* display;
    };
    const Row rows[] = {
        {"Ctrl+Shift+S", KEY_S, "s", Qt::ControlModifier | Qt::ShiftModifier, 1, shift | command, "⇧⌘S"},
        {"prefix order", KEY_O, "o", Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier, 31,
         control | option | shift | command, "⌃⌥⇧⌘O"},
        {"Alt is Option; keypad and group bits dropped", KEY_G, "g",
         Qt::AltModifier | Qt::KeypadModifier | Qt::GroupSwitchModifier, 5, option, "⌥G"},
        {"shifted digit shows the unshifted character", KEY_5, "5", Qt::ShiftModifier, 23, shift, "⇧5"},
        {"return", KEY_ENTER, "\r", Qt::NoModifier, 36, 0, "Intro"},
        {"space", KEY_SPACE, " ", Qt::ControlModifier, 49, command, "⌘Espacio"},
        {"F5 types nothing", KEY_F5, "", Qt::NoModifier, 96, 0, "Tecla 96"},
        {"Spanish layout, key beside L", KEY_SEMICOLON, "ñ", Qt::NoModifier, 41, 0, "Ñ"},
        {"French layout, A key types q", KEY_A, "q", Qt::NoModifier, 0, 0, "Q"},
    };
    for (const Row& row : rows) {
        const std::optional<InputTrigger> trigger =
            InputTrigger::fromKeyPress(scan(row.evdev), QString::fromUtf8(row.text), row.modifiers);
        ASSERT_TRUE(trigger) << row.name;
        EXPECT_EQ(*trigger, InputTrigger::key(row.code, row.bits, {})) << row.name;
        EXPECT_EQ(trigger->display, QString::fromUtf8(row.display)) << row.name;
    }
}

TEST(KeyPress, NoTriggerForModifiersAloneSyntheticOrForeignKeys)
{
    for (quint32 evdev : {KEY_LEFTCTRL, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_RIGHTMETA, KEY_CAPSLOCK})
        EXPECT_FALSE(InputTrigger::fromKeyPress(scan(evdev), {}, Qt::ControlModifier)) << evdev;
    // Synthetic events carry no scan code.
    for (quint32 native : {0u, 7u, scan(KEY_F21), scan(KEY_PLAYPAUSE), scan(KEY_MAX), 0xFFFFFFFFu})
        EXPECT_FALSE(InputTrigger::fromKeyPress(native, QStringLiteral("x"), Qt::NoModifier)) << native;
}

TEST(KeyPress, EveryDefaultIsReachableFromAPcKeyboard)
{
    // What a press of each default shortcut on a US PC keyboard turns into, and the action it finds.
    const ShortcutProfile& defaults = ShortcutProfile::defaults();
    for (const ShortcutBinding& binding : defaults.bindings) {
        quint32 evdev = 0;
        for (const KeyCodeTable::Entry& entry : KeyCodeTable::entries())
            if (entry.code == binding.trigger.code && evdev == 0)
                evdev = entry.evdev;
        ASSERT_NE(evdev, 0u) << binding.trigger.display.toStdString();
        Qt::KeyboardModifiers modifiers;
        if (binding.trigger.modifiers & shift)
            modifiers |= Qt::ShiftModifier;
        if (binding.trigger.modifiers & command)
            modifiers |= Qt::ControlModifier;
        const auto trigger =
            InputTrigger::fromKeyPress(scan(evdev), KeyCodeTable::usText(binding.trigger.code), modifiers);
        ASSERT_TRUE(trigger);
        EXPECT_EQ(*trigger, binding.trigger);
        EXPECT_EQ(defaults.action(*trigger), binding.action) << binding.trigger.display.toStdString();
        // Only zoom in and out show another glyph than the key types ("=" and "-").
        if (binding.action != ActionID::zoomIn && binding.action != ActionID::zoomOut) {
            EXPECT_EQ(trigger->display, binding.trigger.display);
        }
    }
}

TEST(MouseButton, MiddleAndExtraButtonsOnly)
{
    struct Row {
        int button;
        Qt::KeyboardModifiers modifiers;
        const char* display; // null: no trigger
        quint64 bits;
    };
    const Row rows[] = {
        {0, Qt::NoModifier, nullptr, 0},
        {2, Qt::NoModifier, "Ratón 3", 0},
        {4, Qt::ControlModifier | Qt::ShiftModifier, "⇧⌘Ratón 5", shift | command},
        {65535, Qt::NoModifier, "Ratón 65536", 0},
        {65536, Qt::NoModifier, nullptr, 0},
    };
    for (const Row& row : rows) {
        const std::optional<InputTrigger> trigger = InputTrigger::fromMouseButton(row.button, row.modifiers);
        if (!row.display) {
            EXPECT_FALSE(trigger) << row.button;
            continue;
        }
        ASSERT_TRUE(trigger) << row.button;
        EXPECT_EQ(*trigger, InputTrigger::mouse(quint16(row.button), row.bits, {}));
        EXPECT_EQ(trigger->display, QString::fromUtf8(row.display));
        EXPECT_TRUE((ShortcutProfile{1, {{ActionID::copy, *trigger}}}.validated().ok())) << row.button;
    }
}

TEST(MouseButton, QtButtonFlagsToNumbers)
{
    const std::pair<Qt::MouseButtons, std::optional<int>> rows[] = {
        {Qt::LeftButton, 0}, {Qt::MiddleButton, 2}, {Qt::ForwardButton, 4}, {Qt::ExtraButton24, 26},
        {Qt::NoButton, std::nullopt}, {Qt::LeftButton | Qt::MiddleButton, std::nullopt},
    };
    for (const auto& [buttons, number] : rows)
        EXPECT_EQ(InputTrigger::mouseButtonNumber(buttons), number) << buttons.toInt();
}
