#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

#include "Support/CliRunner.h"
#include "Files/TransferPlan.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

CliRun cli(const QStringList& arguments, const QString& program = cliProgram())
{
    return runCli(arguments, QProcessEnvironment::systemEnvironment(), program);
}

} // namespace

TEST(TransferCommands, FoldersAndMkdirBehaveAsTheNavigator)
{
    Sandbox box;
    box.mkdir(QStringLiteral("Día 10"));
    box.mkdir(QStringLiteral(".oculta"));
    const CliRun made = cli({"mkdir", box.path(), "día 2"});
    EXPECT_EQ(made.status, 0) << made.message().toStdString();
    EXPECT_EQ(made.out, Paths::encode(box.file(QStringLiteral("día 2"))) + '\n');

    const CliRun again = cli({"mkdir", box.path(), "día 2"});
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.message(), QStringLiteral("No se pudo crear la carpeta: File exists"));
    const CliRun blank = cli({"mkdir", box.path(), "  "});
    EXPECT_EQ(blank.status, 1);
    EXPECT_EQ(blank.message(), QStringLiteral("Elige un nombre de carpeta válido"));

    const CliRun listed = cli({"folders", "--json", box.path()});
    ASSERT_EQ(listed.status, 0);
    const QJsonArray folders = QJsonDocument::fromJson(listed.out).object()["folders"].toArray();
    ASSERT_EQ(folders.size(), 2);
    EXPECT_EQ(folders[0].toObject()["name"].toString(), QStringLiteral("día 2"));
    EXPECT_EQ(folders[1].toObject()["name"].toString(), QStringLiteral("Día 10"));
    EXPECT_EQ(cli({"folders", box.file(QStringLiteral("falta"))}).status, 1);
}

TEST(TransferCommands, PlanPrintsTheJournalAndChangesNothing)
{
    Sandbox box;
    const QString src = box.mkdir(QStringLiteral("src"));
    const QString dest = box.mkdir(QStringLiteral("dest"));
    box.write(QStringLiteral("src/A.NEF"), patternBytes(1234, 1));
    box.write(QStringLiteral("src/A.xmp"), "x");
    const auto before = treeContents(box.path());

    const CliRun text = cli({"plan", "--move", src + "/A.NEF", "--to", dest});
    ASSERT_EQ(text.status, 0) << text.message().toStdString();
    EXPECT_TRUE(text.out.contains("        1234  " + Paths::encode(src) + "/A.NEF\n"));
    EXPECT_TRUE(text.out.contains("2 archivos · 1235 bytes → " + Paths::encode(dest)));

    const CliRun json = cli({"plan", "--copy", "--json", src + "/A.NEF", "--to", dest});
    ASSERT_EQ(json.status, 0);
    const auto plan = TransferPlan::fromJournal(json.out);
    ASSERT_TRUE(plan.has_value());
    EXPECT_EQ(plan->kind, TransferKind::copy);
    EXPECT_EQ(plan->journal() + '\n', json.out);
    EXPECT_EQ(plan->items.size(), 2);
    EXPECT_EQ(treeContents(box.path()), before);

    EXPECT_EQ(cli({"plan", src + "/A.NEF", "--to", dest}).status, 2);
    EXPECT_EQ(cli({"plan", "--copy", "--move", src + "/A.NEF", "--to", dest}).status, 2);
    EXPECT_EQ(cli({"plan", "--copy", src + "/A.NEF"}).status, 2);
    const CliRun same = cli({"plan", "--copy", src + "/A.NEF", "--to", src});
    EXPECT_EQ(same.status, 1);
    EXPECT_EQ(same.message(), QStringLiteral("Elige otra carpeta de destino"));
}

TEST(TransferCommands, CopyAndMoveRefuseWithoutATerminalAndRunWithYes)
{
    Sandbox box;
    const QString src = box.mkdir(QStringLiteral("src"));
    const QString dest = box.mkdir(QStringLiteral("dest"));
    const QString odd = Paths::decode(QByteArray("caf\xe9"));
    box.write(QStringLiteral("src/") + odd + QStringLiteral(".NEF"), patternBytes(4000, 2));
    box.write(QStringLiteral("src/") + odd + QStringLiteral(".xmp"), "x");
    box.write(QStringLiteral("src/B.NEF"), patternBytes(3000, 3));
    const auto before = treeContents(box.path());

    for (const char* command : {"copy", "move"}) {
        const CliRun refused = cli({command, src + "/B.NEF", "--to", dest});
        EXPECT_EQ(refused.status, 1);
        EXPECT_TRUE(refused.message().contains(
            QStringLiteral("Sin terminal no se puede confirmar; añade --yes para transferir sin preguntar")));
    }
    EXPECT_EQ(treeContents(box.path()), before);

    const CliRun copied = cli({"copy", "--yes", src + "/B.NEF", "--to", dest});
    EXPECT_EQ(copied.status, 0) << copied.message().toStdString();
    EXPECT_TRUE(copied.out.endsWith("Copiados 1 archivos. \n"));

    // QProcess would turn the name's invalid byte into '?': let the shell pass it as it is.
    const CliRun moved = cli({"-c", "exec \"$0\" move --yes --json \"$(printf '%s/caf\\351.NEF' \"$1\")\" --to \"$2\"",
                              cliProgram(), src, dest},
                             QStringLiteral("/bin/sh"));
    ASSERT_EQ(moved.status, 0) << moved.message().toStdString();
    const QJsonObject receipt = QJsonDocument::fromJson(moved.out).object();
    EXPECT_EQ(receipt.keys(), (QStringList{"count", "recoveryFolders"}));
    EXPECT_EQ(receipt["count"].toInt(), 2);
    ASSERT_EQ(receipt["recoveryFolders"].toArray().size(), 1);
    EXPECT_TRUE(receipt["recoveryFolders"][0].toString().startsWith(src + "/.vantelor-move-recovery/"));
    EXPECT_EQ(visibleNames(dest), (QStringList{"B.NEF", odd + ".NEF", odd + ".xmp"}));
    EXPECT_EQ(visibleNames(src), QStringList{"B.NEF"});

    const CliRun conflict = cli({"copy", "--yes", src + "/B.NEF", "--to", dest});
    EXPECT_EQ(conflict.status, 1);
    EXPECT_EQ(conflict.message(), QStringLiteral("El destino ya contiene B.NEF; no se sobrescribirá nada"));
}
