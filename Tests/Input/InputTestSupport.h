#pragma once

#include <ostream>

#include <gtest/gtest.h>

#include <QString>

#include "Input/ShortcutProfile.h"

// Readable failure output for the values these tests compare, and a full comparison of profiles.
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

// Every binding, displays included: the equality of triggers alone would not notice a lost display.
inline void expectSameProfile(const ShortcutProfile& actual, const ShortcutProfile& expected)
{
    EXPECT_EQ(actual.version, expected.version);
    ASSERT_EQ(actual.bindings.size(), expected.bindings.size());
    for (qsizetype i = 0; i < actual.bindings.size(); ++i) {
        EXPECT_EQ(actual.bindings[i], expected.bindings[i]) << i;
        EXPECT_EQ(actual.bindings[i].trigger.display, expected.bindings[i].trigger.display) << i;
    }
}

} // namespace vantelor
