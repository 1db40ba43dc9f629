#include <cerrno>

#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QDir>
#include <QJsonArray>
#include <QSet>

#include "Input/KeyCodeTable.h"
#include "Input/ShortcutProfile.h"
#include "Input/ShortcutProfileFile.h"
#include "Support/ProfileExpectations.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using test::expectSameProfile;

namespace {

// Qt's native scan code on X11 and Wayland is the evdev code + 8.
constexpr quint32 scan(quint32 evdev) { return evdev + 8; }
constexpr quint64 shift = InputTrigger::shiftModifier, control = InputTrigger::controlModifier,
                  option = InputTrigger::optionModifier, command = InputTrigger::commandModifier;

InputTrigger key(quint16 code, quint64 modifiers = 0, const char* display = "?") { return InputTrigger::key(code, modifiers, QString::fromUtf8(display)); }
InputTrigger mouse(quint16 button, quint64 modifiers = 0) { return InputTrigger::mouse(button, modifiers, QStringLiteral("Ratón %1").arg(button + 1)); }
ShortcutProfile withCustom(std::initializer_list<ShortcutBinding> custom) { return {1, ShortcutProfile::defaults().bindings + QList<ShortcutBinding>(custom)}; }

QString failureOf(const Result<ShortcutProfile>& result) { return result ? QStringLiteral("(válido)") : result.message(); }

QByteArray profileJson(const QString& trigger, const QString& action = QStringLiteral("\"copy\""))
{
    return QStringLiteral(R"({"version": 1, "bindings": [{"action": %1, "trigger": {%2}}]})").arg(action, trigger).toUtf8();
}

const QString reserved = QStringLiteral("Este atajo está reservado para las ventanas y aplicaciones de macOS");
const QString mouseRule = QStringLiteral("Usa el botón central o un botón adicional del ratón");
const QString unsupported = QStringLiteral("Perfil de atajos no compatible");
const QString goodTrigger = QStringLiteral(R"("kind": "mouse", "code": 3, "modifiers": 131072, "display": "⇧Ratón 4")");

} // namespace

TEST(KeyPress, BuildsCodeModifiersAndDisplay)
{
    const struct { const char* name; quint32 evdev; const char* text; Qt::KeyboardModifiers mods; quint16 code; quint64 bits; const char* display; } rows[] = {
        {"prefix order", KEY_O, "o", Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier, 31, control | option | shift | command, "⌃⌥⇧⌘O"},
        {"Alt is Option; keypad and group bits dropped", KEY_G, "g", Qt::AltModifier | Qt::KeypadModifier | Qt::GroupSwitchModifier, 5, option, "⌥G"},
        {"space", KEY_SPACE, " ", Qt::ControlModifier, 49, command, "⌘Espacio"}, {"F5 types nothing", KEY_F5, "", Qt::NoModifier, 96, 0, "Tecla 96"},
        {"Spanish layout, key beside L", KEY_SEMICOLON, "ñ", Qt::NoModifier, 41, 0, "Ñ"}, {"French layout, A key types q", KEY_A, "q", Qt::NoModifier, 0, 0, "Q"},
    };
    for (const auto& row : rows) {
        const auto trigger = InputTrigger::fromKeyPress(scan(row.evdev), QString::fromUtf8(row.text), row.mods);
        ASSERT_EQ(trigger, InputTrigger::key(row.code, row.bits, {})) << row.name;
        EXPECT_EQ(trigger->display, QString::fromUtf8(row.display)) << row.name;
    }
    for (quint32 evdev : {KEY_LEFTCTRL, KEY_RIGHTSHIFT, KEY_LEFTALT, KEY_RIGHTMETA, KEY_CAPSLOCK})
        EXPECT_FALSE(InputTrigger::fromKeyPress(scan(evdev), {}, Qt::ControlModifier)) << evdev;
    // Synthetic events carry no scan code; keys outside the table make no trigger either.
    for (quint32 native : {0u, 7u, scan(KEY_F21), scan(KEY_PLAYPAUSE), scan(KEY_MAX), 0xFFFFFFFFu})
        EXPECT_FALSE(InputTrigger::fromKeyPress(native, QStringLiteral("x"), Qt::NoModifier)) << native;
}

TEST(KeyPress, EveryDefaultIsReachableFromAPcKeyboard)
{
    const ShortcutProfile& defaults = ShortcutProfile::defaults();
    for (const ShortcutBinding& binding : defaults.bindings) {
        SCOPED_TRACE(binding.trigger.display.toStdString());
        const auto entry = std::ranges::find(KeyCodeTable::entries(), binding.trigger.code, &KeyCodeTable::Entry::code);
        ASSERT_NE(entry, KeyCodeTable::entries().end());
        const Qt::KeyboardModifiers modifiers = (binding.trigger.modifiers & shift ? Qt::ShiftModifier : Qt::NoModifier)
                                                | (binding.trigger.modifiers & command ? Qt::ControlModifier : Qt::NoModifier);
        const auto trigger = InputTrigger::fromKeyPress(scan(entry->evdev), KeyCodeTable::usText(binding.trigger.code), modifiers);
        ASSERT_EQ(trigger, binding.trigger);
        EXPECT_EQ(defaults.action(*trigger), binding.action);
        // Only zoom in and out show another glyph than the key types ("=" and "-").
        EXPECT_EQ(trigger->display == binding.trigger.display, binding.action != ActionID::zoomIn && binding.action != ActionID::zoomOut);
    }
    // The lookup is a binary search: every entry is found from its own evdev code.
    for (const KeyCodeTable::Entry& entry : KeyCodeTable::entries())
        EXPECT_EQ(KeyCodeTable::profileCode(entry.evdev), entry.code) << entry.evdev;
}

TEST(MouseButton, MiddleAndExtraButtonsOnly)
{
    const struct { int button; Qt::KeyboardModifiers modifiers; const char* display; quint64 bits; } rows[] = {
        {2, Qt::NoModifier, "Ratón 3", 0}, {4, Qt::ControlModifier | Qt::ShiftModifier, "⇧⌘Ratón 5", shift | command}, {65535, Qt::NoModifier, "Ratón 65536", 0}};
    for (const auto& row : rows) {
        const std::optional<InputTrigger> trigger = InputTrigger::fromMouseButton(row.button, row.modifiers);
        ASSERT_EQ(trigger, InputTrigger::mouse(quint16(row.button), row.bits, {})) << row.button;
        EXPECT_EQ(trigger->display, QString::fromUtf8(row.display));
    }
    for (const int button : {0, 1, 65536})
        EXPECT_FALSE(InputTrigger::fromMouseButton(button, Qt::NoModifier)) << button;
    const std::pair<Qt::MouseButtons, std::optional<int>> flags[] = {{Qt::LeftButton, 0}, {Qt::MiddleButton, 2}, {Qt::ExtraButton24, 26},
                                                                     {Qt::NoButton, std::nullopt}, {Qt::LeftButton | Qt::MiddleButton, std::nullopt}};
    for (const auto& [buttons, number] : flags)
        EXPECT_EQ(InputTrigger::mouseButtonNumber(buttons), number) << buttons.toInt();
}

TEST(ShortcutProfile, TriggersCompareWithoutTheirDisplayAndLookupTakesTheFirstMatch)
{
    for (const ShortcutBinding& binding : ShortcutProfile::defaults().bindings)
        EXPECT_EQ(qHash(InputTrigger::key(binding.trigger.code, binding.trigger.modifiers, QStringLiteral("otra"))), qHash(binding.trigger));
    EXPECT_NE(qHash(mouse(5)), qHash(key(5)));
    EXPECT_NE(qHash(key(5, option)), qHash(key(5)));
    // An invalid profile with a repeated trigger still answers with the first binding.
    EXPECT_EQ((ShortcutProfile{1, {{ActionID::copy, mouse(3)}, {ActionID::move, mouse(3)}}}.action(mouse(3))), ActionID::copy);
}

TEST(ShortcutProfile, PreservingDefaultsPutsThemFirstAndDropsTakeovers)
{
    // The first takes "G" from the sheet and the fourth repeats a default: both are dropped.
    const ShortcutProfile custom{2, {{ActionID::copy, key(5, 0, "G")}, {ActionID::move, mouse(3)}, {ActionID::labelPurple, key(5, shift, "⇧G")},
                                     {ActionID::next, key(124)}, {ActionID::copy, mouse(4)}}};
    // The version is carried, so an unsupported file stays unsupported.
    const QList<ShortcutBinding> kept{custom.bindings[1], custom.bindings[2], custom.bindings[4]};
    expectSameProfile(custom.preservingDefaults(), ShortcutProfile{2, ShortcutProfile::defaults().bindings + kept});
}

TEST(ShortcutProfile, ValidationRules)
{
    const struct { const char* name; ShortcutProfile profile; QString expected; } rows[] = {
        {"version 2", ShortcutProfile{2, ShortcutProfile::defaults().bindings}, unsupported},
        {"same trigger, other display", withCustom({{ActionID::copy, key(14, option, "⌥E")}, {ActionID::move, key(14, option, "Tecla 14 con Alt")}}),
         QStringLiteral("Atajo duplicado: Tecla 14 con Alt")},
        {"default repeated", withCustom({{ActionID::copy, key(5, 0, "g")}}), QStringLiteral("Atajo duplicado: g")},
        {"command Q with caps lock bit", withCustom({{ActionID::copy, key(12, command | 0x10000)}}), reserved},
        {"mouse 12 with command is no key", withCustom({{ActionID::copy, mouse(12, command)}}), QStringLiteral("(válido)")},
        {"left button", withCustom({{ActionID::copy, mouse(0)}}), mouseRule},
        // The first offending binding in list order decides the message.
        {"left button before a duplicate", withCustom({{ActionID::copy, mouse(0)}, {ActionID::move, key(5, 0, "G")}}), mouseRule},
        {"reserved before right button", withCustom({{ActionID::copy, key(13, command)}, {ActionID::move, mouse(1)}}), reserved},
        {"duplicate of a reserved trigger reports the reserved one",
         ShortcutProfile{1, {{ActionID::copy, key(12, command, "⌘Q")}, {ActionID::move, key(12, command, "⌘Q")}}}, reserved},
    };
    for (const auto& row : rows)
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
    const ShortcutProfile start = withCustom({{ActionID::copy, mouse(3)}, {ActionID::move, key(8, option)}});
    const struct { const char* name; InputTrigger trigger; ActionID action; bool replacing; QString expected; } rows[] = {
        {"right arrow to previous, replacing", key(124), ActionID::previous, true, QStringLiteral("Este atajo básico se conserva para Foto siguiente")},
        {"G to copy", key(5), ActionID::copy, false, QStringLiteral("Este atajo básico se conserva para Alternar hoja de contactos")},
        {"taken by copy", mouse(3), ActionID::move, false, QStringLiteral("Ya está asignado a Copiar selección…")},
        {"command Q", key(12, command), ActionID::copy, false, reserved},
        {"right button", mouse(1), ActionID::labelPurple, true, mouseRule},
        // A basic trigger bound to its own action, or a trigger the action already has: nothing.
        {"right arrow to next", key(124), ActionID::next, false, {}}, {"copy's own button", mouse(3), ActionID::copy, false, {}},
    };
    for (const auto& row : rows) {
        ShortcutProfile profile = start;
        const Status status = profile.bind(row.trigger, row.action, row.replacing);
        EXPECT_EQ(status.message(), row.expected) << row.name;
        EXPECT_EQ(profile, start) << row.name;
        EXPECT_TRUE(status.ok() || std::holds_alternative<WorkflowError>(status.failure())) << row.name;
    }
}

TEST(ShortcutProfile, BindAppendsOrTakesOverInPlace)
{
    ShortcutProfile profile = withCustom({{ActionID::copy, mouse(3)}, {ActionID::move, mouse(4)}});
    // Appended; the earlier trigger of the same action stays.
    ASSERT_TRUE(profile.bind(mouse(2), ActionID::copy, false).ok());
    // Taken over in place: the position is kept, and so is the new display.
    ASSERT_TRUE(profile.bind(InputTrigger::mouse(3, 0, QStringLiteral("nuevo")), ActionID::labelPurple, true).ok());
    expectSameProfile(profile, withCustom({{ActionID::labelPurple, InputTrigger::mouse(3, 0, QStringLiteral("nuevo"))},
                                           {ActionID::move, mouse(4)}, {ActionID::copy, mouse(2)}}));
}

TEST(ShortcutJson, DecodesTheFileFormAndRoundTripsEveryField)
{
    const Result<ShortcutProfile> decoded = ShortcutProfile::fromJson(profileJson(goodTrigger));
    ASSERT_TRUE(decoded.ok()) << decoded.message().toStdString();
    expectSameProfile(*decoded, ShortcutProfile{1, {{ActionID::copy, InputTrigger::mouse(3, shift, QStringLiteral("⇧Ratón 4"))}}});
    // Decoding checks the form only: the rules are validated()'s, so an unsupported version and a
    // reserved shortcut decode. Unknown keys are passed over, as a later version may add some, and
    // whole numbers written with a fraction part are still whole numbers.
    for (const QByteArray& json : {QByteArray(R"({"version": 2, "bindings": []})"), profileJson(R"("kind": "key", "code": 12, "modifiers": 1048576, "display": "⌘Q")"),
                                   profileJson(goodTrigger + R"(, "note": 1)"), QByteArray(R"({"version": 1.0, "bindings": []})"),
                                   profileJson(R"("kind": "mouse", "code": 3.0, "modifiers": 0, "display": "")"),
                                   // Versions are whole numbers up to 2^53, the largest a JSON number holds exactly.
                                   QByteArray(R"({"version": 9007199254740992, "bindings": []})")})
        EXPECT_TRUE(ShortcutProfile::fromJson(json).ok()) << json.constData();

    ShortcutProfile profile = ShortcutProfile::defaults();
    profile.version = 7;
    // Every action, so that each raw name goes out and comes back; titles tell them apart too.
    QSet<QString> titles;
    for (const ActionID action : ActionIDs::allCases) {
        profile.bindings.append({action, mouse(quint16(100 + int(action)))});
        titles.insert(ActionIDs::title(action));
    }
    EXPECT_EQ(titles.size(), qsizetype(ActionIDs::allCases.size()));
    profile.bindings.append({{ActionID::labelPurple, InputTrigger::mouse(65535, InputTrigger::modifierMask, QStringLiteral("⌃⌥⇧⌘Ratón 65536"))},
                             {ActionID::move, InputTrigger::key(0, 0x10000 | option, QStringLiteral("\"\\ñ\t\u2212"))},
                             {ActionID::copy, InputTrigger::key(65535, 0, QString())}});
    for (const auto format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        const Result<ShortcutProfile> back = ShortcutProfile::fromJson(profile.toJson(format));
        ASSERT_TRUE(back.ok()) << back.message().toStdString();
        expectSameProfile(*back, profile);
    }
    // The text is UTF-8 with the glyphs as they are, not escaped.
    EXPECT_TRUE(ShortcutProfile::defaults().toJson().contains("\"display\":\"\xE2\x88\x92\""));
}

TEST(ShortcutJson, RefusesAnythingOutsideTheForm)
{
    const QString p = QStringLiteral("Perfil de atajos ilegible: ");
    const struct { const char* name; QByteArray json; QString message; } rows[] = {
        {"empty file", "", p + "no es JSON válido (byte 0)"},
        {"no version", R"({"bindings": []})", p + "falta «version» en el perfil"},
        {"version as text", R"({"version": "1", "bindings": []})", p + "version debe ser un número entero"},
        {"version past 2^53", R"({"version": 18014398509481984, "bindings": []})", p + "version debe ser un número entero"},
        {"binding not object", R"({"version": 1, "bindings": [3]})", p + "bindings[0] debe ser un objeto"},
        {"no action", R"({"version": 1, "bindings": [{"trigger": {}}]})", p + "falta «action» en bindings[0]"},
        {"unknown action", profileJson(goodTrigger, "\"delete\""), p + "acción desconocida \"delete\" en bindings[0].action"},
        {"action names are exact", profileJson(goodTrigger, "\"Next\""), p + "acción desconocida \"Next\" en bindings[0].action"},
        {"unknown kind", profileJson(R"("kind": "wheel", "code": 3, "modifiers": 0, "display": "")"), p + "bindings[0].trigger.kind debe ser \"key\" o \"mouse\""},
        {"code 65536", profileJson(R"("kind": "key", "code": 65536, "modifiers": 0, "display": "")"), p + "bindings[0].trigger.code debe ser un entero entre 0 y 65535"},
        {"modifiers huge", profileJson(R"("kind": "key", "code": 5, "modifiers": 1e300, "display": "")"), p + "bindings[0].trigger.modifiers debe ser un entero sin signo"},
        {"display null", profileJson(R"("kind": "key", "code": 5, "modifiers": 0, "display": null)"), p + "bindings[0].trigger.display debe ser un texto"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ShortcutProfile::fromJson(row.json).message(), row.message) << row.name;
    // The place named is that of the first bad binding, counted from 0.
    QJsonArray list = ShortcutProfile::defaults().toJsonObject()[QStringLiteral("bindings")].toArray();
    list[7] = QJsonObject{};
    EXPECT_EQ(ShortcutProfile::fromJsonObject({{QStringLiteral("version"), 1}, {QStringLiteral("bindings"), list}}).message(), p + "falta «action» en bindings[7]");
}

// A profile is exported to a new file only; one that cannot be written whole leaves nothing
// behind, and no descriptor open.
TEST(ShortcutProfileFile, AWriteThatFailsLeavesNoFileAndNoDescriptor)
{
    test::Sandbox sandbox;
    const QString taken = sandbox.write(QStringLiteral("taken.json"), "{}");
    EXPECT_EQ(ShortcutProfileFile::write(ShortcutProfile::defaults(), taken).message(), QStringLiteral("Ya existe «taken.json»: elige otro nombre"));
    const QString path = sandbox.file(QStringLiteral("perfil.json"));
    const auto descriptors = [] { return QDir(QStringLiteral("/proc/self/fd")).count(); };
    const auto before = descriptors();
    // A file-size limit makes the write fail part-way, as a full disk would.
    std::optional<Status> written;
    test::underFileSizeLimit(100, [&] { written = ShortcutProfileFile::write(ShortcutProfile::defaults(), path); });
    EXPECT_EQ(written->message(), SystemError(EFBIG, path).message());
    EXPECT_FALSE(sandbox.exists(QStringLiteral("perfil.json")));
    EXPECT_EQ(descriptors(), before);
    ASSERT_TRUE(ShortcutProfileFile::write(ShortcutProfile::defaults(), path).ok());
    expectSameProfile(*ShortcutProfileFile::read(path), ShortcutProfile::defaults());
}
