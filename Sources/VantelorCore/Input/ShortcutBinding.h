#pragma once

#include "Input/ActionID.h"
#include "Input/InputTrigger.h"

namespace vantelor {

// One trigger bound to one action. Equal when both the action and the trigger (without its
// display) are equal.
struct ShortcutBinding {
    ActionID action = ActionID::next;
    InputTrigger trigger;

    friend bool operator==(const ShortcutBinding&, const ShortcutBinding&) = default;
};

} // namespace vantelor
