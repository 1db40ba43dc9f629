#include <sys/stat.h>

#include "Files/TransferExecution.h"
#include "Files/TransferFileSystem.h"
#include "Support/CliRunner.h"
#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

// The disk as an execution leaves it when it stops after copying `staged` files, placing the
// first `placed` of them and taking the first `kept` sources into the recovery folder.
void interrupt(const Shoot& shoot, const TransferPlan& plan, int staged, int placed, int kept, bool stagingGone)
{
    TransferFileSystem disk;
    const QString staging = shoot.staging(plan);
    ASSERT_TRUE(disk.createFolder(staging));
    ASSERT_TRUE(disk.writeNewFile(Paths::join(staging, TransferExecution::journalName()), plan.journal()));
    for (int n = 0; n < staged; ++n) {
        const QString copy = Paths::join(staging, QStringLiteral("item-%1").arg(n));
        ASSERT_TRUE(disk.copyFile(plan.items[n].source, copy));
        if (n < placed) {
            ASSERT_TRUE(disk.renameExclusive(copy, plan.items[n].destination));
        }
    }
    if (kept > 0) {
        const QString area = Paths::join(shoot.src, TransferExecution::recoveryAreaName());
        const QString folder = Paths::join(area, plan.idText());
        ::mkdir(Paths::encode(area).constData(), 0755);
        ASSERT_TRUE(disk.createFolder(folder));
        ASSERT_TRUE(disk.writeNewFile(Paths::join(folder, TransferExecution::journalName()), plan.journal()));
        for (int n = 0; n < kept; ++n)
            ASSERT_TRUE(disk.renameExclusive(plan.items[n].source, Paths::join(folder, Paths::fileName(plan.items[n].source))));
    }
    if (stagingGone) {
        ASSERT_TRUE(disk.removeFile(Paths::join(staging, TransferExecution::journalName())));
        ASSERT_TRUE(disk.removeFolder(staging));
    }
}

} // namespace

TEST(TransferRecovery, EveryInterruptedStateEndsAtHomeOrVerifiedAtTheDestination)
{
    enum End { home, destination, destinationKept };
    const QString area = TransferExecution::recoveryAreaName();
    const struct {
        const char* what;
        TransferKind kind;
        int staged, placed, kept;
        bool stagingGone;
        QStringList options;
        End end;
        QString firstLine;
    } rows[] = {
        {"empty journal, nothing copied", TransferKind::copy, 0, 0, 0, false, {}, home,
         "Copia %1 interrumpida: 0 de 4 archivos verificados en %2, 4 en su carpeta de origen, 0 en .vantelor-move-recovery."},
        {"copy half staged", TransferKind::copy, 2, 0, 0, false, {}, home, {}},
        {"copy half placed", TransferKind::copy, 4, 2, 0, false, {}, home, {}},
        {"copy placed, staging left", TransferKind::copy, 4, 4, 0, false, {}, destination,
         "Copia %1 interrumpida: 4 de 4 archivos verificados en %2, 4 en su carpeta de origen, 0 en .vantelor-move-recovery."},
        {"move half placed", TransferKind::move, 3, 3, 0, false, {}, home, {}},
        {"move taking originals away", TransferKind::move, 4, 4, 2, false, {}, destinationKept, {}},
        {"move taking originals away, purged", TransferKind::move, 4, 4, 2, false, {"--purge-verified"}, destination, {}},
        {"finished move", TransferKind::move, 4, 4, 4, true, {}, destinationKept,
         "Traslado %1 terminado: 4 archivos verificados en %2; 4 originales conservados en .vantelor-move-recovery."},
        {"finished move, purged", TransferKind::move, 4, 4, 4, true, {"--purge-verified"}, destination, {}},
        {"dry run leaves a move half placed", TransferKind::move, 4, 2, 0, false, {"--dry-run"}, home, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Shoot shoot(2);
        const TransferPlan plan = shoot.plan(row.kind);
        interrupt(shoot, plan, row.staged, row.placed, row.kept, row.stagingGone);
        const auto before = treeContents(shoot.box.path());

        // The staging folder is found from the destination, a finished move from its sources.
        const CliRun run = runCli(QStringList{QStringLiteral("recover")} + row.options + QStringList{row.stagingGone ? shoot.src : shoot.dest});
        EXPECT_EQ(run.status, 0) << run.out.toStdString() << run.err.toStdString();
        if (!row.firstLine.isEmpty()) {
            EXPECT_EQ(QString::fromUtf8(run.out).section(QLatin1Char('\n'), 0, 0), row.firstLine.arg(plan.idText(), shoot.dest));
        }
        const int placed = expectNothingLost(shoot.originals, shoot.dest);
        if (row.options.contains(QStringLiteral("--dry-run"))) {
            EXPECT_EQ(treeContents(shoot.box.path()), before);
            continue;
        }
        EXPECT_EQ(placed, row.end == home ? 0 : 4);
        EXPECT_EQ(run.out.contains("Deshecho: cada archivo sigue en su carpeta de origen."), row.end == home) << run.out.toStdString();
        EXPECT_EQ(allNames(shoot.dest), row.end == home ? QStringList() : visibleNames(shoot.dest));
        EXPECT_EQ(allNames(shoot.src), (row.end == destinationKept ? QStringList{area} : QStringList()) + visibleNames(shoot.src));
        if (row.end == destinationKept) {
            EXPECT_EQ(visibleNames(shoot.src), QStringList());
            EXPECT_EQ(visibleNames(Paths::join(Paths::join(shoot.src, area), plan.idText())).size(), 5);
        }
        // Put right once, a second look finds nothing left to do.
        const CliRun again = runCli({QStringLiteral("recover"), shoot.dest});
        EXPECT_EQ(again.status, 0);
        EXPECT_EQ(QString::fromUtf8(again.out).trimmed(), QStringLiteral("No hay transferencias pendientes en ") + shoot.dest + QLatin1Char('.'));
    }
}

TEST(TransferRecovery, AnOriginalIsPurgedOnlyWhileItsCopyStillVerifies)
{
    Shoot shoot(1);
    const TransferPlan plan = shoot.plan(TransferKind::move);
    interrupt(shoot, plan, 2, 2, 2, true);
    writeFile(Paths::join(shoot.dest, QStringLiteral("DSC_0001.xmp")), "edited since the move");

    const CliRun run = runCli({QStringLiteral("recover"), QStringLiteral("--purge-verified"), shoot.src});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.out.contains("Se conserva el original de DSC_0001.xmp: su copia en el destino ya no coincide."))
        << run.out.toStdString();
    const QString kept = Paths::join(Paths::join(Paths::join(shoot.src, TransferExecution::recoveryAreaName()), plan.idText()),
                                     QStringLiteral("DSC_0001.xmp"));
    EXPECT_EQ(readFile(kept), shoot.originals.at(Paths::join(shoot.src, QStringLiteral("DSC_0001.xmp"))));
}

TEST(TransferRecovery, AnOriginalBackHomeIsNeverWrittenOver)
{
    Shoot shoot(1);
    const TransferPlan plan = shoot.plan(TransferKind::move);
    interrupt(shoot, plan, 2, 1, 1, false);
    // Someone put a new file under the original's name while the move was away.
    writeFile(plan.items[0].source, "a new file of the same name");

    const CliRun run = runCli({QStringLiteral("recover"), shoot.dest});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(readFile(plan.items[0].source), QByteArray("a new file of the same name"));
    // Its original stays verified at the destination, the one copy of it left outside recovery.
    EXPECT_EQ(readFile(plan.items[0].destination), shoot.originals.at(plan.items[0].source));
}
