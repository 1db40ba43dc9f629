#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <QRegularExpression>

#include "Metadata/XMPDocument.h"
#include "Metadata/XMPService.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

namespace vantelor {
namespace {

using test::Sandbox;

const QByteArray& nefBytes()
{
    static const QByteArray bytes = test::makeNef(32, 24);
    return bytes;
}

QStringList temporaries(const QString& folder)
{
    QStringList out;
    for (const QString& name : test::allNames(folder))
        if (name.startsWith(QLatin1String(".vantelor-")) && name.endsWith(QLatin1String(".xmp")))
            out.append(name);
    return out;
}

QList<QByteArray> backups(const QString& folder)
{
    QList<QByteArray> out;
    const QString backupFolder = Paths::join(folder, QStringLiteral(".vantelor-backups"));
    for (const QString& name : test::allNames(backupFolder))
        out.append(test::readFile(Paths::join(backupFolder, name)));
    return out;
}

XMPPatch ratingPatch(std::optional<int> rating, std::optional<QString> label = std::nullopt)
{
    XMPPatch patch;
    patch.rating = rating;
    patch.label = label;
    return patch;
}

XMPPatch labelPatch(const QString& label)
{
    return ratingPatch(std::nullopt, label);
}

// One NEF in a fresh folder, optionally with a sidecar, read through the service.
struct Scene {
    Sandbox box;
    QString raw;
    QString sidecar;
    XMPService service;

    explicit Scene(const std::optional<QByteArray>& xmp, const QString& folder = {})
    {
        const QString prefix = folder.isEmpty() ? QString() : folder + QLatin1Char('/');
        raw = box.write(prefix + QStringLiteral("DSC_0001.NEF"), nefBytes());
        sidecar = box.file(prefix + QStringLiteral("DSC_0001.xmp"));
        if (xmp)
            test::writeFile(sidecar, *xmp);
    }
    QString folder() const { return Paths::parent(raw); }
    XMPSnapshot read()
    {
        const Result<XMPSnapshot> snapshot = service.read(raw).result();
        EXPECT_TRUE(snapshot.ok()) << snapshot.message().toStdString();
        return snapshot ? *snapshot : XMPSnapshot{};
    }
    Result<XMPSnapshot> save(const XMPSnapshot& snapshot, const XMPPatch& patch)
    {
        return service.save(snapshot, patch).result();
    }
};

QByteArray patchedBytes(const QByteArray& original, const XMPPatch& patch)
{
    return XMPDocument::parse(original)->applying(patch).value();
}

mode_t modeOf(const QString& path, ino_t* inode = nullptr)
{
    struct stat st {};
    EXPECT_EQ(::stat(Paths::encode(path).constData(), &st), 0) << path.toStdString();
    if (inode)
        *inode = st.st_ino;
    return st.st_mode & 07777;
}

TEST(XMPServiceSave, aFirstSaveCreatesFromTheTemplateAndEveryLaterOneKeepsTheVersionItReplaced)
{
    Scene scene(std::nullopt);
    const XMPPatch patch = ratingPatch(4, QStringLiteral("green"));
    const Result<XMPSnapshot> first = scene.save(scene.read(), patch);
    ASSERT_TRUE(first.ok()) << first.message().toStdString();
    EXPECT_EQ(first->rating, 4);
    EXPECT_EQ(first->label, QStringLiteral("green"));
    const QByteArray created = patchedBytes(XMPDocument::newSidecarTemplate(), patch);
    EXPECT_EQ(test::readFile(scene.sidecar), created);
    EXPECT_EQ(test::allNames(scene.folder()), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp"}));
    // A new sidecar gets the user's default permissions, as any new file would; a replacement
    // keeps the sidecar's own.
    const mode_t mask = ::umask(022);
    ::umask(mask);
    ino_t createdInode = 0;
    EXPECT_EQ(modeOf(scene.sidecar, &createdInode), 0666 & ~mask);
    ASSERT_EQ(::chmod(Paths::encode(scene.sidecar).constData(), 0640), 0);

    const Result<XMPSnapshot> second = scene.save(*first, ratingPatch(5));
    ASSERT_TRUE(second.ok()) << second.message().toStdString();
    const Result<XMPSnapshot> third = scene.save(*second, labelPatch(QStringLiteral("purple")));
    ASSERT_TRUE(third.ok()) << third.message().toStdString();
    const QByteArray expected = patchedBytes(*second->data, labelPatch(QStringLiteral("purple")));
    EXPECT_EQ(test::readFile(scene.sidecar), expected);
    EXPECT_EQ(third->data, expected);
    const QList<QByteArray> kept = backups(scene.folder());
    EXPECT_TRUE(kept.size() == 2 && kept.contains(created) && kept.contains(*second->data));
    const QString backupFolder = Paths::join(scene.folder(), QStringLiteral(".vantelor-backups"));
    bool swapped = false;   // the atomic swap keeps the replaced inode as the backup
    for (const QString& name : test::allNames(backupFolder)) {
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^DSC_0001\\.xmp\\.[0-9A-F-]{36}\\.backup$")).match(name).hasMatch())
            << name.toStdString();
        ino_t inode = 0;
        modeOf(Paths::join(backupFolder, name), &inode);
        swapped = swapped || inode == createdInode;
    }
    EXPECT_TRUE(swapped);
    EXPECT_TRUE(temporaries(scene.folder()).isEmpty());
    EXPECT_EQ(modeOf(scene.sidecar), 0640u);
}

TEST(XMPServiceSave, aNameNearTheLengthLimitCanBeRatedAgainAndAgain)
{
    Sandbox box;
    // 250 bytes before the extension, two-byte letters first, so that a shortened name must cut
    // between whole characters; it gives up exactly 43 bytes, one character at a time.
    const QString base = QString(100, QChar(0x00D1)) + QString(50, QLatin1Char('a'));
    ASSERT_EQ(Paths::encode(base).size(), 250);
    const QString raw = box.write(base + QStringLiteral(".NEF"), nefBytes());
    test::writeFile(box.file(base + QStringLiteral(".xmp")), test::XmpFixtures::lightroom(1, std::nullopt));
    XMPService service;
    Result<XMPSnapshot> snapshot = service.read(raw).result();
    for (int rating = 2; rating <= 4; ++rating) {
        SCOPED_TRACE(rating);
        ASSERT_TRUE(snapshot.ok()) << snapshot.message().toStdString();
        snapshot = service.save(*snapshot, ratingPatch(rating)).result();
        ASSERT_TRUE(snapshot.ok()) << snapshot.message().toStdString();
        EXPECT_EQ(snapshot->rating, rating);
    }
    const QStringList kept = test::allNames(box.file(QStringLiteral(".vantelor-backups")));
    ASSERT_EQ(kept.size(), 3);
    for (const QString& name : kept) {
        EXPECT_EQ(Paths::encode(name).size(), 255);
        EXPECT_FALSE(Paths::hasEscapedBytes(name)) << "cut inside a character";
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\x{00D1}{100}a+\\.[0-9A-F-]{36}\\.backup$")).match(name).hasMatch())
            << name.toStdString();
    }
    EXPECT_EQ(test::allNames(box.path()),
              (QStringList{QStringLiteral(".vantelor-backups"), base + QStringLiteral(".NEF"), base + QStringLiteral(".xmp")}));
}

TEST(XMPServiceSave, aSidecarInASharedFolderStaysTheGroupsAfterASave)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "giving files to other owners needs root";
    Scene scene(test::XmpFixtures::lightroom(2, std::nullopt));
    const QByteArray folder = Paths::encode(scene.folder());
    const QByteArray sidecar = Paths::encode(scene.sidecar);
    ASSERT_EQ(::chown(folder.constData(), 0, 4321), 0);
    ASSERT_EQ(::chmod(folder.constData(), 02775), 0);
    ASSERT_EQ(::chown(sidecar.constData(), 1234, 4321), 0);
    ASSERT_EQ(::chmod(sidecar.constData(), 0664), 0);
    const bool attributes = ::setxattr(sidecar.constData(), "user.xdg.comment", "elegida", 7, 0) == 0;

    const mode_t mask = ::umask(077);
    const Result<XMPSnapshot> saved = scene.save(scene.read(), ratingPatch(5));
    ::umask(mask);
    ASSERT_TRUE(saved.ok()) << saved.message().toStdString();

    struct stat st {};
    ASSERT_EQ(::stat(sidecar.constData(), &st), 0);
    EXPECT_EQ(std::tuple(st.st_uid, st.st_gid, st.st_mode & 07777), std::tuple(1234u, 4321u, 0664u));
    if (attributes) {
        char value[16] = {};
        EXPECT_EQ(::getxattr(sidecar.constData(), "user.xdg.comment", value, sizeof value), 7);
        EXPECT_STREQ(value, "elegida");
    }
    ASSERT_EQ(::stat(Paths::encode(Paths::join(scene.folder(), QStringLiteral(".vantelor-backups"))).constData(), &st), 0);
    EXPECT_EQ(std::pair(st.st_gid, st.st_mode & 07777), std::pair(4321u, 02775u));
}

TEST(XMPServiceSave, aPatchThatChangesNothingWritesNothing)
{
    Scene scene(test::XmpFixtures::captureOne(3, QStringLiteral("Blue")));
    const XMPSnapshot before = scene.read();
    for (const XMPPatch& p : {ratingPatch(3, QStringLiteral("Blue")), XMPPatch{}}) {
        const Result<XMPSnapshot> saved = scene.save(before, p);
        ASSERT_TRUE(saved.ok()) << saved.message().toStdString();
        EXPECT_EQ(*saved, before);
    }
    EXPECT_EQ(test::allNames(scene.folder()), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp"}));
}

TEST(XMPServiceSave, refusalsBeforeAnythingIsWritten)
{
    const QByteArray original = test::XmpFixtures::digikam(1, QStringLiteral("Red"));
    const struct {
        const char* name;
        std::function<void(Scene&, XMPSnapshot&)> arrange;
        XMPPatch patch;
        QString message;
        WorkflowError::Kind kind;
    } rows[] = {
        {"rating 6", [](Scene&, XMPSnapshot&) {}, ratingPatch(6), "Valoración XMP no válida", WorkflowError::Kind::invalid},
        {"rating -2, even with the NEF gone", [](Scene& s, XMPSnapshot&) { ::unlink(Paths::encode(s.raw).constData()); },
         ratingPatch(-2), "Valoración XMP no válida", WorkflowError::Kind::invalid},
        {"not a NEF", [](Scene& s, XMPSnapshot& snap) { snap.raw = s.box.write(QStringLiteral("DSC_0001.JPG"), test::makeJpeg(8, 8)); },
         ratingPatch(2), "El archivo NEF no está disponible", WorkflowError::Kind::invalid},
        {"edited by another program after the read", [&](Scene& s, XMPSnapshot&) { test::writeFile(s.sidecar, original + " "); },
         ratingPatch(2), "DSC_0001.xmp cambió fuera de Vantelor. Carga o combina antes de guardar.", WorkflowError::Kind::conflict},
        {"renamed by another program", [](Scene& s, XMPSnapshot&) { ::rename(Paths::encode(s.sidecar).constData(), Paths::encode(s.box.file(QStringLiteral("dsc_0001.XMP"))).constData()); },
         ratingPatch(2), "DSC_0001.xmp cambió fuera de Vantelor. Carga o combina antes de guardar.", WorkflowError::Kind::conflict},
        {"backup folder is a link to a folder", [](Scene& s, XMPSnapshot&) { s.box.mkdir(QStringLiteral("elsewhere")); s.box.symlink(s.box.file(QStringLiteral("elsewhere")), QStringLiteral(".vantelor-backups")); },
         ratingPatch(2), "La carpeta de recuperación no es segura", WorkflowError::Kind::invalid},
        {"read-only sidecar", [](Scene& s, XMPSnapshot&) { ::chmod(Paths::encode(s.sidecar).constData(), 0444); },
         ratingPatch(2), "El archivo XMP es de solo lectura", WorkflowError::Kind::io},
        {"a complex label", [](Scene& s, XMPSnapshot& snap) {
             test::writeFile(s.sidecar, test::XmpFixtures::captureOne(1, std::nullopt).replace("<xmp:CreatorTool>", "<xmp:Label><rdf:Alt><rdf:li xml:lang='x-default'>Red</rdf:li></rdf:Alt></xmp:Label><xmp:CreatorTool>"));
             snap = s.read(); },
         labelPatch(QStringLiteral("Blue")), "El campo XMP complejo Label no se puede reemplazar de forma segura", WorkflowError::Kind::invalid},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Scene scene(original);
        XMPSnapshot snapshot = scene.read();
        row.arrange(scene, snapshot);
        const QStringList namesBefore = test::allNames(scene.folder());
        const QByteArray bytesBefore = test::readFile(scene.sidecar);
        const Result<XMPSnapshot> saved = scene.save(snapshot, row.patch);
        ASSERT_FALSE(saved.ok());
        const auto* error = std::get_if<WorkflowError>(&saved.failure());
        EXPECT_TRUE(error && error->kind() == row.kind && saved.message() == row.message) << saved.message().toStdString();
        EXPECT_EQ(test::readFile(scene.sidecar), bytesBefore);
        // The backup folder may be made before the last check, but holds nothing.
        const QRegularExpression other(QStringLiteral("^(?!\\.vantelor-backups$)"));
        EXPECT_EQ(test::allNames(scene.folder()).filter(other), namesBefore.filter(other));
        EXPECT_TRUE(backups(scene.folder()).isEmpty());
    }
}

// What another program, or the disk, does at one step of a save.
enum class Action { modifyInPlace, replaceByRename, remove, create, makeFifo, failSync };

void act(Action action, const QString& sidecar, const QByteArray& theirs)
{
    const QByteArray native = Paths::encode(sidecar);
    switch (action) {
    case Action::modifyInPlace:
    case Action::create:
        test::writeFile(sidecar, theirs);
        break;
    case Action::replaceByRename: {
        const QString other = sidecar + QStringLiteral(".other-tmp");
        test::writeFile(other, theirs);
        ASSERT_EQ(::rename(Paths::encode(other).constData(), native.constData()), 0);
        break;
    }
    case Action::remove:
        ASSERT_EQ(::unlink(native.constData()), 0);
        break;
    case Action::makeFifo:
        ASSERT_EQ(::unlink(native.constData()), 0);
        ASSERT_EQ(::mkfifo(native.constData(), 0644), 0);
        break;
    case Action::failSync:   // the seam fails the next sync
        break;
    }
}

struct RaceRow {
    const char* name;
    bool portable;
    bool existing;      // a sidecar exists when the save starts
    XMPSaveStep step;
    Action action;
    const char* message;   // a prefix of the message; nullptr when the save succeeds
    WorkflowError::Kind kind;
    enum class Ends { theirs, ours, none, fifo } ends;   // what the sidecar path holds afterwards
};

TEST(XMPServiceSave, anotherWriterAtEachStepNeverLosesData)
{
    using S = XMPSaveStep;
    using A = Action;
    using K = WorkflowError::Kind;
    using E = RaceRow::Ends;
    const RaceRow rows[] = {
        {"modified before the temporary file", false, true, S::checked, A::modifyInPlace, "El archivo XMP cambió mientras se preparaba el guardado", K::conflict, E::theirs},
        {"deleted while the temporary file is written", false, true, S::prepared, A::remove, "El archivo XMP cambió mientras se preparaba el guardado", K::conflict, E::none},
        {"created while the temporary file is written", false, false, S::prepared, A::create, "El archivo XMP cambió mientras se preparaba el guardado", K::conflict, E::theirs},
        {"replaced just before the swap", false, true, S::checkedAgain, A::replaceByRename, "Cambio externo detectado. Datos de recuperación conservados en ", K::conflict, E::theirs},
        {"modified in place just before the swap", false, true, S::checkedAgain, A::modifyInPlace, "Cambio externo detectado. Datos de recuperación conservados en ", K::conflict, E::theirs},
        {"a FIFO put in place just before the swap", false, true, S::checkedAgain, A::makeFifo, "Cambio externo detectado. Datos de recuperación conservados en ", K::conflict, E::fifo},
        {"deleted just before the swap", false, true, S::checkedAgain, A::remove, "No se pudo guardar el XMP: No such file or directory", K::io, E::none},
        {"created just before the exclusive rename", false, false, S::checkedAgain, A::create, "El XMP apareció mientras se guardaba. Vuelve a cargarlo.", K::conflict, E::theirs},
        {"modified right after the swap", false, true, S::exchanged, A::modifyInPlace, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::theirs},
        {"modified after placing", false, true, S::placed, A::replaceByRename, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::theirs},
        {"deleted after creating", false, false, S::placed, A::remove, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::none},
        {"portable: replaced before the lock", true, true, S::checkedAgain, A::replaceByRename, "El XMP cambió antes de guardar. Carga o combina los cambios.", K::conflict, E::theirs},
        {"portable: deleted before the lock", true, true, S::checkedAgain, A::remove, "El XMP cambió antes de guardar. Carga o combina los cambios.", K::conflict, E::none},
        {"portable: written under the lock by a program that ignores it", true, true, S::portableLocked, A::modifyInPlace, "El XMP cambió durante el guardado; copia anterior conservada.", K::conflict, E::theirs},
        {"portable: replaced after the backup", true, true, S::portableBackedUp, A::replaceByRename, "El XMP cambió durante el guardado; copia anterior conservada.", K::conflict, E::theirs},
        {"portable: created before the exclusive creation", true, false, S::checkedAgain, A::create, "El XMP apareció mientras se guardaba. Vuelve a cargarlo.", K::conflict, E::theirs},
        {"portable: modified after placing", true, true, S::placed, A::modifyInPlace, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::theirs},
        {"portable: the disk does not confirm a new sidecar", true, false, S::checkedAgain, A::failSync, "El disco no confirmó el guardado del XMP.", K::io, E::none},
        {"portable: nobody interferes", true, true, S::placed, A::create, nullptr, K::io, E::ours},
        {"portable: nobody interferes with a new sidecar", true, false, S::checked, A::create, nullptr, K::io, E::ours},
    };
    const QByteArray original = test::XmpFixtures::lightroom(1, QStringLiteral("Red"), 200);
    const QByteArray theirs = test::XmpFixtures::lightroom(5, QStringLiteral("Yellow"), 300);
    for (const RaceRow& row : rows) {
        SCOPED_TRACE(row.name);
        Scene scene(row.existing ? std::optional<QByteArray>(original) : std::nullopt);
        const XMPSnapshot snapshot = scene.read();
        XMPSaveSeam seam;
        seam.unsupportedRenames = row.portable;
        const bool interferes = row.message != nullptr;
        bool syncFails = false;
        seam.failSync = [&](const QString&) { return syncFails ? EIO : 0; };
        seam.atStep = [&](XMPSaveStep step) {
            if (step == row.step && interferes) {
                syncFails = row.action == Action::failSync;
                act(row.action, scene.sidecar, theirs);
            }
        };
        scene.service.setSaveSeam(seam);
        const Result<XMPSnapshot> saved = scene.save(snapshot, ratingPatch(3));

        QByteArray ours = row.existing ? original : XMPDocument::newSidecarTemplate();
        ours = XMPDocument::parse(ours)->applying(ratingPatch(3)).value();
        if (!interferes) {
            ASSERT_TRUE(saved.ok()) << saved.message().toStdString();
            EXPECT_EQ(saved->data, ours);
        } else {
            ASSERT_FALSE(saved.ok());
            EXPECT_TRUE(saved.message().startsWith(QString::fromUtf8(row.message))) << saved.message().toStdString();
            const auto* error = std::get_if<WorkflowError>(&saved.failure());
            EXPECT_TRUE(error && error->kind() == row.kind);
        }

        struct stat st {};
        const bool present = ::lstat(Paths::encode(scene.sidecar).constData(), &st) == 0;
        switch (row.ends) {
        case E::theirs: EXPECT_EQ(test::readFile(scene.sidecar), theirs); break;
        case E::ours: EXPECT_EQ(test::readFile(scene.sidecar), ours); break;
        case E::none: EXPECT_FALSE(present); break;
        case E::fifo: EXPECT_TRUE(present && S_ISFIFO(st.st_mode)); break;
        }

        // Every byte the save displaced is still on disk: in a backup, or in the temporary file
        // that the message names, which is the only temporary file left behind.
        const QList<QByteArray> kept = backups(scene.folder());
        const QStringList left = temporaries(scene.folder());
        if (interferes && saved.message().startsWith(QStringLiteral("Cambio externo detectado"))) {
            ASSERT_EQ(left.size(), 1);
            EXPECT_TRUE(saved.message().contains(Paths::join(scene.folder(), left.front())));
            EXPECT_EQ(test::readFile(Paths::join(scene.folder(), left.front())), ours);
        } else {
            EXPECT_TRUE(left.isEmpty()) << left.join(QLatin1Char(' ')).toStdString();
        }
        if (row.existing && (row.ends == E::ours || row.step == S::exchanged || row.step == S::placed
                             || row.step == S::portableLocked || row.step == S::portableBackedUp)) {
            EXPECT_TRUE(kept.contains(original));
        }
        EXPECT_LE(kept.size(), 1);
    }
}

TEST(XMPServiceSave, aLockedSidecarOnThePortablePathIsBusy)
{
    const QByteArray original = test::XmpFixtures::digikam(2, std::nullopt);
    Scene scene(original);
    XMPSaveSeam seam;
    seam.unsupportedRenames = true;
    scene.service.setSaveSeam(seam);
    const int fd = ::open(Paths::encode(scene.sidecar).constData(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_EX), 0);
    const Result<XMPSnapshot> saved = scene.save(scene.read(), ratingPatch(5));
    ::close(fd);
    EXPECT_EQ(saved.message(), QStringLiteral("El XMP está ocupado. Inténtalo de nuevo."));
    EXPECT_EQ(test::readFile(scene.sidecar), original);
    EXPECT_TRUE(temporaries(scene.folder()).isEmpty());
    EXPECT_TRUE(backups(scene.folder()).isEmpty());
}

TEST(XMPServiceSave, aFullDiskLeavesTheOldSidecarWhole)
{
    Sandbox outer;
    const QString volume = outer.mkdir(QStringLiteral("volume"));
    test::SmallVolume small(volume, "size=256k");
    if (!small.mounted())
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    const QString noSpace = QStringLiteral("No space left on device");
    const QString incomplete = QStringLiteral("No se pudo completar el XMP. Revisa el espacio libre y la conexión del disco.");
    const struct {
        bool portable;
        bool existing;
        bool fillJustBeforePlacing;   // else before the save starts
        QString message;
    } rows[] = {
        {false, true, false, noSpace},
        {true, true, false, noSpace},
        {true, true, true, incomplete},    // the backup cannot be written
        {true, false, true, incomplete},   // the exclusive creation cannot be completed
    };
    int index = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(index);
        const QString folder = Paths::join(volume, QString::number(index++));
        ASSERT_EQ(::mkdir(Paths::encode(folder).constData(), 0755), 0);
        const QString raw = Paths::join(folder, QStringLiteral("DSC_0001.NEF"));
        test::writeFile(raw, "not really a NEF");
        const QString sidecar = Paths::join(folder, QStringLiteral("DSC_0001.xmp"));
        const QByteArray original = test::XmpFixtures::lightroom(1, QStringLiteral("Red"), 20000);
        if (row.existing)
            test::writeFile(sidecar, original);
        XMPService service;
        XMPSaveSeam seam;
        seam.unsupportedRenames = row.portable;
        if (row.fillJustBeforePlacing)
            seam.atStep = [&](XMPSaveStep step) {
                if (step == XMPSaveStep::checkedAgain)
                    test::fillUp(folder);
            };
        service.setSaveSeam(seam);
        const Result<XMPSnapshot> snapshot = service.read(raw).result();
        ASSERT_TRUE(snapshot.ok()) << snapshot.message().toStdString();
        if (!row.fillJustBeforePlacing)
            test::fillUp(folder);
        const Result<XMPSnapshot> saved = service.save(*snapshot, ratingPatch(4)).result();
        ::unlink(Paths::encode(Paths::join(folder, QStringLiteral("filler"))).constData());
        EXPECT_TRUE(!saved.ok() && saved.message().contains(row.message)) << saved.message().toStdString();
        EXPECT_EQ(test::pathExists(sidecar) ? test::readFile(sidecar) : QByteArray(), row.existing ? original : QByteArray());
        EXPECT_TRUE(temporaries(folder).isEmpty());
        EXPECT_TRUE(backups(folder).isEmpty());
    }
}

TEST(XMPServiceSave, aReadOnlyFolderIsReportedAndLeftAlone)
{
    Sandbox outer;
    const QString volume = outer.mkdir(QStringLiteral("volume"));
    test::SmallVolume small(volume, "size=1m");
    const bool asRoot = small.mounted();
    const QString folder = asRoot ? volume : outer.mkdir(QStringLiteral("plain"));
    const QString raw = Paths::join(folder, QStringLiteral("DSC_0001.NEF"));
    test::writeFile(raw, nefBytes());
    const QByteArray original = test::XmpFixtures::captureOne(2, std::nullopt);
    test::writeFile(Paths::join(folder, QStringLiteral("DSC_0001.xmp")), original);
    test::writeFile(Paths::join(folder, QStringLiteral("DSC_0002.NEF")), nefBytes());
    if (asRoot)
        ASSERT_TRUE(small.remountReadOnly());
    else
        ASSERT_EQ(::chmod(Paths::encode(folder).constData(), 0555), 0);

    XMPService service;
    for (const char* name : {"DSC_0001.NEF", "DSC_0002.NEF"}) {
        SCOPED_TRACE(name);
        const Result<XMPSnapshot> snapshot = service.read(Paths::join(folder, QString::fromUtf8(name))).result();
        ASSERT_TRUE(snapshot.ok()) << snapshot.message().toStdString();
        const Result<XMPSnapshot> saved = service.save(*snapshot, ratingPatch(1)).result();
        EXPECT_TRUE(!saved.ok() && saved.message().endsWith(asRoot ? QStringLiteral(": Read-only file system") : QStringLiteral(": Permission denied")))
            << saved.message().toStdString();
    }
    EXPECT_EQ(test::allNames(folder), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp", "DSC_0002.NEF"}));
    EXPECT_EQ(test::readFile(Paths::join(folder, QStringLiteral("DSC_0001.xmp"))), original);
    if (!asRoot)
        ::chmod(Paths::encode(folder).constData(), 0755);
}

} // namespace
} // namespace vantelor
