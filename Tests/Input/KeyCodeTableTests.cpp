#include <gtest/gtest.h>

#include <map>
#include <set>

#include <linux/input-event-codes.h>

#include "Input/KeyCodeTable.h"
#include "InputTestSupport.h"

using namespace vantelor;

namespace {

// The portable key space, stated from the Apple virtual key list (kVK_…) rather than from the
// table, without the modifier keys (they never make a shortcut alone) and the Fn key (which no
// PC keyboard reports).
const std::map<quint16, const char*> portableKeys = {
    {0x00, "A"}, {0x01, "S"}, {0x02, "D"}, {0x03, "F"}, {0x04, "H"}, {0x05, "G"}, {0x06, "Z"}, {0x07, "X"},
    {0x08, "C"}, {0x09, "V"}, {0x0A, "ISO section"}, {0x0B, "B"}, {0x0C, "Q"}, {0x0D, "W"}, {0x0E, "E"},
    {0x0F, "R"}, {0x10, "Y"}, {0x11, "T"}, {0x12, "1"}, {0x13, "2"}, {0x14, "3"}, {0x15, "4"}, {0x16, "6"},
    {0x17, "5"}, {0x18, "Equal"}, {0x19, "9"}, {0x1A, "7"}, {0x1B, "Minus"}, {0x1C, "8"}, {0x1D, "0"},
    {0x1E, "RightBracket"}, {0x1F, "O"}, {0x20, "U"}, {0x21, "LeftBracket"}, {0x22, "I"}, {0x23, "P"},
    {0x24, "Return"}, {0x25, "L"}, {0x26, "J"}, {0x27, "Quote"}, {0x28, "K"}, {0x29, "Semicolon"},
    {0x2A, "Backslash"}, {0x2B, "Comma"}, {0x2C, "Slash"}, {0x2D, "N"}, {0x2E, "M"}, {0x2F, "Period"},
    {0x30, "Tab"}, {0x31, "Space"}, {0x32, "Grave"}, {0x33, "Delete"}, {0x35, "Escape"}, {0x40, "F17"},
    {0x41, "KeypadDecimal"}, {0x43, "KeypadMultiply"}, {0x45, "KeypadPlus"}, {0x47, "KeypadClear"},
    {0x48, "VolumeUp"}, {0x49, "VolumeDown"}, {0x4A, "Mute"}, {0x4B, "KeypadDivide"}, {0x4C, "KeypadEnter"},
    {0x4E, "KeypadMinus"}, {0x4F, "F18"}, {0x50, "F19"}, {0x51, "KeypadEquals"}, {0x52, "Keypad0"},
    {0x53, "Keypad1"}, {0x54, "Keypad2"}, {0x55, "Keypad3"}, {0x56, "Keypad4"}, {0x57, "Keypad5"},
    {0x58, "Keypad6"}, {0x59, "Keypad7"}, {0x5A, "F20"}, {0x5B, "Keypad8"}, {0x5C, "Keypad9"}, {0x5D, "JIS Yen"},
    {0x5E, "JIS Underscore"}, {0x5F, "JIS KeypadComma"}, {0x60, "F5"}, {0x61, "F6"}, {0x62, "F7"}, {0x63, "F3"},
    {0x64, "F8"}, {0x65, "F9"}, {0x66, "JIS Eisu"}, {0x67, "F11"}, {0x68, "JIS Kana"}, {0x69, "F13"},
    {0x6A, "F16"}, {0x6B, "F14"}, {0x6D, "F10"}, {0x6E, "ContextualMenu"}, {0x6F, "F12"}, {0x71, "F15"},
    {0x72, "Help"}, {0x73, "Home"}, {0x74, "PageUp"}, {0x75, "ForwardDelete"}, {0x76, "F4"}, {0x77, "End"},
    {0x78, "F2"}, {0x79, "PageDown"}, {0x7A, "F1"}, {0x7B, "LeftArrow"}, {0x7C, "RightArrow"},
    {0x7D, "DownArrow"}, {0x7E, "UpArrow"},
};

} // namespace

TEST(KeyCodeTable, CoversThePortableKeySpaceExactly)
{
    std::map<quint16, std::set<quint16>> evdevByCode;
    for (const KeyCodeTable::Entry& entry : KeyCodeTable::entries()) {
        EXPECT_TRUE(portableKeys.count(entry.code)) << "evdev " << entry.evdev << " → " << entry.code;
        evdevByCode[entry.code].insert(entry.evdev);
    }
    for (const auto& [code, name] : portableKeys)
        EXPECT_TRUE(evdevByCode.count(code)) << name << " (" << code << ") has no Linux key";

    // Several Linux keys share a code only where the platforms make them one key.
    const std::map<quint16, std::set<quint16>> shared = {
        {0x69, {KEY_SYSRQ, KEY_F13}},
        {0x6B, {KEY_SCROLLLOCK, KEY_F14}},
        {0x71, {KEY_PAUSE, KEY_F15}},
        {0x72, {KEY_INSERT, KEY_HELP}},
        {0x5F, {KEY_KPJPCOMMA, KEY_KPCOMMA}},
    };
    for (const auto& [code, keys] : evdevByCode)
        if (keys.size() > 1) {
            EXPECT_EQ(keys, shared.count(code) ? shared.at(code) : std::set<quint16>{}) << portableKeys.at(code);
        }
}

TEST(KeyCodeTable, EveryKeyOfAPcKeyboardIsMapped)
{
    // A 105-key ISO keyboard plus the JIS and Korean extras, without its modifier keys.
    std::set<quint32> pcKeys = {KEY_ESC, KEY_MINUS, KEY_EQUAL, KEY_BACKSPACE, KEY_TAB, KEY_LEFTBRACE,
        KEY_RIGHTBRACE, KEY_ENTER, KEY_SEMICOLON, KEY_APOSTROPHE, KEY_GRAVE, KEY_BACKSLASH, KEY_COMMA, KEY_DOT,
        KEY_SLASH, KEY_SPACE, KEY_102ND, KEY_SYSRQ, KEY_SCROLLLOCK, KEY_PAUSE, KEY_INSERT, KEY_HOME, KEY_PAGEUP,
        KEY_DELETE, KEY_END, KEY_PAGEDOWN, KEY_UP, KEY_DOWN, KEY_LEFT, KEY_RIGHT, KEY_NUMLOCK, KEY_KPSLASH,
        KEY_KPASTERISK, KEY_KPMINUS, KEY_KPPLUS, KEY_KPENTER, KEY_KPDOT, KEY_KPEQUAL, KEY_KPCOMMA, KEY_COMPOSE,
        KEY_RO, KEY_YEN, KEY_HANGEUL, KEY_HANJA, KEY_MUTE, KEY_VOLUMEDOWN, KEY_VOLUMEUP};
    for (quint32 k = KEY_1; k <= KEY_0; ++k)
        pcKeys.insert(k);
    for (quint32 k : {KEY_Q, KEY_W, KEY_E, KEY_R, KEY_T, KEY_Y, KEY_U, KEY_I, KEY_O, KEY_P, KEY_A, KEY_S, KEY_D,
                      KEY_F, KEY_G, KEY_H, KEY_J, KEY_K, KEY_L, KEY_Z, KEY_X, KEY_C, KEY_V, KEY_B, KEY_N, KEY_M})
        pcKeys.insert(k);
    for (quint32 k = KEY_F1; k <= KEY_F10; ++k)
        pcKeys.insert(k);
    for (quint32 k = KEY_F13; k <= KEY_F20; ++k)
        pcKeys.insert(k);
    pcKeys.insert({KEY_F11, KEY_F12, KEY_KP0, KEY_KP1, KEY_KP2, KEY_KP3, KEY_KP4, KEY_KP5, KEY_KP6, KEY_KP7,
                   KEY_KP8, KEY_KP9});
    for (quint32 evdev : pcKeys) {
        EXPECT_TRUE(KeyCodeTable::profileCode(evdev)) << "evdev " << evdev;
        EXPECT_FALSE(KeyCodeTable::isModifierKey(evdev)) << "evdev " << evdev;
    }
    for (quint32 evdev : {KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_RIGHTALT,
                          KEY_LEFTMETA, KEY_RIGHTMETA, KEY_CAPSLOCK}) {
        EXPECT_TRUE(KeyCodeTable::isModifierKey(evdev)) << evdev;
        EXPECT_FALSE(KeyCodeTable::profileCode(evdev)) << evdev;
    }
}

TEST(KeyCodeTable, SortedWithoutRepeatsAndLookupsAgree)
{
    const auto entries = KeyCodeTable::entries();
    for (size_t i = 1; i < entries.size(); ++i)
        EXPECT_LT(entries[i - 1].evdev, entries[i].evdev) << "entry " << i;
    for (const KeyCodeTable::Entry& entry : entries) {
        EXPECT_EQ(KeyCodeTable::profileCode(entry.evdev), entry.code);
        EXPECT_EQ(KeyCodeTable::profileCodeForScanCode(entry.evdev + 8u), entry.code);
    }
    for (quint32 missing : {0u, 84u, 255u, 65535u, 0xFFFFFFFFu})
        EXPECT_FALSE(KeyCodeTable::profileCode(missing)) << missing;
    EXPECT_FALSE(KeyCodeTable::profileCodeForScanCode(7));
}

TEST(KeyCodeTable, KnownKeysAndTheirUsText)
{
    struct Row {
        quint32 evdev;
        quint16 code;
        const char* us;
    };
    // Letters and digits in keyboard order, and the keys named elsewhere.
    const Row rows[] = {
        {KEY_A, 0, "a"}, {KEY_S, 1, "s"}, {KEY_D, 2, "d"}, {KEY_F, 3, "f"}, {KEY_G, 5, "g"}, {KEY_H, 4, "h"},
        {KEY_J, 38, "j"}, {KEY_K, 40, "k"}, {KEY_L, 37, "l"}, {KEY_Q, 12, "q"}, {KEY_W, 13, "w"}, {KEY_E, 14, "e"},
        {KEY_R, 15, "r"}, {KEY_T, 17, "t"}, {KEY_Y, 16, "y"}, {KEY_U, 32, "u"}, {KEY_I, 34, "i"}, {KEY_O, 31, "o"},
        {KEY_P, 35, "p"}, {KEY_Z, 6, "z"}, {KEY_X, 7, "x"}, {KEY_C, 8, "c"}, {KEY_V, 9, "v"}, {KEY_B, 11, "b"},
        {KEY_N, 45, "n"}, {KEY_M, 46, "m"}, {KEY_1, 18, "1"}, {KEY_2, 19, "2"}, {KEY_3, 20, "3"}, {KEY_4, 21, "4"},
        {KEY_5, 23, "5"}, {KEY_6, 22, "6"}, {KEY_7, 26, "7"}, {KEY_8, 28, "8"}, {KEY_9, 25, "9"}, {KEY_0, 29, "0"},
        {KEY_MINUS, 27, "-"}, {KEY_EQUAL, 24, "="}, {KEY_COMMA, 43, ","}, {KEY_102ND, 10, "<"},
        {KEY_TAB, 48, ""}, {KEY_ENTER, 36, ""}, {KEY_ESC, 53, ""}, {KEY_LEFT, 123, ""}, {KEY_RIGHT, 124, ""},
        {KEY_F1, 122, ""}, {KEY_F12, 111, ""}, {KEY_KP7, 89, "7"}, {KEY_KPENTER, 76, ""},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(KeyCodeTable::profileCode(row.evdev), row.code) << "evdev " << row.evdev;
        EXPECT_EQ(KeyCodeTable::usText(row.code), QString::fromLatin1(row.us)) << "evdev " << row.evdev;
    }
    // Every key that types a visible character on a US layout has its text, so a display can
    // always be made where no keyboard layout can be asked.
    std::set<quint16> typing = {50, 65, 67, 69, 75, 78, 81, 82, 83, 84, 85, 86, 87, 88, 89, 91, 92, 95};
    for (quint16 code = 0; code <= 47; ++code)
        if (code != 36)
            typing.insert(code);
    for (const KeyCodeTable::Entry& entry : KeyCodeTable::entries())
        EXPECT_EQ(!KeyCodeTable::usText(entry.code).isEmpty(), typing.count(entry.code) == 1) << "code " << entry.code;
}
