#include "Input/ShortcutProfile.h"

#include <cmath>

#include <QJsonArray>
#include <QJsonParseError>
#include <QSet>

#include "Input/KeyCodeTable.h"

namespace vantelor {

namespace {

constexpr quint64 none = 0;
constexpr quint64 shift = InputTrigger::shiftModifier;
constexpr quint64 command = InputTrigger::commandModifier;

// Command with these keys quits, closes, hides and minimises windows, opens preferences and
// switches windows (Q, W, H, M, comma, Tab): taking them would leave the user without them.
constexpr quint16 reservedKeys[] = {12, 13, 4, 46, 43, KeyCodeTable::tabKey};

WorkflowError unsupported()
{
    return WorkflowError::invalid(QStringLiteral("Perfil de atajos no compatible"));
}

bool isReserved(const InputTrigger& trigger)
{
    if (trigger.kind != InputTrigger::Kind::key || !(trigger.modifiers & InputTrigger::commandModifier))
        return false;
    return std::find(std::begin(reservedKeys), std::end(reservedKeys), trigger.code) != std::end(reservedKeys);
}

ShortcutProfile makeDefaults()
{
    const auto key = [](ActionID action, quint16 code, quint64 modifiers, const char* display) {
        return ShortcutBinding{action, InputTrigger::key(code, modifiers, QString::fromUtf8(display))};
    };
    ShortcutProfile profile;
    profile.bindings = {
        key(ActionID::previous, 123, none, "←"),
        key(ActionID::next, 124, none, "→"),
        key(ActionID::sheet, 5, none, "G"),
        key(ActionID::preview, 36, none, "Intro"),
        key(ActionID::clearMarks, 29, none, "0"),
        key(ActionID::rating1, 18, none, "1"),
        key(ActionID::rating2, 19, none, "2"),
        key(ActionID::rating3, 20, none, "3"),
        key(ActionID::rating4, 21, none, "4"),
        key(ActionID::rating5, 23, none, "5"),
        key(ActionID::labelRed, 22, none, "6"),
        key(ActionID::labelYellow, 26, none, "7"),
        key(ActionID::labelGreen, 28, none, "8"),
        key(ActionID::labelBlue, 25, none, "9"),
        key(ActionID::focus, 35, none, "P"),
        key(ActionID::fit, 3, none, "F"),
        key(ActionID::actual, 6, none, "Z"),
        key(ActionID::zoomIn, 24, none, "+"),
        key(ActionID::zoomOut, 27, none, "\u2212"),
        key(ActionID::rating5, 23, shift, "⇧5"),
        key(ActionID::rating0, 29, shift, "⇧0"),
        key(ActionID::openFolder, 31, command, "⌘O"),
        key(ActionID::reload, 15, command, "⌘R"),
        key(ActionID::save, 1, command, "⌘S"),
        key(ActionID::selectAll, 0, command, "⌘A"),
    };
    return profile;
}

// The decoder: every key required with its type. `where` names the place for the message, in
// the form a reader of the file can follow ("bindings[3].trigger").
class Decoder {
public:
    static WorkflowError error(const QString& detail)
    {
        return WorkflowError::invalid(QStringLiteral("Perfil de atajos ilegible: ") + detail);
    }

    static Result<QJsonValue> field(const QJsonObject& object, const QString& where, const QString& key)
    {
        const auto it = object.constFind(key);
        if (it == object.constEnd())
            return error(QStringLiteral("falta «%1» en %2").arg(key, where));
        return QJsonValue(*it);
    }

    // A JSON number that is a whole number within [minimum, maximum]. Numbers beyond 2^53 cannot
    // be told apart from their neighbours once parsed, so larger bounds are not asked for.
    static Result<qint64> integer(const QJsonValue& value, const QString& where, qint64 minimum, qint64 maximum,
                                  const QString& expected)
    {
        if (!value.isDouble())
            return error(QStringLiteral("%1 debe ser %2").arg(where, expected));
        const double number = value.toDouble();
        if (!std::isfinite(number) || std::floor(number) != number || number < double(minimum)
            || number > double(maximum))
            return error(QStringLiteral("%1 debe ser %2").arg(where, expected));
        return qint64(number);
    }

    static Result<InputTrigger> trigger(const QJsonValue& value, const QString& where)
    {
        if (!value.isObject())
            return error(QStringLiteral("%1 debe ser un objeto").arg(where));
        const QJsonObject object = value.toObject();
        InputTrigger trigger;

        const Result<QJsonValue> kind = field(object, where, QStringLiteral("kind"));
        if (!kind)
            return kind.failure();
        const std::optional<InputTrigger::Kind> parsedKind = InputTrigger::kindFromName(kind->toString());
        if (!kind->isString() || !parsedKind)
            return error(QStringLiteral("%1.kind debe ser \"key\" o \"mouse\"").arg(where));
        trigger.kind = *parsedKind;

        const Result<QJsonValue> code = field(object, where, QStringLiteral("code"));
        if (!code)
            return code.failure();
        const Result<qint64> parsedCode = integer(*code, where + QStringLiteral(".code"), 0, 65535,
                                                  QStringLiteral("un entero entre 0 y 65535"));
        if (!parsedCode)
            return parsedCode.failure();
        trigger.code = quint16(*parsedCode);

        const Result<QJsonValue> modifiers = field(object, where, QStringLiteral("modifiers"));
        if (!modifiers)
            return modifiers.failure();
        const Result<qint64> parsedModifiers = integer(*modifiers, where + QStringLiteral(".modifiers"), 0,
                                                       qint64(1) << 53, QStringLiteral("un entero sin signo"));
        if (!parsedModifiers)
            return parsedModifiers.failure();
        trigger.modifiers = quint64(*parsedModifiers);

        const Result<QJsonValue> display = field(object, where, QStringLiteral("display"));
        if (!display)
            return display.failure();
        if (!display->isString())
            return error(QStringLiteral("%1.display debe ser un texto").arg(where));
        trigger.display = display->toString();
        return trigger;
    }

    static Result<ShortcutBinding> binding(const QJsonValue& value, const QString& where)
    {
        if (!value.isObject())
            return error(QStringLiteral("%1 debe ser un objeto").arg(where));
        const QJsonObject object = value.toObject();

        const Result<QJsonValue> action = field(object, where, QStringLiteral("action"));
        if (!action)
            return action.failure();
        if (!action->isString())
            return error(QStringLiteral("%1.action debe ser un texto").arg(where));
        const std::optional<ActionID> parsedAction = ActionIDs::fromRawValue(action->toString());
        if (!parsedAction)
            return error(QStringLiteral("acción desconocida \"%1\" en %2.action").arg(action->toString(), where));

        const Result<QJsonValue> triggerValue = field(object, where, QStringLiteral("trigger"));
        if (!triggerValue)
            return triggerValue.failure();
        Result<InputTrigger> parsedTrigger = trigger(*triggerValue, where + QStringLiteral(".trigger"));
        if (!parsedTrigger)
            return parsedTrigger.failure();
        return ShortcutBinding{*parsedAction, std::move(*parsedTrigger)};
    }
};

QJsonObject triggerObject(const InputTrigger& trigger)
{
    return QJsonObject{
        {QStringLiteral("kind"), InputTrigger::kindName(trigger.kind)},
        {QStringLiteral("code"), int(trigger.code)},
        {QStringLiteral("modifiers"), qint64(trigger.modifiers)},
        {QStringLiteral("display"), trigger.display},
    };
}

} // namespace

const ShortcutProfile& ShortcutProfile::defaults()
{
    static const ShortcutProfile profile = makeDefaults();
    return profile;
}

std::optional<ActionID> ShortcutProfile::defaultAction(const InputTrigger& trigger)
{
    return defaults().action(trigger);
}

bool ShortcutProfile::isBasic(const InputTrigger& trigger)
{
    return defaultAction(trigger).has_value();
}

std::optional<ActionID> ShortcutProfile::action(const InputTrigger& trigger) const
{
    for (const ShortcutBinding& binding : bindings)
        if (binding.trigger == trigger)
            return binding.action;
    return std::nullopt;
}

ShortcutProfile ShortcutProfile::preservingDefaults() const
{
    ShortcutProfile result;
    result.version = version;
    result.bindings = defaults().bindings;
    for (const ShortcutBinding& binding : bindings)
        if (!isBasic(binding.trigger))
            result.bindings.append(binding);
    return result;
}

Result<ShortcutProfile> ShortcutProfile::validated() const
{
    if (version != currentVersion || bindings.size() > maximumBindings)
        return unsupported();
    QSet<InputTrigger> seen;
    seen.reserve(bindings.size());
    for (const ShortcutBinding& binding : bindings) {
        const InputTrigger& trigger = binding.trigger;
        if (seen.contains(trigger))
            return WorkflowError::invalid(QStringLiteral("Atajo duplicado: ") + trigger.display);
        seen.insert(trigger);
        if (isReserved(trigger))
            return WorkflowError::invalid(
                QStringLiteral("Este atajo está reservado para las ventanas y aplicaciones de macOS"));
        if (trigger.kind == InputTrigger::Kind::mouse && trigger.code < 2)
            return WorkflowError::invalid(QStringLiteral("Usa el botón central o un botón adicional del ratón"));
    }
    return *this;
}

Status ShortcutProfile::bind(const InputTrigger& trigger, ActionID action, bool replacingConflict)
{
    if (const std::optional<ActionID> basic = defaultAction(trigger)) {
        if (*basic == action)
            return Done{};
        return WorkflowError::invalid(QStringLiteral("Este atajo básico se conserva para ")
                                      + ActionIDs::title(*basic));
    }

    ShortcutProfile changed = *this;
    const auto existing = std::find_if(changed.bindings.begin(), changed.bindings.end(),
                                       [&](const ShortcutBinding& b) { return b.trigger == trigger; });
    if (existing != changed.bindings.end()) {
        if (existing->action == action)
            return Done{};
        if (!replacingConflict)
            return WorkflowError::invalid(QStringLiteral("Ya está asignado a ")
                                           + ActionIDs::title(existing->action));
        existing->action = action;
        existing->trigger.display = trigger.display;
    } else {
        changed.bindings.append(ShortcutBinding{action, trigger});
    }

    // Reserved shortcuts, the left and right buttons and the size limit are the profile's own
    // rules; checking the result keeps one statement of them.
    const Result<ShortcutProfile> checked = changed.validated();
    if (!checked)
        return checked.failure();
    *this = std::move(changed);
    return Done{};
}

QJsonObject ShortcutProfile::toJsonObject() const
{
    QJsonArray list;
    for (const ShortcutBinding& binding : bindings) {
        list.append(QJsonObject{
            {QStringLiteral("action"), ActionIDs::rawValue(binding.action)},
            {QStringLiteral("trigger"), triggerObject(binding.trigger)},
        });
    }
    return QJsonObject{{QStringLiteral("version"), version}, {QStringLiteral("bindings"), list}};
}

QByteArray ShortcutProfile::toJson(QJsonDocument::JsonFormat format) const
{
    return QJsonDocument(toJsonObject()).toJson(format);
}

Result<ShortcutProfile> ShortcutProfile::fromJson(const QByteArray& json)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return Decoder::error(QStringLiteral("no es JSON válido (byte %1)").arg(parseError.offset));
    if (!document.isObject())
        return Decoder::error(QStringLiteral("el documento debe ser un objeto"));
    return fromJsonObject(document.object());
}

Result<ShortcutProfile> ShortcutProfile::fromJsonObject(const QJsonObject& object)
{
    const QString root = QStringLiteral("el perfil");
    ShortcutProfile profile;

    const Result<QJsonValue> version = Decoder::field(object, root, QStringLiteral("version"));
    if (!version)
        return version.failure();
    const Result<qint64> parsedVersion = Decoder::integer(*version, QStringLiteral("version"), -(qint64(1) << 53),
                                                          qint64(1) << 53, QStringLiteral("un número entero"));
    if (!parsedVersion)
        return parsedVersion.failure();
    profile.version = *parsedVersion;

    const Result<QJsonValue> list = Decoder::field(object, root, QStringLiteral("bindings"));
    if (!list)
        return list.failure();
    if (!list->isArray())
        return Decoder::error(QStringLiteral("bindings debe ser una lista"));
    const QJsonArray array = list->toArray();
    profile.bindings.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        Result<ShortcutBinding> binding = Decoder::binding(array.at(i), QStringLiteral("bindings[%1]").arg(i));
        if (!binding)
            return binding.failure();
        profile.bindings.append(std::move(*binding));
    }
    return profile;
}

} // namespace vantelor
