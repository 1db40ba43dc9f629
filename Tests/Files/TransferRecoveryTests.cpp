#include "Files/TransferExecution.h"
#include "Support/CliRunner.h"
#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

using Call = FailingFileSystem::Call;

// The disk as a crash leaves it just before the n-th call of a kind; a run with n == 0 finishes.
void crashBefore(const TransferPlan& plan, Call at, int n)
{
    struct Crash {};
    FailingFileSystem disk(at, n, [] { throw Crash{}; });
    try {
        (void)TransferExecution(plan, disk, std::nullopt).run();
    } catch (const Crash&) {
    }
}

} // namespace

TEST(TransferRecovery, EveryInterruptedStateEndsAtHomeOrVerifiedAtTheDestination)
{
    enum End { home, destination, destinationKept };
    const QString area = TransferExecution::recoveryAreaName();
    const struct { const char* what; TransferKind kind; Call call; int n; QStringList options; End end; QString firstLine; } rows[] = {
        {"empty journal, nothing copied", TransferKind::copy, Call::copy, 1, {}, home,
         "Copia %1 interrumpida: 0 de 4 archivos verificados en %2, 4 en su carpeta de origen, 0 en .vantelor-move-recovery."},
        {"copy half staged", TransferKind::copy, Call::copy, 3, {}, home, {}},
        {"copy half placed", TransferKind::copy, Call::rename, 3, {}, home, {}},
        {"copy placed, staging left", TransferKind::copy, Call::remove, 1, {}, destination,
         "Copia %1 interrumpida: 4 de 4 archivos verificados en %2, 4 en su carpeta de origen, 0 en .vantelor-move-recovery."},
        {"move half placed", TransferKind::move, Call::rename, 4, {}, home, {}},
        {"move taking originals away", TransferKind::move, Call::rename, 7, {}, destinationKept, {}},
        {"move taking originals away, purged", TransferKind::move, Call::rename, 7, {"--purge-verified"}, destination, {}},
        {"finished move", TransferKind::move, Call::copy, 0, {}, destinationKept,
         "Traslado %1 terminado: 4 archivos verificados en %2; 4 originales conservados en .vantelor-move-recovery."},
        {"finished move, purged", TransferKind::move, Call::copy, 0, {"--purge-verified"}, destination, {}},
        {"dry run leaves a move half placed", TransferKind::move, Call::rename, 3, {"--dry-run"}, home, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Shoot shoot(2);
        const TransferPlan plan = shoot.plan(row.kind);
        crashBefore(plan, row.call, row.n);
        const auto before = treeContents(shoot.box.path());

        // The staging folder is found from the destination, a finished move from its sources.
        const CliRun run = runCli(QStringList{QStringLiteral("recover")} + row.options + QStringList{row.n == 0 ? shoot.src : shoot.dest});
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
    crashBefore(plan, Call::copy, 0);
    writeFile(Paths::join(shoot.dest, QStringLiteral("DSC_0001.xmp")), "edited since the move");

    const CliRun run = runCli({QStringLiteral("recover"), QStringLiteral("--purge-verified"), shoot.src});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.out.contains("Se conserva el original de DSC_0001.xmp: su copia en el destino ya no coincide."))
        << run.out.toStdString();
    const QString kept = shoot.src + "/" + TransferExecution::recoveryAreaName() + "/" + plan.idText() + "/DSC_0001.xmp";
    EXPECT_EQ(readFile(kept), shoot.originals.at(shoot.src + "/DSC_0001.xmp"));
}

// Originals the user deleted by hand from a finished move's recovery folder leave only its
// journal: there is nothing left to report, so the folder goes.
TEST(TransferRecovery, AFinishedMoveWithNoOriginalLeftIsTidiedAway)
{
    Shoot shoot(1);
    const TransferPlan plan = shoot.plan(TransferKind::move);
    crashBefore(plan, Call::copy, 0);
    const QString kept = shoot.src + "/" + TransferExecution::recoveryAreaName() + "/" + plan.idText();
    QStringList originals = visibleNames(kept);
    originals.removeOne(TransferExecution::journalName());
    for (const QString& name : originals)
        ASSERT_EQ(::unlink(Paths::encode(Paths::join(kept, name)).constData()), 0);

    const CliRun run = runCli({QStringLiteral("recover"), shoot.src});
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(run.out.contains("terminado")) << run.out.toStdString();
    EXPECT_EQ(allNames(shoot.src), QStringList());
}

TEST(TransferRecovery, AnOriginalBackHomeIsNeverWrittenOver)
{
    Shoot shoot(1);
    const TransferPlan plan = shoot.plan(TransferKind::move);
    crashBefore(plan, Call::rename, 4);
    // Someone put a new file under the original's name while the move was away.
    writeFile(plan.items[0].source, "a new file of the same name");

    const CliRun run = runCli({QStringLiteral("recover"), shoot.dest});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(readFile(plan.items[0].source), QByteArray("a new file of the same name"));
    // Its original stays verified at the destination, the one copy of it left outside recovery.
    EXPECT_EQ(readFile(plan.items[0].destination), shoot.originals.at(plan.items[0].source));
}
