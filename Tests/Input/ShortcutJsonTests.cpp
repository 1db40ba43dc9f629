#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "Input/ShortcutProfile.h"
#include "InputTestSupport.h"

using namespace vantelor;

namespace {

QByteArray profileJson(const QString& triggerBody, const QString& action = QStringLiteral("\"copy\""),
                       const QString& version = QStringLiteral("1"))
{
    return QStringLiteral(R"({"version": %1, "bindings": [{"action": %2, "trigger": {%3}}]})")
        .arg(version, action, triggerBody)
        .toUtf8();
}

const QString goodTrigger = QStringLiteral(R"("kind": "mouse", "code": 3, "modifiers": 131072, "display": "⇧Ratón 4")");

} // namespace

TEST(ShortcutJson, DecodesTheFileForm)
{
    const Result<ShortcutProfile> profile = ShortcutProfile::fromJson(profileJson(goodTrigger));
    ASSERT_TRUE(profile.ok()) << profile.message().toStdString();
    EXPECT_EQ(profile->version, 1);
    ASSERT_EQ(profile->bindings.size(), 1);
    const ShortcutBinding& b = profile->bindings[0];
    EXPECT_EQ(b.action, ActionID::copy);
    EXPECT_EQ(b.trigger.kind, InputTrigger::Kind::mouse);
    EXPECT_EQ(b.trigger.code, 3);
    EXPECT_EQ(b.trigger.modifiers, InputTrigger::shiftModifier);
    EXPECT_EQ(b.trigger.display, QStringLiteral("⇧Ratón 4"));

    // Decoding checks the form only: the rules are validated()'s, so an unsupported version and
    // a reserved shortcut decode.
    EXPECT_TRUE(ShortcutProfile::fromJson(profileJson(goodTrigger, "\"copy\"", "2")).ok());
    EXPECT_TRUE(ShortcutProfile::fromJson(
        profileJson(R"("kind": "key", "code": 12, "modifiers": 1048576, "display": "⌘Q")")).ok());
    // Keys the format does not define are passed over, as a later version may add some.
    EXPECT_TRUE(ShortcutProfile::fromJson(profileJson(goodTrigger + R"(, "note": 1)")).ok());
    // Whole numbers written with a fraction part are still whole numbers.
    EXPECT_TRUE(ShortcutProfile::fromJson(
        profileJson(R"("kind": "mouse", "code": 3.0, "modifiers": 0, "display": "")", "\"copy\"", "1.0")).ok());
    EXPECT_TRUE(ShortcutProfile::fromJson(R"({"version": 1, "bindings": []})").ok());
    // Versions are whole numbers up to 2^53, the largest a JSON number holds exactly.
    EXPECT_TRUE(ShortcutProfile::fromJson(R"({"version": 9007199254740992, "bindings": []})").ok());
    EXPECT_FALSE(ShortcutProfile::fromJson(R"({"version": 18014398509481984, "bindings": []})").ok());
}

TEST(ShortcutJson, RefusesAnythingOutsideTheForm)
{
    struct Row {
        const char* name;
        QByteArray json;
        QString message;
    };
    const QString p = QStringLiteral("Perfil de atajos ilegible: ");
    const Row rows[] = {
        {"empty file", "", p + "no es JSON válido (byte 0)"},
        {"array at top", "[]", p + "el documento debe ser un objeto"},
        {"no version", R"({"bindings": []})", p + "falta «version» en el perfil"},
        {"version as text", R"({"version": "1", "bindings": []})", p + "version debe ser un número entero"},
        {"bindings object", R"({"version": 1, "bindings": {}})", p + "bindings debe ser una lista"},
        {"binding not object", R"({"version": 1, "bindings": [3]})", p + "bindings[0] debe ser un objeto"},
        {"no action", R"({"version": 1, "bindings": [{"trigger": {}}]})", p + "falta «action» en bindings[0]"},
        {"unknown action", profileJson(goodTrigger, "\"delete\""),
         p + "acción desconocida \"delete\" en bindings[0].action"},
        {"action as number", profileJson(goodTrigger, "8"), p + "bindings[0].action debe ser un texto"},
        {"trigger as text", R"({"version": 1, "bindings": [{"action": "copy", "trigger": "G"}]})",
         p + "bindings[0].trigger debe ser un objeto"},
        {"unknown kind", profileJson(R"("kind": "wheel", "code": 3, "modifiers": 0, "display": "")"),
         p + "bindings[0].trigger.kind debe ser \"key\" o \"mouse\""},
        {"code 65536", profileJson(R"("kind": "key", "code": 65536, "modifiers": 0, "display": "")"),
         p + "bindings[0].trigger.code debe ser un entero entre 0 y 65535"},
        {"modifiers huge", profileJson(R"("kind": "key", "code": 5, "modifiers": 1e300, "display": "")"),
         p + "bindings[0].trigger.modifiers debe ser un entero sin signo"},
        {"display null", profileJson(R"("kind": "key", "code": 5, "modifiers": 0, "display": null)"),
         p + "bindings[0].trigger.display debe ser un texto"},
    };
    for (const Row& row : rows) {
        const Result<ShortcutProfile> result = ShortcutProfile::fromJson(row.json);
        ASSERT_FALSE(result.ok()) << row.name;
        EXPECT_EQ(result.message(), row.message) << row.name;
    }

    // The place named is that of the first bad binding, counted from 0.
    QJsonArray list = ShortcutProfile::defaults().toJsonObject()[QStringLiteral("bindings")].toArray();
    QJsonObject bad = list[7].toObject();
    bad.remove(QStringLiteral("action"));
    list[7] = bad;
    const QJsonObject file{{QStringLiteral("version"), 1}, {QStringLiteral("bindings"), list}};
    EXPECT_EQ(ShortcutProfile::fromJsonObject(file).message(), p + "falta «action» en bindings[7]");
}

TEST(ShortcutJson, RoundTripKeepsEveryField)
{
    ShortcutProfile profile = ShortcutProfile::defaults();
    profile.bindings.append({ActionID::labelPurple, InputTrigger::mouse(65535, InputTrigger::modifierMask,
                                                                        QStringLiteral("⌃⌥⇧⌘Ratón 65536"))});
    profile.bindings.append({ActionID::move, InputTrigger::key(0, 0x10000 | InputTrigger::optionModifier,
                                                               QStringLiteral("\"\\ñ\t\u2212"))});
    profile.bindings.append({ActionID::copy, InputTrigger::key(65535, 0, QString())});
    profile.version = 7;

    for (const auto format : {QJsonDocument::Compact, QJsonDocument::Indented}) {
        const Result<ShortcutProfile> back = ShortcutProfile::fromJson(profile.toJson(format));
        ASSERT_TRUE(back.ok()) << back.message().toStdString();
        expectSameProfile(*back, profile);
    }
    // The text is UTF-8 with the glyphs as they are, not escaped.
    EXPECT_TRUE(ShortcutProfile::defaults().toJson().contains("\"display\":\"\xE2\x88\x92\""));
}
