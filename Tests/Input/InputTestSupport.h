#pragma once

#include <gtest/gtest.h>

#include "Input/ShortcutProfile.h"

namespace vantelor {

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
