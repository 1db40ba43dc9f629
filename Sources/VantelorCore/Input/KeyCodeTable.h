#pragma once

#include <optional>
#include <span>

#include <QString>

namespace vantelor {

// Maps the physical keys of a Linux keyboard (evdev codes, layout-independent) to the virtual
// key codes that shortcut profiles store. Profiles keep the key space of Apple keyboards
// (A = 0, S = 1, … ← = 123) so that a profile file moves between computers unchanged; each
// evdev key maps to the key in the same place, following the USB HID usage both sides decode.
// Pure data; any thread.
class KeyCodeTable {
public:
    struct Entry {
        quint16 evdev;
        quint16 code;
    };

    // Profile codes of a few keys the rest of the system names.
    static constexpr quint16 returnKey = 36;
    static constexpr quint16 tabKey = 48;
    static constexpr quint16 spaceKey = 49;
    static constexpr quint16 escapeKey = 53;
    static constexpr quint16 leftArrowKey = 123;
    static constexpr quint16 rightArrowKey = 124;
    static constexpr quint16 downArrowKey = 125;
    static constexpr quint16 upArrowKey = 126;

    // Every mapped key, in evdev order. Several evdev keys may share a profile code where the
    // platforms make them one key (Print Screen and F13; Insert and Help).
    static std::span<const Entry> entries();

    static std::optional<quint16> profileCode(quint32 evdevCode);
    // Qt's QKeyEvent::nativeScanCode() is the evdev code + 8 (the X11 key code); 0 marks a
    // synthetic event.
    static std::optional<quint16> profileCodeForScanCode(quint32 nativeScanCode);

    // Shift, Ctrl, Alt, AltGr, Super and Caps Lock: alone they make no shortcut, only modify one.
    static bool isModifierKey(quint32 evdevCode);

    // What the key types on a US layout with no modifier held ("a", "1", "-", "/"); empty for keys
    // that type nothing. Stands in for the user's layout where it cannot be asked.
    static QString usText(quint16 profileCode);
};

} // namespace vantelor
