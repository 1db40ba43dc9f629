#include <cerrno>

#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

using Call = FailingFileSystem::Call;
constexpr int itemCount = 4;  // two photos with a sidecar each

const QString interrupted = QStringLiteral("Operación interrumpida. Archivos de recuperación conservados en ");

// What holds after any failure at all: nothing is lost; a transfer that succeeds placed
// everything; one that fails is either undone completely or names the folders it kept.
void expectOutcome(const Shoot& fixture, TransferKind kind, const Result<TransferReceipt>& receipt, const QString& staging, bool cleanupMayFail)
{
    const int placed = expectNothingLost(fixture.originals, fixture.dest);
    if (receipt.ok()) {
        EXPECT_EQ(placed, itemCount);
        EXPECT_EQ(visibleNames(fixture.src).isEmpty(), kind == TransferKind::move);
    } else if (receipt.message().startsWith(interrupted)) {
        EXPECT_TRUE(receipt.message().startsWith(interrupted + staging));
        EXPECT_TRUE(pathExists(Paths::join(staging, QStringLiteral("transaction.json"))));
        return;
    } else {
        // Undone: with no recovery folder left, every original was found at home.
        EXPECT_EQ(visibleNames(fixture.dest), QStringList());
        EXPECT_FALSE(pathExists(Paths::join(fixture.src, QStringLiteral(".vantelor-move-recovery"))));
    }
    EXPECT_TRUE(cleanupMayFail || !pathExists(staging));
}

} // namespace

TEST(TransferFaults, AFailingCallAtAnyStepEndsWithItsMessageAndLosesNothing)
{
    for (const TransferKind kind : {TransferKind::copy, TransferKind::move}) {
        for (const Call call : {Call::copy, Call::rename, Call::remove, Call::createFolder, Call::removeFolder, Call::writeNewFile, Call::sync}) {
            // A call that keeps failing behaves alike whatever its error number.
            for (const auto& [error, persistent] : {std::pair{EIO, false}, {ENOSPC, false}, {EXDEV, false}, {EIO, true}}) {
                // One past the last call of that kind in a clean run: then nothing fails.
                for (int n = 1;; ++n) {
                    SCOPED_TRACE(QStringLiteral("%1 %2 #%3 errno %4%5").arg(TransferKinds::rawValue(kind), FailingFileSystem::callName(call))
                                     .arg(n).arg(error).arg(persistent ? " from then on" : "").toStdString());
                    Shoot fixture;
                    const TransferPlan plan = fixture.plan(kind);
                    auto fileSystem = std::make_shared<FailingFileSystem>(call, n, error, persistent);
                    const auto receipt = execute(plan, fileSystem);
                    // Removals only clean up a finished transfer; their failures are ignored.
                    const bool cleanup = call == Call::remove || call == Call::removeFolder;
                    EXPECT_TRUE(receipt.ok() || (fileSystem->fired() && !cleanup)) << receipt.message().toStdString();
                    // A system error is the injected one.
                    if (const auto* system = receipt.ok() ? nullptr : std::get_if<SystemError>(&receipt.failure())) {
                        EXPECT_EQ(system->code(), error);
                    }
                    expectOutcome(fixture, kind, receipt, fixture.staging(plan), cleanup);
                    if (!fileSystem->fired() || ::testing::Test::HasFailure())
                        break;
                }
            }
        }
    }
}

TEST(TransferFaults, EachStageReportsItsOwnFailure)
{
    // {staging}, {dest} and {item2} stand for the staging folder, the destination and the third
    // item's destination: a failed copy names the file the user asked for, never its staged copy.
    const struct { TransferKind kind; Call call; int n; bool persistent; const char* message; } rows[] = {
        {TransferKind::copy, Call::createFolder, 1, false, "{staging}: Input/output error"},
        {TransferKind::copy, Call::copy, 3, false, "{item2}: Input/output error"},
        {TransferKind::copy, Call::sync, 2, false, "{dest}: Input/output error"},
        {TransferKind::copy, Call::rename, 2, false, "No se puede colocar DSC_0001.xmp sin sobrescribir"},
        {TransferKind::move, Call::rename, itemCount + 1, false, "No se pudo conservar la copia de recuperación"},
        {TransferKind::move, Call::rename, itemCount + 2, true, "Operación interrumpida. Archivos de recuperación conservados en {staging} "
                                                                "y en .vantelor-move-recovery del origen. No se pudo conservar la copia de recuperación"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(QStringLiteral("%1 #%2").arg(FailingFileSystem::callName(row.call)).arg(row.n).toStdString());
        Shoot fixture;
        const TransferPlan plan = fixture.plan(row.kind);
        const QString expected = QString::fromUtf8(row.message).replace("{staging}", fixture.staging(plan))
                                     .replace("{dest}", plan.destination).replace("{item2}", plan.items[2].destination);
        EXPECT_EQ(execute(plan, std::make_shared<FailingFileSystem>(row.call, row.n, EIO, row.persistent)).message(), expected);
    }
}

TEST(TransferFaults, RemovalFailingDuringRollbackKeepsTheRecoveryFiles)
{
    for (const TransferKind kind : {TransferKind::copy, TransferKind::move}) {
        for (int committed = 1; committed <= itemCount; ++committed) {
            for (const bool persistent : {false, true}) {
                for (int n = 1; n <= committed + 2; ++n) {
                    SCOPED_TRACE(QStringLiteral("%1 after %2, removal #%3%4").arg(TransferKinds::rawValue(kind)).arg(committed).arg(n)
                                     .arg(persistent ? " from then on" : "").toStdString());
                    Shoot fixture;
                    const TransferPlan plan = fixture.plan(kind);
                    const QString staging = fixture.staging(plan);
                    const auto receipt = execute(plan, std::make_shared<FailingFileSystem>(Call::remove, n, EIO, persistent), committed);
                    const QString cause = QStringLiteral("Injected transfer failure");
                    EXPECT_EQ(receipt.message(), n <= committed ? interrupted + staging + QStringLiteral(" y en .vantelor-move-recovery del origen. ") + cause
                                                                : cause);
                    expectOutcome(fixture, kind, receipt, staging, true);
                    if (::testing::Test::HasFailure())
                        return;
                }
            }
        }
    }
}

// Small volumes of their own: a full disk, a locked card and another file system.
TEST(TransferFaults, OtherVolumesAreFullLockedOrCopiedAcross)
{
    Sandbox box;
    const QString full = box.mkdir(QStringLiteral("full")), card = box.mkdir(QStringLiteral("card")), other = box.mkdir(QStringLiteral("other"));
    SmallVolume fullVolume(full, "size=192k,mode=0755"), cardVolume(card, "size=1m,mode=0755"), otherVolume(other, "size=16m,mode=0755");
    if (!fullVolume.mounted() || !cardVolume.mounted() || !otherVolume.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    // A full disk stops the transfer where it is and leaves nothing behind.
    FileWorkflow workflow;
    {
        Shoot fixture(2, 100 * 1024);
        const auto sourceTree = treeContents(fixture.src);
        const auto receipt = workflow.execute(*workflow.plan(fixture.photos, full, TransferKind::move).result()).result();
        const auto* error = std::get_if<SystemError>(&receipt.failure());
        ASSERT_NE(error, nullptr) << receipt.message().toStdString();
        EXPECT_EQ(error->code(), ENOSPC);
        EXPECT_TRUE(receipt.message().endsWith(QStringLiteral(": No space left on device")));
        EXPECT_EQ(treeContents(fixture.src), sourceTree);
        EXPECT_EQ(allNames(full), QStringList());
    }

    // A move from a read-only card is refused before anything is copied; a copy is not.
    const QString photo = Paths::join(card, QStringLiteral("DSC_0001.NEF"));
    writeFile(photo, patternBytes(5000, 1));
    ASSERT_TRUE(cardVolume.remountReadOnly());
    EXPECT_EQ(workflow.plan({photo}, other, TransferKind::move).result().failure(),
              Failure(WorkflowError::invalid(QStringLiteral("No se puede mover desde una carpeta de solo lectura: ") + card)));
    EXPECT_TRUE(workflow.plan({photo}, other, TransferKind::copy).result().ok());

    // Across file systems the kernel cannot splice: the copy is read and written, then verified.
    Shoot fixture(2, 3 * 1024 * 1024);
    const auto receipt = workflow.execute(*workflow.plan(fixture.photos, other, TransferKind::move).result()).result();
    ASSERT_TRUE(receipt.ok()) << receipt.message().toStdString();
    EXPECT_EQ(expectNothingLost(fixture.originals, other), itemCount);
    EXPECT_EQ(visibleNames(fixture.src), QStringList());
}

// A journal cut short by the file size limit (as by a full disk) is an error and leaves nothing:
// the close that follows must not hide the failed write.
TEST(TransferFaults, AJournalWrittenOnlyInPartIsAnErrorAndIsRemoved)
{
    Sandbox box;
    const QString journal = box.file(QStringLiteral("journal.json"));
    std::optional<Status> written;
    underFileSizeLimit(1000, [&] { written = TransferFileSystem().writeNewFile(journal, QByteArray(5000, 'j')); });
    EXPECT_EQ(written->message(), SystemError(EFBIG, journal).message());
    EXPECT_FALSE(pathExists(journal));
}
