#include <gtest/gtest.h>

#include <QDir>

#include "Files/FileWorkflow.h"
#include "Files/TransferExecution.h"
#include "LibraryTestSupport.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {
namespace {

QStringList visible(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files);
}

// A transfer of every photo of `src` into `dest` that stopped after staging them all, placing
// the first `placed` and taking the first `kept` originals into the recovery folder, as a killed
// process leaves it.
void interrupt(const QString& src, const QString& dest, TransferKind kind, int placed, int kept)
{
    QStringList photos;
    for (const QString& name : visible(src))
        photos.append(Paths::join(src, name));
    FileWorkflow files;
    const Result<TransferPlan> plan = files.plan(photos, dest, kind).result();
    ASSERT_TRUE(plan.ok());
    TransferFileSystem disk;
    const QString staging = Paths::join(dest, TransferExecution::stagingPrefix() + plan->idText());
    ASSERT_TRUE(disk.createFolder(staging));
    ASSERT_TRUE(disk.writeNewFile(Paths::join(staging, TransferExecution::journalName()), plan->journal()));
    const QString area = Paths::join(Paths::join(src, TransferExecution::recoveryAreaName()), plan->idText());
    if (kept > 0) {
        ASSERT_TRUE(disk.createFolder(Paths::parent(area)));
        ASSERT_TRUE(disk.createFolder(area));
        ASSERT_TRUE(disk.writeNewFile(Paths::join(area, TransferExecution::journalName()), plan->journal()));
    }
    for (qsizetype n = 0; n < plan->items.size(); ++n) {
        const TransferItem& item = plan->items[n];
        const QString copy = Paths::join(staging, QStringLiteral("item-%1").arg(n));
        ASSERT_TRUE(disk.copyFile(item.source, copy));
        if (n < placed) {
            ASSERT_TRUE(disk.renameExclusive(copy, item.destination));
        }
        if (n < kept) {
            ASSERT_TRUE(disk.renameExclusive(item.source, Paths::join(area, Paths::fileName(item.source))));
        }
    }
}

TEST(LibraryRecovery, AnInterruptedTransferIsShownAndPutRightWithEachPhotoOnceAfterwards)
{
    struct Row {
        const char* name;
        TransferKind kind;
        int placed, kept;
        bool openSource;
        QString finding;
        int atSource, atDestination;
    };
    const QList<Row> rows = {
        {"copy stopped before placing", TransferKind::copy, 0, 0, false, QStringLiteral("Copia "), 2, 0},
        {"move stopped taking originals away", TransferKind::move, 2, 1, true, QStringLiteral("Traslado "), 0, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Sandbox box;
        const QString src = box.mkdir(QStringLiteral("src"));
        const QString dest = box.mkdir(QStringLiteral("dest"));
        box.write(QStringLiteral("src/DSC_0001.NEF"), makeNef(32, 24));
        box.write(QStringLiteral("src/DSC_0002.NEF"), makeNef(24, 32));
        interrupt(src, dest, row.kind, row.placed, row.kept);

        Harness h;
        h.openAndPrepare(row.openSource ? src : dest);
        ASSERT_TRUE(eventually([&] { return !h.model->recoveryFinding().isEmpty(); }));
        EXPECT_TRUE(h.model->recoveryFinding().startsWith(row.finding)) << h.model->recoveryFinding().toStdString();

        h.model->recoverTransfers();
        EXPECT_TRUE(h.model->isRecovering() && h.model->transferBusy());
        ASSERT_TRUE(eventually([&] { return !h.model->isRecovering() && !h.model->isPreparing(); }));
        EXPECT_TRUE(h.model->recoveryFinding().isEmpty());
        EXPECT_FALSE(h.model->recoveryOutcome().isEmpty());
        EXPECT_EQ(visible(src).size(), row.atSource);
        EXPECT_EQ(QDir(dest).entryList(QDir::Hidden | QDir::AllEntries | QDir::NoDotAndDotDot).size(), row.atDestination)
            << "no staging folder is left";
        EXPECT_EQ(h.model->photos().size(), row.openSource ? row.atSource : row.atDestination) << "the folder is read again";
        // What stays in the recovery folder after a finished move is no reason to ask again.
        EXPECT_FALSE(TransferRecovery::mayNeedAttention(src));
    }
}

} // namespace
} // namespace vantelor::test
