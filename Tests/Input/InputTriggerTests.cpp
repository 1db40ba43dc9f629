#include <gtest/gtest.h>

#include <set>

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
        {"Super is Control", KEY_G, "g", Qt::MetaModifier, 5, control, "⌃G"},
        {"Alt is Option; keypad and group bits dropped", KEY_G, "g",
         Qt::AltModifier | Qt::KeypadModifier | Qt::GroupSwitchModifier, 5, option, "⌥G"},
        {"shifted digit shows the unshifted character", KEY_5, "5", Qt::ShiftModifier, 23, shift, "⇧5"},
        {"left", KEY_LEFT, "", Qt::NoModifier, 123, 0, "←"},
        {"return", KEY_ENTER, "\r", Qt::NoModifier, 36, 0, "Intro"},
        {"space", KEY_SPACE, " ", Qt::ControlModifier, 49, command, "⌘Espacio"},
        {"F5 types nothing", KEY_F5, "", Qt::NoModifier, 96, 0, "Tecla 96"},
        {"tab types a control character", KEY_TAB, "\t", Qt::NoModifier, 48, 0, "Tecla 48"},
        {"Spanish layout, key beside L", KEY_SEMICOLON, "ñ", Qt::NoModifier, 41, 0, "Ñ"},
        {"French layout, A key types q", KEY_A, "q", Qt::NoModifier, 0, 0, "Q"},
    };
    for (const Row& row : rows) {
        const std::optional<InputTrigger> trigger =
            InputTrigger::fromKeyPress(scan(row.evdev), QString::fromUtf8(row.text), row.modifiers);
        ASSERT_TRUE(trigger) << row.name;
        EXPECT_EQ(trigger->kind, InputTrigger::Kind::key) << row.name;
        EXPECT_EQ(trigger->code, row.code) << row.name;
        EXPECT_EQ(trigger->modifiers, row.bits) << row.name;
        EXPECT_EQ(trigger->display, QString::fromUtf8(row.display)) << row.name;
    }
}

TEST(KeyPress, NoTriggerForModifiersAloneSyntheticOrForeignKeys)
{
    for (quint32 evdev : {KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_RIGHTALT,
                          KEY_LEFTMETA, KEY_RIGHTMETA, KEY_CAPSLOCK})
        EXPECT_FALSE(InputTrigger::fromKeyPress(scan(evdev), {}, Qt::ControlModifier)) << evdev;
    // Synthetic events carry no scan code.
    for (quint32 native : {0u, 1u, 7u})
        EXPECT_FALSE(InputTrigger::fromKeyPress(native, QStringLiteral("a"), Qt::NoModifier)) << native;
    for (quint32 evdev : {quint32(KEY_F21), quint32(KEY_PLAYPAUSE), quint32(KEY_BRIGHTNESSUP), quint32(KEY_RESERVED),
                          quint32(KEY_MAX), 0xFFFFFFu})
        EXPECT_FALSE(InputTrigger::fromKeyPress(scan(evdev), QStringLiteral("x"), Qt::NoModifier)) << evdev;
    EXPECT_FALSE(InputTrigger::fromKeyPress(0xFFFFFFFFu, QStringLiteral("x"), Qt::NoModifier));
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
        {-1, Qt::NoModifier, nullptr, 0},
        {2, Qt::NoModifier, "Ratón 3", 0},
        {4, Qt::ControlModifier | Qt::ShiftModifier, "⇧⌘Ratón 5", shift | command},
        {8, Qt::MetaModifier | Qt::AltModifier, "⌃⌥Ratón 9", control | option},
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
        EXPECT_EQ(trigger->kind, InputTrigger::Kind::mouse);
        EXPECT_EQ(trigger->code, row.button);
        EXPECT_EQ(trigger->modifiers, row.bits);
        EXPECT_EQ(trigger->display, QString::fromUtf8(row.display));
        const ShortcutProfile alone{1, {{ActionID::copy, *trigger}}};
        EXPECT_TRUE(alone.validated().ok()) << row.button;
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

// The table itself is data; what matters is that it is a function both ways and covers a keyboard.
TEST(KeyCodeTable, EveryPcKeyHasOneCodeAndLookupsAgree)
{
    const auto entries = KeyCodeTable::entries();
    for (size_t i = 1; i < entries.size(); ++i)
        EXPECT_LT(entries[i - 1].evdev, entries[i].evdev) << "entry " << i;
    for (const KeyCodeTable::Entry& entry : entries) {
        EXPECT_EQ(KeyCodeTable::profileCode(entry.evdev), entry.code);
        EXPECT_EQ(KeyCodeTable::profileCodeForScanCode(scan(entry.evdev)), entry.code);
        EXPECT_LE(entry.code, 0x7E);
    }
    for (quint32 missing : {0u, 84u, 255u, 65535u, 0xFFFFFFFFu})
        EXPECT_FALSE(KeyCodeTable::profileCode(missing)) << missing;
    EXPECT_FALSE(KeyCodeTable::profileCodeForScanCode(7));

    std::set<quint32> pcKeys = {KEY_ESC, KEY_MINUS, KEY_EQUAL, KEY_BACKSPACE, KEY_TAB, KEY_ENTER, KEY_GRAVE, KEY_102ND,
        KEY_SPACE, KEY_SYSRQ, KEY_PAUSE, KEY_INSERT, KEY_DELETE, KEY_UP, KEY_RIGHT, KEY_KPENTER, KEY_KPCOMMA, KEY_RO, KEY_YEN};
    for (quint32 k = KEY_1; k <= KEY_0; ++k)
        pcKeys.insert(k);
    for (quint32 k = KEY_F1; k <= KEY_F10; ++k)
        pcKeys.insert(k);
    for (quint32 k = KEY_KP7; k <= KEY_KPDOT; ++k)
        pcKeys.insert(k);
    for (quint32 evdev : pcKeys) {
        EXPECT_TRUE(KeyCodeTable::profileCode(evdev)) << "evdev " << evdev;
        EXPECT_FALSE(KeyCodeTable::isModifierKey(evdev)) << "evdev " << evdev;
    }
    for (quint32 evdev : {KEY_LEFTCTRL, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_RIGHTMETA, KEY_CAPSLOCK}) {
        EXPECT_TRUE(KeyCodeTable::isModifierKey(evdev)) << evdev;
        EXPECT_FALSE(KeyCodeTable::profileCode(evdev)) << evdev;
    }
    // A few places pinned: the key space is the one profile files share with other computers.
    const std::tuple<quint32, quint16, const char*> pinned[] = {
        {KEY_A, 0, "a"}, {KEY_5, 23, "5"}, {KEY_102ND, 10, "<"}, {KEY_ENTER, 36, ""}, {KEY_LEFT, 123, ""}, {KEY_KP7, 89, "7"}};
    for (const auto& [evdev, code, us] : pinned) {
        EXPECT_EQ(KeyCodeTable::profileCode(evdev), code) << evdev;
        EXPECT_EQ(KeyCodeTable::usText(code), QString::fromLatin1(us)) << evdev;
    }
}
