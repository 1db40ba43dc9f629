#include "Input/KeyCodeTable.h"

#include <algorithm>

#include <linux/input-event-codes.h>

namespace vantelor {

namespace {

// Sorted by evdev code for the binary search below; a test checks the order.
constexpr KeyCodeTable::Entry table[] = {
    {KEY_ESC, 53},
    {KEY_1, 18},
    {KEY_2, 19},
    {KEY_3, 20},
    {KEY_4, 21},
    {KEY_5, 23},
    {KEY_6, 22},
    {KEY_7, 26},
    {KEY_8, 28},
    {KEY_9, 25},
    {KEY_0, 29},
    {KEY_MINUS, 27},
    {KEY_EQUAL, 24},
    {KEY_BACKSPACE, 51},
    {KEY_TAB, 48},
    {KEY_Q, 12},
    {KEY_W, 13},
    {KEY_E, 14},
    {KEY_R, 15},
    {KEY_T, 17},
    {KEY_Y, 16},
    {KEY_U, 32},
    {KEY_I, 34},
    {KEY_O, 31},
    {KEY_P, 35},
    {KEY_LEFTBRACE, 33},
    {KEY_RIGHTBRACE, 30},
    {KEY_ENTER, 36},
    {KEY_A, 0},
    {KEY_S, 1},
    {KEY_D, 2},
    {KEY_F, 3},
    {KEY_G, 5},
    {KEY_H, 4},
    {KEY_J, 38},
    {KEY_K, 40},
    {KEY_L, 37},
    {KEY_SEMICOLON, 41},
    {KEY_APOSTROPHE, 39},
    {KEY_GRAVE, 50},
    {KEY_BACKSLASH, 42},
    {KEY_Z, 6},
    {KEY_X, 7},
    {KEY_C, 8},
    {KEY_V, 9},
    {KEY_B, 11},
    {KEY_N, 45},
    {KEY_M, 46},
    {KEY_COMMA, 43},
    {KEY_DOT, 47},
    {KEY_SLASH, 44},
    {KEY_KPASTERISK, 67},
    {KEY_SPACE, 49},
    {KEY_F1, 122},
    {KEY_F2, 120},
    {KEY_F3, 99},
    {KEY_F4, 118},
    {KEY_F5, 96},
    {KEY_F6, 97},
    {KEY_F7, 98},
    {KEY_F8, 100},
    {KEY_F9, 101},
    {KEY_F10, 109},
    // Apple keyboards have Clear where PC keyboards have Num Lock; both are HID usage 0x53.
    {KEY_NUMLOCK, 71},
    // On Apple systems a PC keyboard's Print Screen, Scroll Lock and Pause are F13, F14, F15.
    {KEY_SCROLLLOCK, 107},
    {KEY_KP7, 89},
    {KEY_KP8, 91},
    {KEY_KP9, 92},
    {KEY_KPMINUS, 78},
    {KEY_KP4, 86},
    {KEY_KP5, 87},
    {KEY_KP6, 88},
    {KEY_KPPLUS, 69},
    {KEY_KP1, 83},
    {KEY_KP2, 84},
    {KEY_KP3, 85},
    {KEY_KP0, 82},
    {KEY_KPDOT, 65},
    // The ISO key beside the left Shift (HID 0x64), which Apple calls the section key.
    {KEY_102ND, 10},
    {KEY_F11, 103},
    {KEY_F12, 111},
    {KEY_RO, 94},
    {KEY_KPJPCOMMA, 95},
    {KEY_KPENTER, 76},
    {KEY_KPSLASH, 75},
    {KEY_SYSRQ, 105},
    {KEY_HOME, 115},
    {KEY_UP, 126},
    {KEY_PAGEUP, 116},
    {KEY_LEFT, 123},
    {KEY_RIGHT, 124},
    {KEY_END, 119},
    {KEY_DOWN, 125},
    {KEY_PAGEDOWN, 121},
    // Insert sits where Apple's extended keyboard has Help.
    {KEY_INSERT, 114},
    {KEY_DELETE, 117},
    {KEY_MUTE, 74},
    {KEY_VOLUMEDOWN, 73},
    {KEY_VOLUMEUP, 72},
    {KEY_KPEQUAL, 81},
    {KEY_PAUSE, 113},
    {KEY_KPCOMMA, 95},
    // The Japanese input keys Kana (LANG1) and Eisu (LANG2).
    {KEY_HANGEUL, 104},
    {KEY_HANJA, 102},
    {KEY_YEN, 93},
    // The context-menu key of PC keyboards (HID "Application").
    {KEY_COMPOSE, 110},
    {KEY_HELP, 114},
    {KEY_F13, 105},
    {KEY_F14, 107},
    {KEY_F15, 113},
    {KEY_F16, 106},
    {KEY_F17, 64},
    {KEY_F18, 79},
    {KEY_F19, 80},
    {KEY_F20, 90},
};

constexpr quint16 modifierKeys[] = {
    KEY_LEFTCTRL, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_CAPSLOCK,
    KEY_RIGHTCTRL, KEY_RIGHTALT, KEY_LEFTMETA, KEY_RIGHTMETA,
};

struct UsText {
    quint16 code;
    const char* text;
};

// The unshifted characters of the US layout (with the pc105 "<" on the ISO key), by profile code.
constexpr UsText usTexts[] = {
    {0, "a"}, {1, "s"}, {2, "d"}, {3, "f"}, {4, "h"}, {5, "g"}, {6, "z"}, {7, "x"}, {8, "c"}, {9, "v"},
    {10, "<"}, {11, "b"}, {12, "q"}, {13, "w"}, {14, "e"}, {15, "r"}, {16, "y"}, {17, "t"}, {18, "1"},
    {19, "2"}, {20, "3"}, {21, "4"}, {22, "6"}, {23, "5"}, {24, "="}, {25, "9"}, {26, "7"}, {27, "-"},
    {28, "8"}, {29, "0"}, {30, "]"}, {31, "o"}, {32, "u"}, {33, "["}, {34, "i"}, {35, "p"}, {37, "l"},
    {38, "j"}, {39, "'"}, {40, "k"}, {41, ";"}, {42, "\\"}, {43, ","}, {44, "/"}, {45, "n"}, {46, "m"},
    {47, "."}, {50, "`"}, {65, "."}, {67, "*"}, {69, "+"}, {75, "/"}, {78, "-"}, {81, "="}, {82, "0"},
    {83, "1"}, {84, "2"}, {85, "3"}, {86, "4"}, {87, "5"}, {88, "6"}, {89, "7"}, {91, "8"}, {92, "9"},
    {95, ","},
};

} // namespace

std::span<const KeyCodeTable::Entry> KeyCodeTable::entries()
{
    return table;
}

std::optional<quint16> KeyCodeTable::profileCode(quint32 evdevCode)
{
    const auto it = std::lower_bound(std::begin(table), std::end(table), evdevCode,
                                     [](const Entry& e, quint32 code) { return e.evdev < code; });
    if (it == std::end(table) || it->evdev != evdevCode)
        return std::nullopt;
    return it->code;
}

std::optional<quint16> KeyCodeTable::profileCodeForScanCode(quint32 nativeScanCode)
{
    if (nativeScanCode < 8)
        return std::nullopt;
    return profileCode(nativeScanCode - 8);
}

bool KeyCodeTable::isModifierKey(quint32 evdevCode)
{
    return std::find(std::begin(modifierKeys), std::end(modifierKeys), evdevCode) != std::end(modifierKeys);
}

QString KeyCodeTable::usText(quint16 profileCode)
{
    for (const UsText& entry : usTexts)
        if (entry.code == profileCode)
            return QString::fromLatin1(entry.text);
    return {};
}

} // namespace vantelor
