#pragma once

#include <optional>

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>

#include "Input/ShortcutBinding.h"
#include "Support/Result.h"

namespace vantelor {

// The bindings in force, in order: the first binding whose trigger matches decides. The built-in
// defaults are the "basic" shortcuts: every stored or imported profile is passed through
// preservingDefaults() so none of them can be lost, and bind() refuses to move them. A plain value;
// any thread.
struct ShortcutProfile {
    static constexpr qint64 currentVersion = 1;
    static constexpr int maximumBindings = 200;
    // A full profile is some 30 KB; a file much larger than that is not one, and is not read.
    static constexpr qint64 maximumFileBytes = 1 << 20;

    qint64 version = currentVersion;
    QList<ShortcutBinding> bindings;

    // The 25 built-in bindings.
    static const ShortcutProfile& defaults();
    // Whether the trigger is that of a default binding; basic triggers keep their default action.
    static bool isBasic(const InputTrigger& trigger);
    static std::optional<ActionID> defaultAction(const InputTrigger& trigger);

    std::optional<ActionID> action(const InputTrigger& trigger) const;

    // The defaults first, in their order, then the custom bindings whose triggers are not basic,
    // in their order.
    ShortcutProfile preservingDefaults() const;

    // The profile itself when it keeps the rules (version, size, no duplicate, no reserved
    // shortcut, no left or right mouse button), else the rule message of the first binding that
    // breaks one.
    Result<ShortcutProfile> validated() const;

    // Binds the trigger to the action. A trigger held by another action is refused ("Ya está
    // asignado a …") unless `replacingConflict`, in which case that binding changes action in
    // place; a caller that offers to replace checks action(trigger) first to tell that case from
    // the others. A trigger the action already has changes nothing, and earlier triggers of the
    // action are kept (an action may have several). The result must still pass validated(); on
    // any failure the profile is left as it was.
    Status bind(const InputTrigger& trigger, ActionID action, bool replacingConflict);

    // The profile file: {"version": 1, "bindings": [{"action": …, "trigger": {"kind", "code",
    // "modifiers", "display"}}]}.
    QJsonObject toJsonObject() const;
    QByteArray toJson(QJsonDocument::JsonFormat format = QJsonDocument::Compact) const;
    // Strict: every key is required with its type; unknown actions and kinds, codes outside
    // 0…65535 and negative or fractional numbers are refused with a message naming the place.
    // Keys the format does not define are ignored. No rule of validated() is checked here.
    static Result<ShortcutProfile> fromJson(const QByteArray& json);
    static Result<ShortcutProfile> fromJsonObject(const QJsonObject& object);

    // Same version and the same bindings in the same order; displays take no part, as for triggers.
    friend bool operator==(const ShortcutProfile&, const ShortcutProfile&) = default;
};

} // namespace vantelor
