#include "Input/InputTrigger.h"

#include <bit>

#include <QHashFunctions>

#include "Input/KeyCodeTable.h"

namespace vantelor {

namespace {

// Mouse button numbers are stored in the 16-bit code field.
constexpr int largestButton = 65535;

QString keyName(quint16 code)
{
    switch (code) {
    case KeyCodeTable::leftArrowKey: return QStringLiteral("←");
    case KeyCodeTable::rightArrowKey: return QStringLiteral("→");
    case KeyCodeTable::downArrowKey: return QStringLiteral("↓");
    case KeyCodeTable::upArrowKey: return QStringLiteral("↑");
    case KeyCodeTable::returnKey: return QStringLiteral("Intro");
    case KeyCodeTable::escapeKey: return QStringLiteral("Esc");
    case KeyCodeTable::spaceKey: return QStringLiteral("Espacio");
    default: return {};
    }
}

// Tab, Backspace and keypad Enter "type" control characters; shown as they are they would be
// invisible in the settings list, so such keys fall back to their number like F5 does.
QString printable(const QString& text)
{
    QString kept;
    for (const QChar c : text)
        if (c.category() != QChar::Other_Control)
            kept += c;
    return kept.trimmed().isEmpty() ? QString() : kept;
}

} // namespace

QString InputTrigger::kindName(Kind kind)
{
    return kind == Kind::key ? QStringLiteral("key") : QStringLiteral("mouse");
}

std::optional<InputTrigger::Kind> InputTrigger::kindFromName(const QString& name)
{
    if (name == QLatin1String("key"))
        return Kind::key;
    if (name == QLatin1String("mouse"))
        return Kind::mouse;
    return std::nullopt;
}

quint64 InputTrigger::modifierBits(Qt::KeyboardModifiers modifiers)
{
    quint64 bits = 0;
    if (modifiers & Qt::ShiftModifier)
        bits |= shiftModifier;
    if (modifiers & Qt::MetaModifier)
        bits |= controlModifier;
    if (modifiers & Qt::AltModifier)
        bits |= optionModifier;
    if (modifiers & Qt::ControlModifier)
        bits |= commandModifier;
    return bits;
}

QString InputTrigger::displayPrefix(quint64 modifiers)
{
    QString prefix;
    if (modifiers & controlModifier)
        prefix += QStringLiteral("⌃");
    if (modifiers & optionModifier)
        prefix += QStringLiteral("⌥");
    if (modifiers & shiftModifier)
        prefix += QStringLiteral("⇧");
    if (modifiers & commandModifier)
        prefix += QStringLiteral("⌘");
    return prefix;
}

std::optional<InputTrigger> InputTrigger::fromKeyPress(quint32 nativeScanCode, const QString& unshiftedText,
                                                       Qt::KeyboardModifiers modifiers)
{
    if (nativeScanCode < 8 || KeyCodeTable::isModifierKey(nativeScanCode - 8))
        return std::nullopt;
    const std::optional<quint16> code = KeyCodeTable::profileCodeForScanCode(nativeScanCode);
    if (!code)
        return std::nullopt;
    const quint64 bits = modifierBits(modifiers);
    QString name = keyName(*code);
    if (name.isEmpty())
        name = printable(unshiftedText).toUpper();
    if (name.isEmpty())
        name = QStringLiteral("Tecla %1").arg(*code);
    return key(*code, bits, displayPrefix(bits) + name);
}

std::optional<InputTrigger> InputTrigger::fromMouseButton(int button, Qt::KeyboardModifiers modifiers)
{
    if (button < 2 || button > largestButton)
        return std::nullopt;
    const quint64 bits = modifierBits(modifiers);
    return mouse(quint16(button), bits, displayPrefix(bits) + QStringLiteral("Ratón %1").arg(button + 1));
}

std::optional<int> InputTrigger::mouseButtonNumber(Qt::MouseButtons button)
{
    const auto flags = quint32(button.toInt());
    if (!std::has_single_bit(flags))
        return std::nullopt;
    return std::countr_zero(flags);
}

size_t qHash(const InputTrigger& trigger, size_t seed) noexcept
{
    return qHashMulti(seed, int(trigger.kind), trigger.code, trigger.modifiers);
}

} // namespace vantelor
