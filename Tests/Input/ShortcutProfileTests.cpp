#include <gtest/gtest.h>

#include <QSet>

#include "Input/ShortcutProfile.h"
#include "InputTestSupport.h"

using namespace vantelor;

namespace {

constexpr quint64 shift = InputTrigger::shiftModifier;
constexpr quint64 option = InputTrigger::optionModifier;
constexpr quint64 command = InputTrigger::commandModifier;

InputTrigger key(quint16 code, quint64 modifiers = 0, const QString& display = QStringLiteral("?"))
{
    return InputTrigger::key(code, modifiers, display);
}

InputTrigger mouse(quint16 button, quint64 modifiers = 0)
{
    return InputTrigger::mouse(button, modifiers, QStringLiteral("Ratón %1").arg(button + 1));
}

ShortcutProfile withCustom(std::initializer_list<ShortcutBinding> custom)
{
    ShortcutProfile profile = ShortcutProfile::defaults();
    for (const ShortcutBinding& binding : custom)
        profile.bindings.append(binding);
    return profile;
}

QString failureOf(const Result<ShortcutProfile>& result)
{
    return result ? QStringLiteral("(válido)") : result.message();
}

const QString reserved = QStringLiteral("Este atajo está reservado para las ventanas y aplicaciones de macOS");
const QString mouseRule = QStringLiteral("Usa el botón central o un botón adicional del ratón");
const QString unsupported = QStringLiteral("Perfil de atajos no compatible");

} // namespace

TEST(ActionID, RawValuesRoundTripAndNamesAreDistinct)
{
    QSet<QString> raws, titles;
    for (const ActionID action : ActionIDs::allCases) {
        EXPECT_EQ(ActionIDs::fromRawValue(ActionIDs::rawValue(action)), action);
        raws.insert(ActionIDs::rawValue(action));
        titles.insert(ActionIDs::title(action));
    }
    EXPECT_EQ(raws.size(), qsizetype(ActionIDs::allCases.size()));
    EXPECT_EQ(titles.size(), qsizetype(ActionIDs::allCases.size()));
    for (const char* bad : {"", "Next", "next ", "labelnone"})
        EXPECT_FALSE(ActionIDs::fromRawValue(QString::fromUtf8(bad))) << bad;
}

TEST(ShortcutProfile, BasicTriggersAreExactlyTheDefaultsAndLookupTakesTheFirstMatch)
{
    const ShortcutProfile& defaults = ShortcutProfile::defaults();
    EXPECT_EQ(defaults.preservingDefaults(), defaults);
    for (const ShortcutBinding& binding : defaults.bindings) {
        // The display takes no part in equality, so another one is still the basic trigger.
        InputTrigger other = binding.trigger;
        other.display = QStringLiteral("otra");
        EXPECT_TRUE(ShortcutProfile::isBasic(other)) << binding.trigger.display.toStdString();
        EXPECT_EQ(qHash(other), qHash(binding.trigger));
        other.modifiers |= option;
        EXPECT_FALSE(ShortcutProfile::isBasic(other)) << binding.trigger.display.toStdString();
    }
    EXPECT_NE(InputTrigger::mouse(5, 0, {}), key(5));
    EXPECT_EQ(defaults.action(key(29)), ActionID::clearMarks);
    EXPECT_EQ(defaults.action(key(29, shift)), ActionID::rating0);
    EXPECT_EQ(defaults.action(mouse(23)), std::nullopt);
    // An invalid profile with a repeated trigger still answers with the first binding.
    ShortcutProfile twice;
    twice.bindings = {{ActionID::copy, mouse(3)}, {ActionID::move, mouse(3)}};
    EXPECT_EQ(twice.action(mouse(3)), ActionID::copy);
}

TEST(ShortcutProfile, PreservingDefaultsPutsThemFirstAndDropsTakeovers)
{
    ShortcutProfile custom;
    custom.bindings = {
        {ActionID::copy, key(5, 0, QStringLiteral("G"))},        // takes "G" from sheet: dropped
        {ActionID::move, mouse(3)},
        {ActionID::labelPurple, key(5, shift, QStringLiteral("⇧G"))},
        {ActionID::next, key(124)},                              // a default, repeated: dropped
        {ActionID::copy, mouse(4)},
    };
    const ShortcutProfile result = custom.preservingDefaults();
    const qsizetype n = ShortcutProfile::defaults().bindings.size();
    EXPECT_EQ(result.bindings.mid(0, n), ShortcutProfile::defaults().bindings);
    EXPECT_EQ(result.bindings.mid(n), (QList<ShortcutBinding>{custom.bindings[1], custom.bindings[2], custom.bindings[4]}));
    EXPECT_EQ(result.bindings[2].trigger.display, QStringLiteral("G"));
    EXPECT_TRUE(result.validated().ok());
    // The version is carried, so an unsupported file stays unsupported.
    custom.version = 2;
    EXPECT_EQ(custom.preservingDefaults().version, 2);
}

TEST(ShortcutProfile, ValidationRules)
{
    struct Row {
        const char* name;
        ShortcutProfile profile;
        QString expected;
    };
    ShortcutProfile version2 = ShortcutProfile::defaults();
    version2.version = 2;

    const Row rows[] = {
        {"defaults", ShortcutProfile::defaults(), QStringLiteral("(válido)")},
        {"version 2", version2, unsupported},
        {"same trigger, other display",
         withCustom({{ActionID::copy, key(14, option, QStringLiteral("⌥E"))},
                     {ActionID::move, key(14, option, QStringLiteral("Tecla 14 con Alt"))}}),
         QStringLiteral("Atajo duplicado: Tecla 14 con Alt")},
        {"default repeated", withCustom({{ActionID::copy, key(5, 0, QStringLiteral("g"))}}),
         QStringLiteral("Atajo duplicado: g")},
        {"command Q", withCustom({{ActionID::copy, key(12, command)}}), reserved},
        {"command Q with caps lock bit", withCustom({{ActionID::copy, key(12, command | 0x10000)}}), reserved},
        {"mouse 12 with command is no key", withCustom({{ActionID::copy, mouse(12, command)}}),
         QStringLiteral("(válido)")},
        {"left button", withCustom({{ActionID::copy, mouse(0)}}), mouseRule},
        // The first offending binding in list order decides the message.
        {"left button before a duplicate",
         withCustom({{ActionID::copy, mouse(0)}, {ActionID::move, key(5, 0, QStringLiteral("G"))}}), mouseRule},
        {"reserved before left button", withCustom({{ActionID::copy, key(13, command)}, {ActionID::move, mouse(1)}}),
         reserved},
        {"duplicate of a reserved trigger reports the duplicate",
         ShortcutProfile{1, {{ActionID::copy, key(12, command, QStringLiteral("⌘Q"))},
                             {ActionID::move, key(12, command, QStringLiteral("⌘Q"))}}},
         reserved},
    };
    for (const Row& row : rows)
        EXPECT_EQ(failureOf(row.profile.validated()), row.expected) << row.name;

}

TEST(ShortcutProfile, AtMostTwoHundredBindings)
{
    const auto sized = [](int count) {
        ShortcutProfile profile = ShortcutProfile::defaults();
        for (int i = 0; profile.bindings.size() < count; ++i)
            profile.bindings.append({ActionID::copy, mouse(quint16(2 + i))});
        return profile;
    };
    EXPECT_TRUE(sized(200).validated().ok());
    EXPECT_EQ(failureOf(sized(201).validated()), unsupported);

    ShortcutProfile full = sized(200);
    EXPECT_EQ(full.bind(mouse(400), ActionID::move, false).message(), unsupported);
    EXPECT_EQ(full, sized(200));
    // Taking over a binding does not grow the list, so it is still possible when full.
    EXPECT_TRUE(full.bind(mouse(2), ActionID::move, true).ok());
}

TEST(ShortcutProfile, BindFollowsTheRulesAndLeavesTheProfileOnFailure)
{
    struct Row {
        const char* name;
        InputTrigger trigger;
        ActionID action;
        bool replacing;
        QString expected; // empty: success
    };
    const ShortcutProfile start = withCustom({{ActionID::copy, mouse(3)}, {ActionID::move, key(8, option)}});
    const Row rows[] = {
        {"right arrow to previous, replacing", key(124), ActionID::previous, true,
         QStringLiteral("Este atajo básico se conserva para Foto siguiente")},
        {"G to copy", key(5), ActionID::copy, false,
         QStringLiteral("Este atajo básico se conserva para Alternar hoja de contactos")},
        {"taken by copy", mouse(3), ActionID::move, false, QStringLiteral("Ya está asignado a Copiar selección…")},
        {"command Q", key(12, command), ActionID::copy, false, reserved},
        {"right button", mouse(1), ActionID::labelPurple, true, mouseRule},
    };
    for (const Row& row : rows) {
        ShortcutProfile profile = start;
        const Status status = profile.bind(row.trigger, row.action, row.replacing);
        EXPECT_EQ(status.message(), row.expected) << row.name;
        EXPECT_EQ(profile, start) << row.name;
        EXPECT_TRUE(std::holds_alternative<WorkflowError>(status.failure())) << row.name;
    }
}

TEST(ShortcutProfile, BindAddsReplacesOrLeavesAlone)
{
    const ShortcutProfile start = withCustom({{ActionID::copy, mouse(3)}});
    const qsizetype n = start.bindings.size();

    // A basic trigger bound to its own action, or a trigger the action already has: nothing.
    for (const auto& [trigger, action] : {std::pair{key(124), ActionID::next}, std::pair{mouse(3), ActionID::copy}}) {
        ShortcutProfile profile = start;
        EXPECT_TRUE(profile.bind(trigger, action, false).ok());
        EXPECT_EQ(profile, start);
    }

    ShortcutProfile added = start;
    ASSERT_TRUE(added.bind(mouse(2), ActionID::copy, false).ok());
    ASSERT_EQ(added.bindings.size(), n + 1);
    // Appended; the earlier trigger of the same action stays.
    EXPECT_EQ(added.bindings.mid(n - 1), (QList<ShortcutBinding>{{ActionID::copy, mouse(3)}, {ActionID::copy, mouse(2)}}));

    ShortcutProfile replaced = withCustom({{ActionID::copy, mouse(3)}, {ActionID::move, mouse(4)}});
    ASSERT_TRUE(replaced.bind(InputTrigger::mouse(3, 0, QStringLiteral("nuevo")), ActionID::labelPurple, true).ok());
    const qsizetype firstCustom = ShortcutProfile::defaults().bindings.size();
    ASSERT_EQ(replaced.bindings.size(), firstCustom + 2);
    // Taken over in place: the position is kept.
    EXPECT_EQ(replaced.bindings.mid(firstCustom),
              (QList<ShortcutBinding>{{ActionID::labelPurple, mouse(3)}, {ActionID::move, mouse(4)}}));
}
