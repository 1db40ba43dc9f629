#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

using Call = FailingFileSystem::Call;

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
    QByteArray journalAtFirstCopy;
    const auto receipt = execute(plan, std::make_shared<FailingFileSystem>(Call::copy, 1, [&] {
        journalAtFirstCopy = readFile(Paths::join(shoot.staging(plan), "transaction.json"));
    }));
    ASSERT_TRUE(receipt.ok()) << receipt.message().toStdString();
    EXPECT_EQ(journalAtFirstCopy, plan.journal());
    EXPECT_EQ(receipt->count, 4);
    EXPECT_EQ(allNames(shoot.dest), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp", "DSC_0002.NEF", "DSC_0002.xmp"}));
    struct stat copied {};
    ASSERT_EQ(::stat(copy.constData(), &copied), 0);
    EXPECT_EQ(std::tuple(copied.st_mode & 07777, copied.st_mtim.tv_sec, copied.st_mtim.tv_nsec, copied.st_atim.tv_sec),
              std::tuple(0640u, times[1].tv_sec, times[1].tv_nsec, times[0].tv_sec));
    char value[16] = {};
    EXPECT_TRUE(!xattrs || ::getxattr(copy.constData(), "user.xdg.tags", value, sizeof value) == 4);
    EXPECT_STREQ(value, xattrs ? "rojo" : "");
    EXPECT_TRUE(!xattrs || ::getxattr(copy.constData(), "user.empty", value, sizeof value) == 0);
    // Checked last: reading the copies here would touch their access times.
    EXPECT_EQ(expectNothingLost(shoot.originals, shoot.dest), 4);
    EXPECT_EQ(visibleNames(shoot.src).size(), 4);
}

TEST(TransferExecution, MoveKeepsOriginalsInARecoveryFolderPerSourceFolderSharedBetweenMoves)
{
    Shoot shoot(2);
    const QString second = shoot.box.mkdir(QStringLiteral("src2"));
    shoot.photos[1] = shoot.box.write(QStringLiteral("src2/IMG_1.JPG"), patternBytes(500, 9));
    shoot.box.write(QStringLiteral("src2/img_1.pp3"), "perfil");
    for (const QString& name : visibleNames(second))
        shoot.originals[Paths::join(second, name)] = readFile(Paths::join(second, name));

    const TransferPlan plan = shoot.plan(TransferKind::move);
    auto fileSystem = std::make_shared<FailingFileSystem>();
    QStringList synced;
    fileSystem->beforeCall = [&synced](Call call, int, const QString& path) { synced.append(call == Call::sync ? path : QString()); };
    const auto receipt = execute(plan, fileSystem);
    ASSERT_TRUE(receipt.ok()) << receipt.message().toStdString();
    // The departures are made durable: each source folder once, however many files left it.
    EXPECT_EQ(synced.count(shoot.src), 1);
    EXPECT_EQ(synced.count(second), 1);
    const QString recoveryOne = shoot.src + QStringLiteral("/.vantelor-move-recovery/") + plan.idText();
    const QString recoveryTwo = second + QStringLiteral("/.vantelor-move-recovery/") + plan.idText();
    EXPECT_EQ(QSet<QString>(receipt->recoveryFolders.begin(), receipt->recoveryFolders.end()),
              (QSet<QString>{recoveryOne, recoveryTwo}));
    EXPECT_EQ(allNames(recoveryOne), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp", "transaction.json"}));
    EXPECT_EQ(allNames(recoveryTwo), (QStringList{"IMG_1.JPG", "img_1.pp3", "transaction.json"}));
    EXPECT_EQ(visibleNames(shoot.src), (QStringList{"DSC_0002.NEF", "DSC_0002.xmp"}));
    EXPECT_EQ(allNames(shoot.dest), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp", "IMG_1.JPG", "img_1.pp3"}));
    // A later move from the same folder adds its own folder to the recovery area already there.
    ASSERT_TRUE(execute(shoot.plan(TransferKind::move, {shoot.src + QStringLiteral("/DSC_0002.NEF")})).ok());
    EXPECT_EQ(allNames(Paths::join(shoot.src, ".vantelor-move-recovery")).size(), 2);
    EXPECT_EQ(expectNothingLost(shoot.originals, shoot.dest), 6);
}

TEST(TransferExecution, ChangesAtAnyMomentAreCaughtAndUndone)
{
    const char* const changed = "Los archivos han cambiado tras confirmar; operación detenida";
    const auto write = [](const char* path, const char* bytes) { return [=](const Shoot& s) { writeFile(s.box.file(path), bytes); }; };
    const auto unlink = [](const char* path) { return [=](const Shoot& s) { ::unlink(Paths::encode(s.box.file(path)).constData()); }; };
    // Items 0..3 in plan order are DSC_0001.NEF, DSC_0001.xmp, DSC_0002.NEF, DSC_0002.xmp. Calls
    // are counted from 1; the staging folder is the first folder made, so a change then comes
    // after planning, before any copy.
    const TransferKind copy = TransferKind::copy, move = TransferKind::move;
    const struct { const char* what; TransferKind kind; Call call; int occurrence; std::function<void(const Shoot&)> change; const char* message; } rows[] = {
        {"source modified after planning", copy, Call::createFolder, 1, write("src/DSC_0002.NEF", "otros bytes"), changed},
        {"source deleted after planning", move, Call::createFolder, 1, unlink("src/DSC_0002.NEF"), changed},
        {"destination appears before staging", copy, Call::copy, 2, write("dest/DSC_0002.NEF", "intruso"), changed},
        {"source changes after its copy", copy, Call::copy, 2, write("src/DSC_0001.NEF", "nuevo"), "El origen cambió durante la copia"},
        {"destination appears at the last moment", move, Call::rename, 3, write("dest/DSC_0002.NEF", "intruso"),
         "No se puede colocar DSC_0002.NEF sin sobrescribir"},
        {"source changes after it was placed", move, Call::rename, 4, write("src/DSC_0001.NEF", "nuevo"), "El origen cambió antes de mover"},
        {"source deleted after it was placed", move, Call::rename, 4, unlink("src/DSC_0001.xmp"), "El origen cambió antes de mover"},
        {"source written while it moves", move, Call::rename, 6, write("src/DSC_0001.xmp", "nuevo"), "El origen cambió al mover; restaurando"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Shoot shoot(2), expected(2);
        const TransferPlan plan = shoot.plan(row.kind);
        const auto receipt = execute(plan, std::make_shared<FailingFileSystem>(row.call, row.occurrence, [&] { row.change(shoot); }));
        EXPECT_EQ(receipt.message(), QString::fromUtf8(row.message));
        // Every source as the change left it, and nothing of ours at the destination.
        row.change(expected);
        EXPECT_EQ(treeContents(shoot.src), treeContents(expected.src));
        EXPECT_EQ(treeContents(shoot.dest), treeContents(expected.dest));
    }
}

TEST(TransferExecution, APlacedFileChangedBeforeRollbackIsLeftAndReported)
{
    Shoot shoot(2);
    const TransferPlan plan = shoot.plan(TransferKind::copy);
    const auto receipt = execute(plan, std::make_shared<FailingFileSystem>(Call::rename, 2, [&] { writeFile(plan.items[0].destination, "retocado"); }), 2);
    EXPECT_EQ(receipt.failure(), Failure(WorkflowError::io(QStringLiteral("Operación interrumpida. Archivos de recuperación conservados en ") + shoot.staging(plan)
                                                           + QStringLiteral(" y en .vantelor-move-recovery del origen. Injected transfer failure"))));
    EXPECT_EQ(visibleNames(shoot.dest), QStringList{"DSC_0001.NEF"});
    EXPECT_EQ(readFile(plan.items[0].destination), "retocado");
    EXPECT_TRUE(pathExists(Paths::join(shoot.staging(plan), "transaction.json")));
    for (const auto& [path, bytes] : shoot.originals)
        EXPECT_EQ(readFile(path), bytes);
}

TEST(TransferExecution, AnUnsafeRecoveryAreaOrAForeignStagingFolderStopsTheMoveUntouched)
{
    const struct { const char* what; const char* link; QString message; } rows[] = {
        {"symbolic link to a folder", "elsewhere", QStringLiteral("La carpeta de recuperación no es segura")},
        {"dangling symbolic link", "nowhere", QStringLiteral("La carpeta de recuperación no es segura")},
        {"staging folder of the plan already there", nullptr, QStringLiteral(": File exists")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Shoot shoot(2);
        shoot.box.mkdir("elsewhere");
        const TransferPlan plan = shoot.plan(TransferKind::move);
        if (row.link)
            shoot.box.symlink(shoot.box.file(row.link), "src/.vantelor-move-recovery");
        else
            shoot.box.write(QStringLiteral("dest/.vantelor-transfer-") + plan.idText() + QStringLiteral("/item-0"), "ajeno");
        const auto before = treeContents(shoot.box.path());
        const auto receipt = execute(plan);
        EXPECT_EQ(receipt.message(), row.link ? row.message : shoot.staging(plan) + row.message);
        EXPECT_EQ(treeContents(shoot.box.path()), before);
    }
}
