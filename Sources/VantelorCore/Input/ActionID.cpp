#include "Input/ActionID.h"

namespace vantelor::ActionIDs {

namespace {

struct Names {
    const char* raw;
    const char* title;
};

constexpr Names names[] = {
#define VANTELOR_ACTION_NAMES(name, title) {#name, title},
    VANTELOR_ACTIONS(VANTELOR_ACTION_NAMES)
#undef VANTELOR_ACTION_NAMES
};

const Names* namesOf(ActionID action)
{
    const auto index = size_t(action);
    return index < std::size(names) ? &names[index] : nullptr;
}

} // namespace

QString rawValue(ActionID action)
{
    const Names* n = namesOf(action);
    return n ? QString::fromLatin1(n->raw) : QString();
}

std::optional<ActionID> fromRawValue(const QString& raw)
{
    for (ActionID action : allCases)
        if (rawValue(action) == raw)
            return action;
    return std::nullopt;
}

QString title(ActionID action)
{
    const Names* n = namesOf(action);
    return n ? QString::fromUtf8(n->title) : QString();
}

} // namespace vantelor::ActionIDs
