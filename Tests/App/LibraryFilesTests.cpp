#include <atomic>
#include <filesystem>

#include <gtest/gtest.h>

#include <QDir>

#include "Files/TransferExecution.h"
#include "LibraryTestSupport.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

namespace vantelor::test {
namespace {

// What the sidecar beside a photo holds now.
XMPSnapshot sidecarOf(const QString& raw)
{
    XMPService service;
    const Result<XMPSnapshot> read = service.read(raw).result();
    EXPECT_TRUE(read.ok()) << read.message().toStdString();
    return read.ok() ? *read : XMPSnapshot{};
}

bool idle(const LibraryModel& m) { return !m.isSaving() && !m.isPreparing(); }

TEST(LibraryMarks, EditsWithinTheDelayAreSavedOnceAndNoEditIsLostDuringOrByASave)
{
    Sandbox sandbox;
    const QString folder = sandbox.mkdir(QStringLiteral("shoot"));
    const QString raw = sandbox.write(QStringLiteral("shoot/a.NEF"), makeNef(32, 24));
    auto saves = std::make_shared<std::atomic<int>>(0);
    XMPSaveSeam seam;
    // The fourth save finds its folder gone by the time it writes.
    seam.atStep = [saves, folder](XMPSaveStep step) {
        if (step == XMPSaveStep::checked && ++*saves == 4)
            std::filesystem::remove_all(Paths::encode(folder).toStdString());
    };
    Harness h(false, 200, seam);
    h.openAndPrepare(folder);
    h.model->select(raw);

    h.model->setRating(2);
    h.model->setLabel(SessionLabel::green);
    ASSERT_TRUE(eventually([&] { return h.model->dirty().isEmpty() && idle(*h.model); }));
    EXPECT_EQ(saves->load(), 1);
    EXPECT_EQ(sidecarOf(raw).rating, 2);
    EXPECT_EQ(sidecarOf(raw).label, QStringLiteral("green"));
    EXPECT_EQ(h.model->metadataStatus(), QStringLiteral("Guardado a.NEF • RAW intacto"));

    // The pass has taken the patch; the user rates again before its answer is back.
    h.model->setAutoSave(false);
    h.model->setRating(3);
    QFuture<void> pass = h.model->performSave();
    EXPECT_TRUE(h.model->isSaving());
    h.model->setRating(5);
    ASSERT_TRUE(eventually([&] { return pass.isFinished(); }));
    EXPECT_EQ(sidecarOf(raw).rating, 3);
    // With autosave off, the edit made during the pass waits; turning autosave on saves it at once.
    EXPECT_EQ(h.model->dirty().value(raw), (XMPPatch{5, std::nullopt}));
    h.model->setAutoSave(true);
    EXPECT_TRUE(h.model->isSaving());
    ASSERT_TRUE(eventually([&] { return h.model->dirty().isEmpty() && idle(*h.model); }));
    EXPECT_EQ(sidecarOf(raw).rating, 5);

    // A folder gone during the save keeps the edit and switches autosave off.
    h.model->setRating(4);
    ASSERT_TRUE(eventually([&] { return !h.model->autoSave() && idle(*h.model); }));
    EXPECT_FALSE(h.model->metadataStatus().isEmpty());
    EXPECT_EQ(h.model->folderError(), h.model->metadataStatus());
    EXPECT_EQ(h.model->dirty().value(raw).rating, 4);
    EXPECT_EQ(h.model->mark(raw).rating, 4);
}

TEST(LibraryTransfers, ATransferStartsOnlyWithNothingPendingAndReportsItsOutcome)
{
    struct Row { TransferKind kind; bool unsavedEdit; std::optional<QString> error; QString status; int photosAfter; };
    const Row rows[] = {
        {TransferKind::move, true, QStringLiteral("Guarda los cambios XMP pendientes antes de copiar o mover fotos."), {}, 2},
        {TransferKind::copy, false, std::nullopt, QStringLiteral("Copiados 3 archivos. "), 2},
        {TransferKind::move, false, std::nullopt, QStringLiteral("Movidos 3 archivos. Copias de recuperación conservadas en .vantelor-move-recovery."), 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.status.toStdString());
        Sandbox sandbox;
        const QString folder = sandbox.mkdir(QStringLiteral("shoot"));
        sandbox.write(QStringLiteral("shoot/a.NEF"), makeNef(32, 24));
        sandbox.write(QStringLiteral("shoot/a.xmp"), XmpFixtures::lightroom(2, std::nullopt));
        sandbox.write(QStringLiteral("shoot/b.jpg"), makeJpeg(8, 8));
        Harness h;
        h.model->setAutoSave(false);
        h.openAndPrepare(folder);
        h.model->setPhotoOrder(PhotoOrder::name);
        if (row.unsavedEdit)
            h.model->setRating(1);
        h.model->selectAll();

        h.model->chooseTransfer(row.kind);
        EXPECT_EQ(h.chooser.asked.size(), row.unsavedEdit ? 0 : 1);
        if (!row.unsavedEdit) {
            h.chooser.pending(sandbox.mkdir(QStringLiteral("out")));
            ASSERT_TRUE(eventually([&] { return h.model->transferPlan().has_value(); }));
            h.model->confirmTransfer();
            EXPECT_FALSE(h.model->transferPlan().has_value());
            ASSERT_TRUE(eventually([&] { return !h.model->transferBusy() && !h.model->isPreparing(); }));
        }
        EXPECT_EQ(h.model->folderError(), row.error);
        EXPECT_EQ(h.model->metadataStatus(), row.status);
        EXPECT_EQ(h.model->photos().size(), row.photosAfter);
    }
}

// A sidecar refused when read fails the autosave, which keeps the edit and switches itself off;
// such edits then keep their tab open, while edits that can be saved are saved as it closes.
TEST(LibraryTabs, ATabWithEditsThatCannotBeSavedStaysOpen)
{
    struct Row { const char* name; QByteArray sidecar; bool autoSave; QString status; };
    const QList<Row> rows = {
        {"saved first, then closed", XmpFixtures::lightroom(1, std::nullopt), false, QString()},
        {"refused sidecar keeps it", "<?xml version=\"1.0\"?><!DOCTYPE x><x/>", true, QStringLiteral("El XMP debe ser XML UTF-8 sin DTD ni entidades")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Sandbox a;
        Sandbox b;
        const QString raw = a.write(QStringLiteral("a.NEF"), makeNef(32, 24));
        a.write(QStringLiteral("a.xmp"), row.sidecar);
        b.write(QStringLiteral("b.NEF"), makeNef(32, 24));
        Harness h;
        h.model->setAutoSave(row.autoSave);
        h.openAndPrepare(a.path());
        h.model->select(raw);
        h.model->setRating(3);
        ASSERT_TRUE(eventually([&] { return !h.model->autoSave() && idle(*h.model); }));
        EXPECT_EQ(h.model->metadataStatus(), row.status);
        EXPECT_FALSE(h.model->folderError().has_value());
        EXPECT_EQ(h.model->mark(raw).rating, 3);
        h.openAndPrepare(b.path());

        h.model->closeTab(b.path());
        EXPECT_EQ(h.model->tabs(), QStringList{a.path()}) << "another folder's edits do not block";
        ASSERT_TRUE(eventually([&] { return !h.model->isPreparing(); }));
        h.model->closeTab(a.path());
        ASSERT_TRUE(eventually([&] { return h.model->tabs().isEmpty() || h.model->folderError().has_value(); }));
        EXPECT_EQ(h.model->tabs().isEmpty(), !row.autoSave);
        if (!row.autoSave) {
            EXPECT_EQ(sidecarOf(raw).rating, 3);
        } else {
            EXPECT_EQ(h.model->folderError(), QStringLiteral("Guarda o resuelve los cambios XMP pendientes antes de cerrar la pestaña."));
            EXPECT_EQ(h.model->dirty().value(raw).rating, 3);
        }
    }
}

QStringList visible(const QString& folder) { return QDir(folder).entryList(QDir::Files); }

// A transfer of every photo of `src` into `dest`, stopped as a killed process stops it: just
// before its n-th rename (the copies are placed first, then a move takes the originals away).
void killBeforeRename(const QString& src, const QString& dest, TransferKind kind, int n)
{
    struct Killed {};
    struct Disk final : TransferFileSystem {
        int renamesLeft;
        Status renameExclusive(const QString& from, const QString& to) override
        {
            if (--renamesLeft == 0)
                throw Killed{};
            return TransferFileSystem::renameExclusive(from, to);
        }
    } disk;
    disk.renamesLeft = n;
    QStringList photos;
    for (const QString& name : visible(src))
        photos.append(Paths::join(src, name));
    const Result<TransferPlan> plan = FileWorkflow().plan(photos, dest, kind).result();
    ASSERT_TRUE(plan.ok());
    try {
        (void)TransferExecution(*plan, disk, std::nullopt).run();
    } catch (const Killed&) {
    }
}

TEST(LibraryRecovery, AnInterruptedTransferIsShownAndPutRightWithEachPhotoOnceAfterwards)
{
    // Two photos: renames 1-2 place their copies, 3-4 take a move's originals away.
    struct Row { const char* name; TransferKind kind; int killedAtRename; bool openSource; QString finding; int atSource, atDestination; };
    const QList<Row> rows = {
        {"copy stopped before placing", TransferKind::copy, 1, false, QStringLiteral("Copia "), 2, 0},
        {"move stopped taking originals away", TransferKind::move, 4, true, QStringLiteral("Traslado "), 0, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Sandbox box;
        const QString src = box.mkdir(QStringLiteral("src"));
        const QString dest = box.mkdir(QStringLiteral("dest"));
        box.write(QStringLiteral("src/DSC_0001.NEF"), makeNef(32, 24));
        box.write(QStringLiteral("src/DSC_0002.NEF"), makeNef(24, 32));
        killBeforeRename(src, dest, row.kind, row.killedAtRename);

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
        EXPECT_EQ(QDir(dest).entryList(QDir::Hidden | QDir::AllEntries | QDir::NoDotAndDotDot).size(), row.atDestination) << "no staging folder is left";
        EXPECT_EQ(h.model->photos().size(), row.openSource ? row.atSource : row.atDestination) << "the folder is read again";
        // What stays in the recovery folder after a finished move is no reason to ask again.
        EXPECT_FALSE(TransferRecovery::mayNeedAttention(src));
    }
}

} // namespace
} // namespace vantelor::test
