#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

#include "Support/CliRunner.h"
#include "Input/ShortcutProfile.h"
#include "Support/Sandbox.h"
#include "InputTestSupport.h"

using namespace vantelor;
using vantelor::test::CliRun;
using vantelor::test::runCli;

namespace {

CliRun cli(const QStringList& arguments)
{
    return runCli(arguments);
}

} // namespace

TEST(ShortcutsCommand, DefaultsJsonDecodesToTheDefaults)
{
    ASSERT_FALSE(qEnvironmentVariable("VANTELOR_CLI").isEmpty());
    const CliRun run = cli({"shortcuts", "defaults", "--json"});
    ASSERT_EQ(run.status, 0) << run.err.toStdString();
    const Result<ShortcutProfile> profile = ShortcutProfile::fromJson(run.out);
    ASSERT_TRUE(profile.ok()) << profile.message().toStdString();
    expectSameProfile(*profile, ShortcutProfile::defaults());

    const CliRun text = cli({"shortcuts", "defaults"});
    ASSERT_EQ(text.status, 0);
    const QStringList lines = QString::fromUtf8(text.out).trimmed().split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 26);
    EXPECT_EQ(lines[0], QStringLiteral("←      Foto anterior"));
    EXPECT_EQ(lines[18], QStringLiteral("−      Alejar"));
    EXPECT_EQ(lines[24], QStringLiteral("⌘A     Seleccionar todas las fotos filtradas"));
    EXPECT_EQ(lines[25], QStringLiteral("25 atajos"));
}

TEST(ShortcutsCommand, CheckKeepsWhatImportWouldKeep)
{
    test::Sandbox sandbox;
    ShortcutProfile custom;
    custom.bindings = {
        {ActionID::copy, InputTrigger::key(5, 0, QStringLiteral("G"))}, // basic: import drops it
        {ActionID::move, InputTrigger::mouse(3, 0, QStringLiteral("Ratón 4"))},
        {ActionID::labelPurple, InputTrigger::key(35, InputTrigger::optionModifier, QStringLiteral("⌥P"))},
    };
    const QString path = sandbox.write(QStringLiteral("Vantelor-shortcuts.json"), custom.toJson());

    const CliRun json = cli({"shortcuts", "check", "--json", path});
    ASSERT_EQ(json.status, 0) << json.err.toStdString();
    const Result<ShortcutProfile> kept = ShortcutProfile::fromJson(json.out);
    ASSERT_TRUE(kept.ok()) << kept.message().toStdString();
    expectSameProfile(*kept, custom.preservingDefaults());
    EXPECT_EQ(kept->action(InputTrigger::key(5, 0, {})), ActionID::sheet);

    const CliRun text = cli({"shortcuts", "check", path});
    ASSERT_EQ(text.status, 0);
    const QString out = QString::fromUtf8(text.out);
    EXPECT_TRUE(out.contains(QStringLiteral("Ratón 4  Mover selección…\n"))) << out.toStdString();
    EXPECT_TRUE(out.contains(QStringLiteral("⌥P       Etiqueta morada\n"))) << out.toStdString();
    EXPECT_TRUE(out.endsWith(QStringLiteral("27 atajos\n"))) << out.toStdString();
    // The file is read, never touched.
    EXPECT_EQ(sandbox.read(QStringLiteral("Vantelor-shortcuts.json")), custom.toJson());
}

TEST(ShortcutsCommand, CheckRefusesWithTheRuleMessage)
{
    test::Sandbox sandbox;
    const auto file = [&](const char* name, const QByteArray& bytes) { return sandbox.write(QString::fromUtf8(name), bytes); };
    ShortcutProfile version2 = ShortcutProfile::defaults();
    version2.version = 2;
    ShortcutProfile reserved;
    reserved.bindings = {{ActionID::copy, InputTrigger::key(12, InputTrigger::commandModifier | InputTrigger::shiftModifier,
                                                            QStringLiteral("⇧⌘Q"))}};
    ShortcutProfile duplicate;
    duplicate.bindings = {{ActionID::copy, InputTrigger::mouse(4, 0, QStringLiteral("Ratón 5"))},
                          {ActionID::move, InputTrigger::mouse(4, 0, QStringLiteral("botón 4"))}};
    ShortcutProfile left;
    left.bindings = {{ActionID::copy, InputTrigger::mouse(0, 0, QStringLiteral("Ratón 1"))}};

    struct Row {
        QString path;
        QString message;
    };
    const Row rows[] = {
        {file("v2.json", version2.toJson()), QStringLiteral("Perfil de atajos no compatible")},
        {file("reserved.json", reserved.toJson()),
         QStringLiteral("Este atajo está reservado para las ventanas y aplicaciones de macOS")},
        {file("duplicate.json", duplicate.toJson()), QStringLiteral("Atajo duplicado: botón 4")},
        {file("left.json", left.toJson()), QStringLiteral("Usa el botón central o un botón adicional del ratón")},
        {file("unknown.json", R"({"version": 1, "bindings": [{"action": "print", "trigger": {}}]})"),
         QStringLiteral("Perfil de atajos ilegible: acción desconocida \"print\" en bindings[0].action")},
        {file("broken.json", "{\"version\": 1,"), QStringLiteral("Perfil de atajos ilegible: no es JSON válido (byte 14)")},
        {file("huge.json", QByteArray(ShortcutProfile::maximumFileBytes + 1, ' ')),
         QStringLiteral("Perfil de atajos no compatible")},
        {sandbox.file(QStringLiteral("missing.json")), sandbox.file(QStringLiteral("missing.json"))
                                                            + QStringLiteral(": No such file or directory")},
        {sandbox.mkdir(QStringLiteral("folder.json")), sandbox.file(QStringLiteral("folder.json"))
                                                           + QStringLiteral(": Is a directory")},
    };
    for (const Row& row : rows) {
        for (const QStringList& extra : {QStringList{}, QStringList{"--json"}}) {
            const CliRun run = cli(QStringList{"shortcuts", "check"} + extra + QStringList{row.path});
            EXPECT_EQ(run.status, 1) << row.path.toStdString();
            EXPECT_EQ(QString::fromUtf8(run.err).trimmed(), row.message) << row.path.toStdString();
            EXPECT_TRUE(run.out.isEmpty()) << row.path.toStdString();
        }
    }
}

TEST(ShortcutsCommand, Usage)
{
    for (const QStringList& arguments : {QStringList{"shortcuts"}, QStringList{"shortcuts", "export"},
                                         QStringList{"shortcuts", "check"}, QStringList{"shortcuts", "defaults", "x"},
                                         QStringList{"shortcuts", "check", "a", "b"}}) {
        const CliRun run = cli(arguments);
        EXPECT_EQ(run.status, 2) << arguments.join(' ').toStdString();
        EXPECT_FALSE(QString::fromUtf8(run.err).trimmed().isEmpty()) << arguments.join(' ').toStdString();
    }
    EXPECT_EQ(cli({"shortcuts", "--help"}).status, 0);
    EXPECT_EQ(cli({"shortcuts", "check", "--help"}).status, 0);
}
