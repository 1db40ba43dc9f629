#pragma once

#include <ostream>

#include <QString>

#include "Input/ShortcutProfile.h"

// Readable failure output for the values these tests compare.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace vantelor {

inline void PrintTo(ActionID action, std::ostream* os)
{
    *os << ActionIDs::rawValue(action).toStdString();
}

inline void PrintTo(const InputTrigger& trigger, std::ostream* os)
{
    *os << InputTrigger::kindName(trigger.kind).toStdString() << ' ' << trigger.code << " mods 0x" << std::hex
        << trigger.modifiers << std::dec << " \"" << trigger.display.toStdString() << '"';
}

inline void PrintTo(const ShortcutBinding& binding, std::ostream* os)
{
    PrintTo(binding.action, os);
    *os << " ← ";
    PrintTo(binding.trigger, os);
}

} // namespace vantelor
