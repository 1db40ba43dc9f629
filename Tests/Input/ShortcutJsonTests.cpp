#include <cerrno>
#include <csignal>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "Input/ShortcutProfile.h"
#include "Input/ShortcutProfileFile.h"
#include "InputTestSupport.h"
#include "Support/Sandbox.h"

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
    expectSameProfile(*profile, ShortcutProfile{1, {{ActionID::copy, InputTrigger::mouse(3, InputTrigger::shiftModifier,
                                                                                         QStringLiteral("⇧Ratón 4"))}}});
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
        {"no version", R"({"bindings": []})", p + "falta «version» en el perfil"},
        {"version as text", R"({"version": "1", "bindings": []})", p + "version debe ser un número entero"},
        {"binding not object", R"({"version": 1, "bindings": [3]})", p + "bindings[0] debe ser un objeto"},
        {"no action", R"({"version": 1, "bindings": [{"trigger": {}}]})", p + "falta «action» en bindings[0]"},
        {"unknown action", profileJson(goodTrigger, "\"delete\""),
         p + "acción desconocida \"delete\" en bindings[0].action"},
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
    list[7] = QJsonObject{};
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

// A profile is exported to a new file only; one that cannot be written whole leaves nothing
// behind, and no descriptor open.
TEST(ShortcutProfileFile, AWriteThatFailsLeavesNoFileAndNoDescriptor)
{
    test::Sandbox sandbox;
    const QString taken = sandbox.write(QStringLiteral("taken.json"), "{}");
    EXPECT_EQ(ShortcutProfileFile::write(ShortcutProfile::defaults(), taken).message(),
              QStringLiteral("Ya existe «taken.json»: elige otro nombre"));
    const QString path = sandbox.file(QStringLiteral("perfil.json"));
    const auto descriptors = [] { return QDir(QStringLiteral("/proc/self/fd")).count(); };
    const auto before = descriptors();
    // A file-size limit makes the write fail part-way, as a full disk would.
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small{100, limit.rlim_max};
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const Status written = ShortcutProfileFile::write(ShortcutProfile::defaults(), path);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, handler);
    EXPECT_EQ(written.message(), SystemError(EFBIG, path).message());
    EXPECT_FALSE(sandbox.exists(QStringLiteral("perfil.json")));
    EXPECT_EQ(descriptors(), before);
    ASSERT_TRUE(ShortcutProfileFile::write(ShortcutProfile::defaults(), path).ok());
    expectSameProfile(*ShortcutProfileFile::read(path), ShortcutProfile::defaults());
}
