#include <cerrno>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
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

Result<TransferReceipt> execute(const TransferPlan& plan, std::shared_ptr<TransferFileSystem> fileSystem = {},
                                std::optional<int> failAfter = {})
{
    FileWorkflow workflow(std::move(fileSystem));
    workflow.setFailAfterCommitting(failAfter);
    return workflow.execute(plan).result();
}

// After a failure that was fully undone: the sources as they were, nothing in the destination.
void expectRolledBack(const Shoot& shoot, const std::map<QString, QByteArray>& sourceTree)
{
    EXPECT_EQ(treeContents(shoot.src), sourceTree);
    EXPECT_EQ(allNames(shoot.dest), QStringList());
}

} // namespace

TEST(TransferExecution, CopyWritesTheJournalFirstAndPlacesVerifiedCopiesKeepingAttributes)
{
    Shoot shoot(2);
    const QByteArray photo = Paths::encode(shoot.photos.first());
    const QByteArray copy = Paths::encode(Paths::join(shoot.dest, "DSC_0001.NEF"));
    ASSERT_EQ(::chmod(photo.constData(), 0640), 0);
    const struct timespec times[2] = {{1'600'000'000, 123'456'789}, {1'500'000'000, 987'654'321}};
    ASSERT_EQ(::utimensat(AT_FDCWD, photo.constData(), times, 0), 0);
    const bool xattrs = ::setxattr(photo.constData(), "user.xdg.tags", "rojo", 4, 0) == 0
        && ::setxattr(photo.constData(), "user.empty", "", 0, 0) == 0;

    const TransferPlan plan = shoot.plan(TransferKind::copy);
    auto fileSystem = std::make_shared<FailingFileSystem>();
    QByteArray journalAtFirstCopy;
    fileSystem->beforeCall = [&](Call call, int n, const QString&) {
        if (call == Call::copy && n == 1)
            journalAtFirstCopy = readFile(Paths::join(shoot.staging(plan), "transaction.json"));
    };
    const auto receipt = execute(plan, fileSystem);
    ASSERT_TRUE(receipt.ok()) << receipt.message().toStdString();
    EXPECT_EQ(journalAtFirstCopy, plan.journal());
    EXPECT_FALSE(pathExists(shoot.staging(plan)));
    EXPECT_EQ(receipt->count, 4);
    EXPECT_TRUE(receipt->recoveryFolders.isEmpty());
    EXPECT_EQ(allNames(shoot.dest), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp", "DSC_0002.NEF", "DSC_0002.xmp"}));
    struct stat copied {};
    ASSERT_EQ(::stat(copy.constData(), &copied), 0);
    EXPECT_EQ(copied.st_mode & 07777, 0640u);
    EXPECT_EQ(copied.st_mtim.tv_sec, times[1].tv_sec);
    EXPECT_EQ(copied.st_mtim.tv_nsec, times[1].tv_nsec);
    EXPECT_EQ(copied.st_atim.tv_sec, times[0].tv_sec);
    char value[16] = {};
    EXPECT_TRUE(!xattrs || ::getxattr(copy.constData(), "user.xdg.tags", value, sizeof value) == 4);
    EXPECT_STREQ(value, xattrs ? "rojo" : "");
    EXPECT_TRUE(!xattrs || ::getxattr(copy.constData(), "user.empty", value, sizeof value) == 0);
    // Checked last: reading the copies here would touch their access times.
    EXPECT_EQ(expectNothingLost(shoot.originals, shoot.dest), 4);
    for (const auto& [path, bytes] : shoot.originals)
        EXPECT_EQ(readFile(path), bytes);
}

TEST(TransferExecution, MoveKeepsOriginalsInARecoveryFolderPerSourceFolder)
{
    Shoot shoot(1);
    const QString second = shoot.box.mkdir(QStringLiteral("src2"));
    const QString other = shoot.box.write(QStringLiteral("src2/IMG_1.JPG"), patternBytes(500, 9));
    shoot.box.write(QStringLiteral("src2/img_1.pp3"), "perfil");
    shoot.photos.append(other);
    for (const QString& name : visibleNames(second))
        shoot.originals[Paths::join(second, name)] = readFile(Paths::join(second, name));

    const TransferPlan plan = shoot.plan(TransferKind::move);
    auto fileSystem = std::make_shared<FailingFileSystem>();
    QStringList synced;
    fileSystem->beforeCall = [&synced](Call call, int, const QString& path) {
        if (call == Call::sync)
            synced.append(path);
    };
    const auto receipt = execute(plan, fileSystem);
    ASSERT_TRUE(receipt.ok()) << receipt.message().toStdString();
    EXPECT_EQ(receipt->count, 4);
    // The departures are made durable: each source folder once, however many files left it.
    EXPECT_EQ(synced.count(shoot.src), 1);
    EXPECT_EQ(synced.count(second), 1);
    const QString recoveryOne = shoot.src + QStringLiteral("/.vantelor-move-recovery/") + plan.idText();
    const QString recoveryTwo = second + QStringLiteral("/.vantelor-move-recovery/") + plan.idText();
    EXPECT_EQ(QSet<QString>(receipt->recoveryFolders.begin(), receipt->recoveryFolders.end()),
              (QSet<QString>{recoveryOne, recoveryTwo}));
    EXPECT_EQ(allNames(recoveryOne), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp", "transaction.json"}));
    EXPECT_EQ(allNames(recoveryTwo), (QStringList{"IMG_1.JPG", "img_1.pp3", "transaction.json"}));
    EXPECT_EQ(readFile(Paths::join(recoveryOne, "transaction.json")), plan.journal());
    EXPECT_EQ(visibleNames(shoot.src), QStringList());
    EXPECT_EQ(allNames(shoot.dest), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp", "IMG_1.JPG", "img_1.pp3"}));
    EXPECT_EQ(expectNothingLost(shoot.originals, shoot.dest), 4);
}

TEST(TransferExecution, SourcesChangedAfterPlanningStopEverything)
{
    const struct { const char* what; std::function<void(const QString& photo)> change; } rows[] = {
        {"modified", [](const QString& photo) { writeFile(photo, "otros bytes"); }},
        {"truncated", [](const QString& photo) { ::truncate(Paths::encode(photo).constData(), 10); }},
        {"deleted", [](const QString& photo) { ::unlink(Paths::encode(photo).constData()); }},
        {"replaced by a link",
         [](const QString& photo) {
             const QString aside = photo + QStringLiteral(".aparte");
             ::rename(Paths::encode(photo).constData(), Paths::encode(aside).constData());
             ::symlink(Paths::encode(aside).constData(), Paths::encode(photo).constData());
         }},
        {"replaced by a FIFO",
         [](const QString& photo) {
             ::unlink(Paths::encode(photo).constData());
             ::mkfifo(Paths::encode(photo).constData(), 0644);
         }},
    };
    for (const auto& row : rows) {
        for (const TransferKind kind : {TransferKind::copy, TransferKind::move}) {
            SCOPED_TRACE(std::string(row.what) + " " + (kind == TransferKind::copy ? "copy" : "move"));
            Shoot shoot(2);
            const TransferPlan plan = shoot.plan(kind);
            row.change(shoot.photos.last());
            const auto sourceTree = treeContents(shoot.src);
            const auto receipt = execute(plan);
            ASSERT_FALSE(receipt.ok());
            EXPECT_EQ(receipt.failure(), Failure(WorkflowError::conflict(QStringLiteral(
                                             "Los archivos han cambiado tras confirmar; operación detenida"))));
            expectRolledBack(shoot, sourceTree);
        }
    }
}

TEST(TransferExecution, ChangesAtEachLaterMomentAreCaughtAndUndone)
{
    // Two photos with sidecars: items 0..3 in plan order. Calls are counted from 1.
    const struct {
        const char* what;
        TransferKind kind;
        Call call;
        int occurrence;
        std::function<void(const TransferPlan&)> change;
        QString message;
        bool sourceRewritten;
    } rows[] = {
        {"destination appears before staging", TransferKind::copy, Call::copy, 2,
         [](const TransferPlan& p) { writeFile(p.items[2].destination, "intruso"); },
         QStringLiteral("Los archivos han cambiado tras confirmar; operación detenida"), false},
        {"source changes after its copy", TransferKind::copy, Call::copy, 2,
         [](const TransferPlan& p) { writeFile(p.items[0].source, "nuevo"); },
         QStringLiteral("El origen cambió durante la copia"), true},
        {"destination appears at the last moment", TransferKind::move, Call::rename, 3,
         [](const TransferPlan& p) { writeFile(p.items[2].destination, "intruso"); },
         QStringLiteral("No se puede colocar DSC_0002.NEF sin sobrescribir"), false},
        {"source changes after it was placed", TransferKind::move, Call::rename, 4,
         [](const TransferPlan& p) { writeFile(p.items[0].source, "nuevo"); },
         QStringLiteral("El origen cambió antes de mover"), true},
        {"source deleted after it was placed", TransferKind::move, Call::rename, 4,
         [](const TransferPlan& p) { ::unlink(Paths::encode(p.items[1].source).constData()); },
         QStringLiteral("El origen cambió antes de mover"), true},
        {"source written while it moves", TransferKind::move, Call::rename, 6,
         [](const TransferPlan& p) { writeFile(p.items[1].source, "nuevo"); },
         QStringLiteral("El origen cambió al mover; restaurando"), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Shoot shoot(2);
        const TransferPlan plan = shoot.plan(row.kind);
        auto fileSystem = std::make_shared<FailingFileSystem>();
        fileSystem->beforeCall = [&](Call call, int n, const QString&) {
            if (call == row.call && n == row.occurrence)
                row.change(plan);
        };
        const auto receipt = execute(plan, fileSystem);
        ASSERT_FALSE(receipt.ok());
        EXPECT_EQ(receipt.message(), row.message);
        EXPECT_FALSE(pathExists(shoot.staging(plan)));
        EXPECT_FALSE(pathExists(Paths::join(shoot.src, ".vantelor-move-recovery")));
        const QStringList left = visibleNames(shoot.dest);
        EXPECT_TRUE(left.isEmpty() || left == QStringList{"DSC_0002.NEF"}) << left.join(',').toStdString();
        if (left.size() == 1) {
            EXPECT_EQ(readFile(Paths::join(shoot.dest, "DSC_0002.NEF")), "intruso");
            for (const auto& [path, bytes] : shoot.originals)
                EXPECT_EQ(readFile(path), bytes);
        } else if (!row.sourceRewritten) {
            expectNothingLost(shoot.originals, shoot.dest);
        }
    }
}

TEST(TransferExecution, APlacedFileChangedBeforeRollbackIsLeftAndReported)
{
    Shoot shoot(2);
    const TransferPlan plan = shoot.plan(TransferKind::copy);
    auto fileSystem = std::make_shared<FailingFileSystem>();
    fileSystem->beforeCall = [&](Call call, int n, const QString&) {
        if (call == Call::rename && n == 2)
            writeFile(plan.items[0].destination, "retocado");
    };
    const auto receipt = execute(plan, fileSystem, 2);
    ASSERT_FALSE(receipt.ok());
    EXPECT_EQ(receipt.failure(), Failure(WorkflowError::io(
                                     QStringLiteral("Operación interrumpida. Archivos de recuperación conservados en ")
                                     + shoot.staging(plan)
                                     + QStringLiteral(" y en .vantelor-move-recovery del origen. Injected transfer failure"))));
    EXPECT_EQ(visibleNames(shoot.dest), QStringList{"DSC_0001.NEF"});
    EXPECT_EQ(readFile(plan.items[0].destination), "retocado");
    EXPECT_TRUE(pathExists(Paths::join(shoot.staging(plan), "transaction.json")));
    for (const auto& [path, bytes] : shoot.originals)
        EXPECT_EQ(readFile(path), bytes);
}

TEST(TransferExecution, UnsafeRecoveryAreaStopsTheMove)
{
    const struct { const char* what; std::function<void(const Shoot&)> prepare; } rows[] = {
        {"symbolic link to a folder",
         [](const Shoot& s) { s.box.symlink(s.box.mkdir("elsewhere"), "src/.vantelor-move-recovery"); }},
        {"dangling symbolic link",
         [](const Shoot& s) { s.box.symlink(s.box.file("nowhere"), "src/.vantelor-move-recovery"); }},
        {"regular file", [](const Shoot& s) { s.box.write("src/.vantelor-move-recovery", "no soy carpeta"); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Shoot shoot(2);
        row.prepare(shoot);
        const TransferPlan plan = shoot.plan(TransferKind::move);
        const auto sourceTree = treeContents(shoot.src);
        const auto receipt = execute(plan);
        ASSERT_FALSE(receipt.ok());
        EXPECT_EQ(receipt.failure(),
                  Failure(WorkflowError::invalid(QStringLiteral("La carpeta de recuperación no es segura"))));
        expectRolledBack(shoot, sourceTree);
        if (pathExists(shoot.box.file("elsewhere"))) {
            EXPECT_EQ(allNames(shoot.box.file("elsewhere")), QStringList());
        }
    }
}

TEST(TransferExecution, AnExistingStagingFolderOfThePlanIsLeftAlone)
{
    Shoot shoot(1);
    const TransferPlan plan = shoot.plan(TransferKind::move);
    const QString staging = shoot.staging(plan);
    shoot.box.write(QStringLiteral("dest/.vantelor-transfer-") + plan.idText() + QStringLiteral("/item-0"), "ajeno");
    const auto sourceTree = treeContents(shoot.src);
    const auto receipt = execute(plan);
    ASSERT_FALSE(receipt.ok());
    EXPECT_EQ(receipt.message(), staging + QStringLiteral(": File exists"));
    EXPECT_EQ(treeContents(shoot.src), sourceTree);
    EXPECT_EQ(allNames(staging), QStringList{"item-0"});
    EXPECT_EQ(readFile(Paths::join(staging, "item-0")), "ajeno");
}

TEST(TransferExecution, ExistingRecoveryAreaIsSharedBetweenMoves)
{
    Shoot shoot(2);
    ASSERT_TRUE(execute(shoot.plan(TransferKind::move, {shoot.photos[0]})).ok());
    ASSERT_TRUE(execute(shoot.plan(TransferKind::move, {shoot.photos[1]})).ok());
    EXPECT_EQ(allNames(Paths::join(shoot.src, ".vantelor-move-recovery")).size(), 2);
    EXPECT_EQ(expectNothingLost(shoot.originals, shoot.dest), 4);
}
