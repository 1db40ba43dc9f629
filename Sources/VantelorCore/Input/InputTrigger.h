#pragma once

#include <cstddef>
#include <optional>

#include <QString>
#include <QtCore/qnamespace.h>

namespace vantelor {

// One key press or mouse-button press, as a shortcut profile stores it. Key codes live in the
// portable virtual key space of KeyCodeTable (A = 0, ← = 123), so a profile file means the same
// physical keys on every computer. Two triggers are the same shortcut when kind, code and
// modifiers agree; `display` is only how the press was shown when it was recorded.
struct InputTrigger {
    enum class Kind { key, mouse };

    // The modifier bits kept in a trigger. Every other bit (caps lock, num lock, keypad, group
    // switch) is dropped when an event is converted.
    static constexpr quint64 shiftModifier = 0x20000;
    static constexpr quint64 controlModifier = 0x40000;
    static constexpr quint64 optionModifier = 0x80000;
    static constexpr quint64 commandModifier = 0x100000;
    static constexpr quint64 modifierMask = 0x1E0000;

    Kind kind = Kind::key;
    quint16 code = 0;
    quint64 modifiers = 0;
    QString display;

    static InputTrigger key(quint16 code, quint64 modifiers, QString display)
    {
        return {Kind::key, code, modifiers, std::move(display)};
    }
    static InputTrigger mouse(quint16 button, quint64 modifiers, QString display)
    {
        return {Kind::mouse, button, modifiers, std::move(display)};
    }

    // "key" or "mouse", as profile files write the kind.
    static QString kindName(Kind kind);
    static std::optional<Kind> kindFromName(const QString& name);

    // Qt's modifiers as the four bits. Qt's own convention is followed: Ctrl is Command (so "⌘S"
    // is Ctrl+S on a PC keyboard), Super/Meta is Control, Alt is Option.
    static quint64 modifierBits(Qt::KeyboardModifiers modifiers);
    // "⌃", "⌥", "⇧", "⌘" for the bits present, always in that order.
    static QString displayPrefix(quint64 modifiers);

    // A key press as the window system reports it. `nativeScanCode` is what Qt reports (the evdev
    // code + 8 on X11 and Wayland); `unshiftedText` is what the key types with no modifier held,
    // from the user's keyboard layout (KeyCodeTable::usText where no layout can be asked).
    // Nothing for modifier keys pressed alone, for synthetic events without a scan code and for
    // keys that have no place in the portable key space.
    static std::optional<InputTrigger> fromKeyPress(quint32 nativeScanCode, const QString& unshiftedText,
                                                    Qt::KeyboardModifiers modifiers);
    // A mouse button by number (0 left, 1 right, 2 middle, 3 back, 4 forward, 5 and up extra).
    // The left and right buttons never make a trigger: they select and open menus.
    static std::optional<InputTrigger> fromMouseButton(int button, Qt::KeyboardModifiers modifiers);
    // The number of one of Qt's button flags (Qt::MiddleButton is 2); nothing for NoButton or
    // for several buttons at once.
    static std::optional<int> mouseButtonNumber(Qt::MouseButtons button);

    friend bool operator==(const InputTrigger& a, const InputTrigger& b)
    {
        return a.kind == b.kind && a.code == b.code && a.modifiers == b.modifiers;
    }
};

size_t qHash(const InputTrigger& trigger, size_t seed = 0) noexcept;

} // namespace vantelor
