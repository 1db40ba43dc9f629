#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Files/FileWorkflow.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

using Call = FailingFileSystem::Call;
constexpr int itemCount = 4;  // two photos with a sidecar each

const QString interrupted = QStringLiteral("Operación interrumpida. Archivos de recuperación conservados en ");

// What holds after any failure at all: nothing is lost; a transfer that succeeds placed
// everything; one that fails is either undone completely or names the folders it kept.
void expectOutcome(const Shoot& fixture, TransferKind kind, const Result<TransferReceipt>& receipt,
                   const QString& staging, bool cleanupMayFail)
{
    const int placed = expectNothingLost(fixture.originals, fixture.dest);
    if (receipt.ok()) {
        EXPECT_EQ(placed, itemCount);
        EXPECT_EQ(visibleNames(fixture.src).isEmpty(), kind == TransferKind::move);
        if (!cleanupMayFail) {
            EXPECT_FALSE(pathExists(staging));
        }
        return;
    }
    if (receipt.message().startsWith(interrupted)) {
        EXPECT_TRUE(receipt.message().startsWith(interrupted + staging));
        EXPECT_TRUE(pathExists(Paths::join(staging, QStringLiteral("transaction.json"))));
        return;
    }
    for (const auto& [path, bytes] : fixture.originals)
        EXPECT_EQ(readFile(path), bytes) << Paths::displayText(path).toStdString();
    EXPECT_EQ(visibleNames(fixture.dest), QStringList());
    EXPECT_FALSE(pathExists(Paths::join(fixture.src, QStringLiteral(".vantelor-move-recovery"))));
    if (!cleanupMayFail) {
        EXPECT_FALSE(pathExists(staging));
    }
}

} // namespace

TEST(TransferFaults, AFailingCallAtAnyStepEndsWithItsMessageAndLosesNothing)
{
    int runs = 0;
    for (const TransferKind kind : {TransferKind::copy, TransferKind::move}) {
        for (const Call call : {Call::copy, Call::rename, Call::remove, Call::createFolder, Call::removeFolder,
                                Call::writeNewFile, Call::sync}) {
            for (const int error : {EIO, ENOSPC, EXDEV}) {
                for (const bool persistent : {false, true}) {
                    // A call that keeps failing behaves alike whatever its error number.
                    if (persistent && error != EIO)
                        continue;
                    // One past the last call of that kind in a clean run: then nothing fails.
                    for (int n = 1;; ++n) {
                        SCOPED_TRACE(QStringLiteral("%1 %2 #%3 errno %4%5")
                                         .arg(TransferKinds::rawValue(kind), FailingFileSystem::callName(call))
                                         .arg(n)
                                         .arg(error)
                                         .arg(persistent ? " from then on" : "")
                                         .toStdString());
                        Shoot fixture;
                        const TransferPlan plan = fixture.plan(kind);
                        auto fileSystem = std::make_shared<FailingFileSystem>(call, n, error, persistent);
                        FileWorkflow workflow(fileSystem);
                        const auto receipt = workflow.execute(plan).result();
                        ++runs;
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
    EXPECT_GT(runs, 150);
}

TEST(TransferFaults, EachStageReportsItsOwnFailure)
{
    const struct {
        TransferKind kind;
        Call call;
        int n;
        bool persistent;
        std::function<QString(const TransferPlan&, const QString& staging)> message;
    } rows[] = {
        {TransferKind::copy, Call::createFolder, 1, false, [](const TransferPlan&, const QString& staging) { return SystemError(EIO, staging).message(); }},
        {TransferKind::copy, Call::copy, 3, false, [](const TransferPlan& p, const QString&) { return SystemError(EIO, p.items[2].destination).message(); }},
        {TransferKind::copy, Call::sync, 2, false, [](const TransferPlan& p, const QString&) { return SystemError(EIO, p.destination).message(); }},
        {TransferKind::copy, Call::rename, 2, false,
         [](const TransferPlan&, const QString&) { return QStringLiteral("No se puede colocar DSC_0001.xmp sin sobrescribir"); }},
        {TransferKind::move, Call::rename, itemCount + 1, false,
         [](const TransferPlan&, const QString&) { return QStringLiteral("No se pudo conservar la copia de recuperación"); }},
        {TransferKind::move, Call::rename, itemCount + 2, true, [](const TransferPlan&, const QString& staging) {
             return interrupted + staging + QStringLiteral(" y en .vantelor-move-recovery del origen. No se pudo conservar la copia de recuperación");
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(QStringLiteral("%1 #%2").arg(FailingFileSystem::callName(row.call)).arg(row.n).toStdString());
        Shoot fixture;
        const TransferPlan plan = fixture.plan(row.kind);
        FileWorkflow workflow(std::make_shared<FailingFileSystem>(row.call, row.n, EIO, row.persistent));
        EXPECT_EQ(workflow.execute(plan).result().message(), row.message(plan, fixture.staging(plan)));
    }
}

TEST(TransferFaults, RemovalFailingDuringRollbackKeepsTheRecoveryFiles)
{
    for (const TransferKind kind : {TransferKind::copy, TransferKind::move}) {
        for (int committed = 1; committed <= itemCount; ++committed) {
            for (const bool persistent : {false, true}) {
                for (int n = 1; n <= committed + 2; ++n) {
                    SCOPED_TRACE(QStringLiteral("%1 after %2, removal #%3%4")
                                     .arg(TransferKinds::rawValue(kind))
                                     .arg(committed)
                                     .arg(n)
                                     .arg(persistent ? " from then on" : "")
                                     .toStdString());
                    Shoot fixture;
                    const TransferPlan plan = fixture.plan(kind);
                    const QString staging = fixture.staging(plan);
                    FileWorkflow workflow(std::make_shared<FailingFileSystem>(Call::remove, n, EIO, persistent));
                    workflow.setFailAfterCommitting(committed);
                    const auto receipt = workflow.execute(plan).result();
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

TEST(TransferFaults, AFullDiskStopsTheTransferAndLeavesNothingBehind)
{
    Sandbox box;
    const QString volumePath = box.mkdir(QStringLiteral("volume"));
    SmallVolume volume(volumePath, "size=192k,mode=0755");
    if (!volume.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    for (const TransferKind kind : {TransferKind::copy, TransferKind::move}) {
        SCOPED_TRACE(TransferKinds::rawValue(kind).toStdString());
        Shoot fixture(2, 100 * 1024);
        const QString dest = Paths::join(volumePath, TransferKinds::rawValue(kind));
        ASSERT_EQ(::mkdir(Paths::encode(dest).constData(), 0755), 0);
        FileWorkflow workflow;
        const auto plan = workflow.plan(fixture.photos, dest, kind).result();
        ASSERT_TRUE(plan.ok());
        const auto sourceTree = treeContents(fixture.src);
        const auto receipt = workflow.execute(*plan).result();
        ASSERT_FALSE(receipt.ok());
        const auto* error = std::get_if<SystemError>(&receipt.failure());
        ASSERT_NE(error, nullptr) << receipt.message().toStdString();
        EXPECT_EQ(error->code(), ENOSPC);
        EXPECT_TRUE(receipt.message().endsWith(QStringLiteral(": No space left on device")));
        EXPECT_EQ(treeContents(fixture.src), sourceTree);
        EXPECT_EQ(allNames(dest), QStringList());
        ::rmdir(Paths::encode(dest).constData());
    }
}

TEST(TransferFaults, AMoveFromALockedCardIsRefusedBeforeCopying)
{
    Sandbox box;
    const QString card = box.mkdir(QStringLiteral("card"));
    const QString dest = box.mkdir(QStringLiteral("dest"));
    SmallVolume volume(card, "size=1m,mode=0755");
    if (!volume.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    const QString photo = Paths::join(card, QStringLiteral("DSC_0001.NEF"));
    writeFile(photo, patternBytes(5000, 1));
    ASSERT_TRUE(volume.remountReadOnly());

    FileWorkflow workflow;
    const auto move = workflow.plan({photo}, dest, TransferKind::move).result();
    ASSERT_FALSE(move.ok());
    EXPECT_EQ(move.failure(), Failure(WorkflowError::invalid(QStringLiteral("No se puede mover desde una carpeta de solo lectura: ") + card)));
    const auto copy = workflow.plan({photo}, dest, TransferKind::copy).result();
    EXPECT_TRUE(copy.ok()) << copy.message().toStdString();
    EXPECT_EQ(allNames(dest), QStringList());
}

TEST(TransferFaults, AMoveToAnotherFileSystemCopiesAndVerifies)
{
    Sandbox box;
    const QString volumePath = box.mkdir(QStringLiteral("volume"));
    SmallVolume volume(volumePath, "size=16m,mode=0755");
    if (!volume.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    const QString dest = volumePath;
    Shoot fixture(2, 3 * 1024 * 1024);
    ASSERT_EQ(::chmod(Paths::encode(fixture.photos[0]).constData(), 0604), 0);

    FileWorkflow workflow;
    const auto plan = workflow.plan(fixture.photos, dest, TransferKind::move).result();
    ASSERT_TRUE(plan.ok());
    const auto receipt = workflow.execute(*plan).result();
    ASSERT_TRUE(receipt.ok()) << receipt.message().toStdString();
    EXPECT_EQ(expectNothingLost(fixture.originals, dest), itemCount);
    EXPECT_EQ(visibleNames(fixture.src), QStringList());
    EXPECT_EQ(FileStat::read(Paths::join(dest, "DSC_0001.NEF"))->mode & 07777, 0604u);
    EXPECT_EQ(FileStat::read(Paths::join(dest, "DSC_0001.NEF"))->modified,
              FileStat::read(Paths::join(receipt->recoveryFolders.first(), "DSC_0001.NEF"))->modified);
}
