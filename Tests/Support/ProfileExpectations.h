#pragma once

#include <gtest/gtest.h>

#include "Input/ShortcutProfile.h"

namespace vantelor::test {

// Displays included: the equality of triggers alone would not notice a lost display.
inline void expectSameProfile(const ShortcutProfile& actual, const ShortcutProfile& expected)
{
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(actual.toJson(), expected.toJson());
}

} // namespace vantelor::test
