#pragma once

#include <array>
#include <optional>

#include <QString>

namespace vantelor {

// The commands that keys and mouse buttons can be bound to. The declaration order is the order in
// which menus and the shortcut settings list them.
enum class ActionID {
    next,
    previous,
    openFolder,
    reload,
    save,
    sheet,
    preview,
    selectAll,
    copy,
    move,
    clearMarks,
    rating0,
    rating1,
    rating2,
    rating3,
    rating4,
    rating5,
    labelNone,
    labelRed,
    labelYellow,
    labelGreen,
    labelBlue,
    labelPurple,
    focus,
    fit,
    actual,
    zoomIn,
    zoomOut,
};

namespace ActionIDs {

inline constexpr std::array<ActionID, 28> allCases = {
    ActionID::next, ActionID::previous, ActionID::openFolder, ActionID::reload, ActionID::save,
    ActionID::sheet, ActionID::preview, ActionID::selectAll, ActionID::copy, ActionID::move,
    ActionID::clearMarks, ActionID::rating0, ActionID::rating1, ActionID::rating2, ActionID::rating3,
    ActionID::rating4, ActionID::rating5, ActionID::labelNone, ActionID::labelRed, ActionID::labelYellow,
    ActionID::labelGreen, ActionID::labelBlue, ActionID::labelPurple, ActionID::focus, ActionID::fit,
    ActionID::actual, ActionID::zoomIn, ActionID::zoomOut};

// The identifier written in profile files ("next", "rating5", …).
QString rawValue(ActionID action);
// Exactly the raw values above, case-sensitive; nothing for any other text, so a profile naming
// an action this version does not know is refused rather than silently thinned out.
std::optional<ActionID> fromRawValue(const QString& raw);
// The Spanish name shown in menus, the settings screen and rule messages.
QString title(ActionID action);

} // namespace ActionIDs
} // namespace vantelor
