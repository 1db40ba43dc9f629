#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <list>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>

#include "Metadata/SidecarReader.h"
#include "Metadata/XMPDocument.h"
#include "Metadata/XMPService.h"
#include "Support/CliRunner.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

namespace vantelor {
namespace {

using test::Sandbox;
namespace fixtures = test::XmpFixtures;

const QString nefOnly = QStringLiteral("El guardado XMP solo está habilitado para Nikon NEF. Los otros formatos solo conservan cambios durante esta sesión.");

const QByteArray& nefBytes()
{
    static const QByteArray bytes = test::makeNef(32, 24);
    return bytes;
}

int openDescriptors()
{
    return int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size());
}

QStringList temporaries(const QString& folder)
{
    return test::allNames(folder).filter(QRegularExpression(QStringLiteral("^\\.vantelor-.*\\.xmp$")));
}

QList<QByteArray> backups(const QString& folder)
{
    QList<QByteArray> out;
    const QString backupFolder = Paths::join(folder, QStringLiteral(".vantelor-backups"));
    for (const QString& name : test::allNames(backupFolder))
        out.append(test::readFile(Paths::join(backupFolder, name)));
    return out;
}

// Rows hold plain values: GCC 12 misreads std::optional<QString> members of constant tables.
XMPPatch patchOf(std::optional<int> rating, const char* label = nullptr)
{
    return {rating, label ? std::optional(QString::fromUtf8(label)) : std::nullopt};
}

struct stat statOf(const QString& path)
{
    struct stat st {};
    EXPECT_EQ(::stat(Paths::encode(path).constData(), &st), 0) << path.toStdString();
    return st;
}

// The value of a result that should have one.
template<typename T> T valueOf(const Result<T>& result)
{
    EXPECT_TRUE(result.ok()) << result.message().toStdString();
    return result ? *result : T{};
}

// One NEF in a fresh folder, optionally with a sidecar, read through the service.
struct Scene {
    Sandbox box;
    QString raw, sidecar;
    XMPService service;

    // In the system's temporary folder, or where a QTemporaryDir template says.
    explicit Scene(const std::optional<QByteArray>& xmp, const QString& where = {}, const QString& base = QStringLiteral("DSC_0001"))
        : box(where), raw(box.write(base + QStringLiteral(".NEF"), nefBytes())), sidecar(box.file(base + QStringLiteral(".xmp"))) { if (xmp) test::writeFile(sidecar, *xmp); }
    QString folder() const { return Paths::parent(raw); }
    XMPSnapshot read() { return valueOf(service.read(raw).result()); }
    Result<XMPSnapshot> save(const XMPSnapshot& snapshot, const XMPPatch& patch) { return service.save(snapshot, patch).result(); }
};

TEST(XMPServiceRead, sidecarsArePairedByBaseNameIgnoringCaseAndABatchReadsEachInOrder)
{
    const QString invalidName = Paths::decode("caf\xE9");   // Latin-1 bytes: not UTF-8
    // The files in a folder, the one read, and the sidecar it pairs with or the error.
    const struct { QStringList files; QString raw; QString sidecar; QString error; } rows[] = {
        {{"A.NEF"}, "A.NEF", "A.xmp", {}},   // none: unrated, and nothing is created
        {{"b.nef", "B.Xmp", "B.jpg", "B.NEF.xmp"}, "b.nef", "B.Xmp", {}},
        {{"C.NEF", "C.NEF.xmp"}, "C.NEF", "C.xmp", {}},   // an appended name is not the sidecar
        {{"Ñandú.NEF", "ñANDÚ.xmp"}, "Ñandú.NEF", "ñANDÚ.xmp", {}},
        {{invalidName + ".NEF", invalidName + ".xmp"}, invalidName + ".NEF", invalidName + ".xmp", {}},
        {{"A.NEF", "A.xmp", "A.XMP"}, "A.NEF", {}, "Varios XMP coinciden con A"},
        {{"A.NEF", "a.nef", "A.xmp"}, "A.NEF", {}, "Nombre base NEF ambiguo: A"},
        {{"IMG_1.JPG", "IMG_1.xmp"}, "IMG_1.JPG", {}, nefOnly},
    };
    XMPService service;
    std::list<Sandbox> boxes;
    QList<QString> raws;
    QList<MetadataReadResult> expected;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.files.join(QLatin1Char(' ')).toStdString());
        const Sandbox& box = boxes.emplace_back();
        for (const QString& name : row.files)
            box.write(name, name.endsWith(QLatin1String("xmp"), Qt::CaseInsensitive) ? fixtures::darktable(2, QStringLiteral("Red")) : nefBytes());
        const Result<XMPSnapshot> read = service.read(box.file(row.raw)).result();
        EXPECT_EQ(test::allNames(box.path()).size(), row.files.size());   // nothing is created
        if (row.error != nefOnly) {   // a batch leaves the photos' checks to its caller
            raws.append(box.file(row.raw));
            expected.append({raws.back(), read ? std::optional(*read) : std::nullopt, read ? std::nullopt : std::optional(read.message())});
        }
        if (!row.error.isEmpty()) {
            EXPECT_EQ(read.message(), row.error);
            continue;
        }
        ASSERT_TRUE(read.ok()) << read.message().toStdString();
        const bool exists = box.exists(row.sidecar);
        EXPECT_EQ(*read, (XMPSnapshot{box.file(row.raw), box.file(row.sidecar), exists ? std::optional(box.read(row.sidecar)) : std::nullopt,
                                      exists ? 2 : 0, exists ? std::optional(QStringLiteral("Red")) : std::nullopt}));
    }
    // Past failures, and in input order: the snapshot or message of each single read.
    raws.insert(2, QStringLiteral("/nonexistent-folder/DSC_9999.NEF"));
    expected.insert(2, {raws[2], std::nullopt, QStringLiteral("/nonexistent-folder: No such file or directory")});
    EXPECT_EQ(service.readMany(raws).result(), expected);
}

TEST(XMPServiceRead, unsafeOrUnreadableSidecarsAndPhotosAreRefusedAndNothingIsCreatedOrLeftOpen)
{
    const QByteArray xmp = fixtures::lightroom(4, QStringLiteral("Blue"));
    const QString unsafe = QStringLiteral("Archivo XMP inseguro o demasiado grande");
    const QString link = QStringLiteral("Archivo XMP rechazado: enlace simbólico");
    const QString sidecar = QStringLiteral("X.xmp"), photo = QStringLiteral("X.NEF");
    // A regular file whose size reads as 0 but that yields far more than 16 MiB: what a sidecar
    // that grows between the check and the read looks like. The page map of a process is one;
    // root can bind it over the sidecar's path.
    const QByteArray pagemap = "/proc/" + QByteArray::number(::getpid()) + "/pagemap";
    const struct { const char* name; std::function<void(const Sandbox&)> make; QString error; bool needsRoot = false; } rows[] = {
        {"link to a valid sidecar", [&](const Sandbox& b) { b.symlink(b.write(QStringLiteral("real.xmp"), xmp), sidecar); }, unsafe},
        {"dangling link", [&](const Sandbox& b) { b.symlink(b.file(QStringLiteral("gone.xmp")), sidecar); }, link},
        {"link to itself", [&](const Sandbox& b) { b.symlink(b.file(sidecar), sidecar); }, link},
        {"directory", [&](const Sandbox& b) { b.mkdir(sidecar); }, unsafe},
        {"FIFO (never opened, so never blocks)", [&](const Sandbox& b) { ASSERT_EQ(::mkfifo(Paths::encode(b.file(sidecar)).constData(), 0644), 0); }, unsafe},
        {"one byte over 16 MiB", [&](const Sandbox& b) { b.write(sidecar, xmp + QByteArray(SidecarReader::maximumSize + 1 - xmp.size(), ' ')); }, unsafe},
        {"exactly 16 MiB is read", [&](const Sandbox& b) { b.write(sidecar, xmp + QByteArray(SidecarReader::maximumSize - xmp.size(), ' ')); }, {}},
        {"larger than its size said", [&](const Sandbox& b) { ASSERT_EQ(::mount(pagemap, Paths::encode(b.write(sidecar, {})), nullptr, MS_BIND, nullptr), 0); },
         QStringLiteral("Archivo XMP demasiado grande"), true},
        {"the photo is a folder", [&](const Sandbox& b) { QFile::remove(b.file(photo)); b.mkdir(photo); }, nefOnly},
        {"the photo is a link", [&](const Sandbox& b) { QFile::remove(b.file(photo)); b.symlink(b.write(QStringLiteral("I.JPG"), test::makeJpeg(8, 8)), photo); }, nefOnly},
    };
    XMPService service;
    // The service's worker holds descriptors of its own once it has started.
    ASSERT_TRUE(service.read(QStringLiteral("/nonexistent/A.NEF")).result().message().endsWith(QStringLiteral("No such file or directory")));
    const int descriptors = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.needsRoot && ::geteuid() != 0)
            continue;   // binding a file over another needs root
        Sandbox box;
        box.write(photo, nefBytes());
        row.make(box);
        const Result<XMPSnapshot> read = service.read(box.file(photo)).result();
        ::umount2(Paths::encode(box.file(sidecar)).constData(), MNT_DETACH);
        if (row.error.isEmpty()) {
            ASSERT_TRUE(read.ok()) << read.message().toStdString();
            EXPECT_TRUE(read->rating == 4 && read->data->size() == SidecarReader::maximumSize);
        } else {
            EXPECT_EQ(read.message(), row.error);
        }
        EXPECT_FALSE(box.exists(QStringLiteral(".vantelor-backups")));
    }
    // A regular file whose read fails (a process's memory at address 0) is an error, and its file
    // is closed like every other one.
    const QString memory = QStringLiteral("/proc/self/mem");
    EXPECT_EQ(SidecarReader::readSidecar(memory).message(), SystemError(EIO, memory).message());
    EXPECT_EQ(openDescriptors(), descriptors);
    // A folder that cannot hold the sidecar means there is none; a name the system refuses is an error.
    const Result<std::optional<QByteArray>> underAFile = SidecarReader::readSidecar(QStringLiteral("/proc/self/stat/X.xmp"));
    EXPECT_TRUE(underAFile && !*underAFile);
    const QString tooLong = QStringLiteral("/tmp/") + QString(300, QLatin1Char('x')) + QStringLiteral(".xmp");
    EXPECT_EQ(SidecarReader::readSidecar(tooLong).message(), SystemError(ENAMETOOLONG, tooLong).message());
}

TEST(XMPServiceSave, aFirstSaveCreatesFromTheTemplateAndEveryLaterOneKeepsTheVersionItReplacedAndTheSidecarsOwnAttributes)
{
    Scene scene(std::nullopt);
    const XMPPatch patch{4, QStringLiteral("green")};
    const XMPSnapshot first = valueOf(scene.save(scene.read(), patch));
    EXPECT_TRUE(first.rating == 4 && first.label == QStringLiteral("green"));
    const QByteArray created = XMPDocument::parse(XMPDocument::newSidecarTemplate())->applying(patch).value();
    EXPECT_EQ(test::readFile(scene.sidecar), created);
    EXPECT_EQ(test::allNames(scene.folder()), (QStringList{"DSC_0001.NEF", "DSC_0001.xmp"}));
    // A new sidecar gets the user's default permissions, as any new file would; a replacement
    // keeps the sidecar's own owner, group, permissions and attributes, whatever the user's
    // default, and in a shared folder the backups stay the group's. Only root can give files
    // to other owners.
    const mode_t mask = ::umask(077);
    const ino_t createdInode = statOf(scene.sidecar).st_ino;
    EXPECT_EQ(statOf(scene.sidecar).st_mode & 07777, 0666 & ~mask);
    const QByteArray folder = Paths::encode(scene.folder()), sidecar = Paths::encode(scene.sidecar);
    const bool asRoot = ::geteuid() == 0;
    ASSERT_TRUE(::chmod(sidecar.constData(), 0664) == 0
                && (!asRoot || (::chown(folder.constData(), 0, 4321) == 0 && ::chmod(folder.constData(), 02775) == 0 && ::chown(sidecar.constData(), 1234, 4321) == 0)));
    const bool attributes = ::setxattr(sidecar.constData(), "user.xdg.comment", "elegida", 7, 0) == 0;
    const XMPSnapshot second = valueOf(scene.save(first, {5, std::nullopt}));
    const XMPPatch purple{std::nullopt, QStringLiteral("purple")};
    const XMPSnapshot third = valueOf(scene.save(second, purple));
    ::umask(mask);
    const QByteArray expected = XMPDocument::parse(second.data.value_or(QByteArray()))->applying(purple).value();
    EXPECT_TRUE(test::readFile(scene.sidecar) == expected && third.data == expected);
    const QList<QByteArray> kept = backups(scene.folder());
    EXPECT_TRUE(kept.size() == 2 && kept.contains(created) && kept.contains(second.data.value_or(QByteArray())));
    const QString backupFolder = Paths::join(scene.folder(), QStringLiteral(".vantelor-backups"));
    bool swapped = false;   // the atomic swap keeps the replaced inode as the backup
    for (const QString& name : test::allNames(backupFolder)) {
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^DSC_0001\\.xmp\\.[0-9A-F-]{36}\\.backup$")).match(name).hasMatch()) << name.toStdString();
        swapped = swapped || statOf(Paths::join(backupFolder, name)).st_ino == createdInode;
    }
    EXPECT_TRUE(swapped);
    EXPECT_TRUE(temporaries(scene.folder()).isEmpty());
    const struct stat st = statOf(scene.sidecar);
    EXPECT_EQ(std::tuple(st.st_uid, st.st_gid, st.st_mode & 07777), std::tuple(asRoot ? 1234u : ::getuid(), asRoot ? 4321u : st.st_gid, 0664u));
    char value[16] = {};
    EXPECT_TRUE(!attributes || (::getxattr(sidecar.constData(), "user.xdg.comment", value, sizeof value) == 7 && QByteArray(value) == "elegida"));
    const struct stat shared = statOf(backupFolder);
    EXPECT_TRUE(!asRoot || (shared.st_gid == 4321u && (shared.st_mode & 07777) == 02775u)) << shared.st_gid << " " << (shared.st_mode & 07777);
    // A patch that changes nothing writes nothing, and keeps no backup.
    for (const XMPPatch& same : {purple, XMPPatch{}})
        EXPECT_EQ(valueOf(scene.save(third, same)), third);
    EXPECT_EQ(backups(scene.folder()).size(), 2);
    EXPECT_EQ(test::allNames(scene.folder()), (QStringList{".vantelor-backups", "DSC_0001.NEF", "DSC_0001.xmp"}));
}

TEST(XMPServiceSave, aNameNearTheLengthLimitCanBeRatedAgainAndAgain)
{
    // 250 bytes before the extension, two-byte letters first, so that a shortened name must cut
    // between whole characters; it gives up exactly 43 bytes, one character at a time.
    const QString base = QString(100, QChar(0x00D1)) + QString(50, QLatin1Char('a'));
    ASSERT_EQ(Paths::encode(base).size(), 250);
    Scene scene(fixtures::lightroom(1, std::nullopt), {}, base);
    XMPSnapshot snapshot = scene.read();
    for (int rating = 2; rating <= 4; ++rating) {
        snapshot = valueOf(scene.save(snapshot, {rating, std::nullopt}));
        EXPECT_EQ(snapshot.rating, rating);
    }
    const QStringList kept = test::allNames(scene.box.file(QStringLiteral(".vantelor-backups")));
    ASSERT_EQ(kept.size(), 3);
    for (const QString& name : kept) {
        EXPECT_TRUE(Paths::encode(name).size() == 255 && !Paths::hasEscapedBytes(name)) << "cut inside a character";
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\x{00D1}{100}a+\\.[0-9A-F-]{36}\\.backup$")).match(name).hasMatch()) << name.toStdString();
    }
    EXPECT_EQ(test::allNames(scene.folder()), (QStringList{QStringLiteral(".vantelor-backups"), base + QStringLiteral(".NEF"), base + QStringLiteral(".xmp")}));
}

TEST(XMPServiceSave, refusalsBeforeAnythingIsWritten)
{
    using K = WorkflowError::Kind;
    const QByteArray original = fixtures::digikam(1, QStringLiteral("Red"));
    const QString changedOutside = QStringLiteral("DSC_0001.xmp cambió fuera de Vantelor. Carga o combina antes de guardar.");
    const QByteArray complexLabel = fixtures::captureOne(1, std::nullopt).replace("<xmp:CreatorTool>", "<xmp:Label><rdf:Alt><rdf:li xml:lang='x-default'>Red</rdf:li></rdf:Alt></xmp:Label><xmp:CreatorTool>");
    const struct { const char* name; std::function<void(Scene&, XMPSnapshot&)> arrange; XMPPatch patch; QString message; K kind; } rows[] = {
        {"rating 6", [](Scene&, XMPSnapshot&) {}, patchOf(6), "Valoración XMP no válida", K::invalid},
        {"rating -2, even with the NEF gone", [](Scene& s, XMPSnapshot&) { QFile::remove(s.raw); }, patchOf(-2), "Valoración XMP no válida", K::invalid},
        {"not a NEF", [](Scene& s, XMPSnapshot& snap) { snap.raw = s.box.write(QStringLiteral("DSC_0001.JPG"), test::makeJpeg(8, 8)); }, patchOf(2), "El archivo NEF no está disponible", K::invalid},
        {"edited by another program after the read", [&](Scene& s, XMPSnapshot&) { test::writeFile(s.sidecar, original + " "); }, patchOf(2), changedOutside, K::conflict},
        {"renamed by another program", [](Scene& s, XMPSnapshot&) { QFile::rename(s.sidecar, s.box.file(QStringLiteral("dsc_0001.XMP"))); }, patchOf(2), changedOutside, K::conflict},
        {"backup folder is a link to a folder", [](Scene& s, XMPSnapshot&) { s.box.symlink(s.box.mkdir(QStringLiteral("elsewhere")), QStringLiteral(".vantelor-backups")); }, patchOf(2), "La carpeta de recuperación no es segura", K::invalid},
        {"read-only sidecar", [](Scene& s, XMPSnapshot&) { ::chmod(Paths::encode(s.sidecar).constData(), 0444); }, patchOf(2), "El archivo XMP es de solo lectura", K::io},
        {"a complex label", [&](Scene& s, XMPSnapshot& snap) { test::writeFile(s.sidecar, complexLabel); snap = s.read(); }, patchOf(std::nullopt, "Blue"), "El campo XMP complejo Label no se puede reemplazar de forma segura", K::invalid},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Scene scene(original);
        XMPSnapshot snapshot = scene.read();
        row.arrange(scene, snapshot);
        const QStringList namesBefore = test::allNames(scene.folder());
        const QByteArray bytesBefore = test::readFile(scene.sidecar);
        const Result<XMPSnapshot> saved = scene.save(snapshot, row.patch);
        const auto* error = std::get_if<WorkflowError>(&saved.failure());
        EXPECT_TRUE(!saved.ok() && error && error->kind() == row.kind && saved.message() == row.message) << saved.message().toStdString();
        EXPECT_EQ(test::readFile(scene.sidecar), bytesBefore);
        // The backup folder may be made before the last check, but holds nothing.
        const QRegularExpression other(QStringLiteral("^(?!\\.vantelor-backups$)"));
        EXPECT_EQ(test::allNames(scene.folder()).filter(other), namesBefore.filter(other));
        EXPECT_TRUE(backups(scene.folder()).isEmpty());
    }
}

// What another program, or the disk, does at one step of a save.
enum class Action { modifyInPlace, replaceByRename, remove, create, makeFifo, failSync, lock };

struct RaceRow {
    const char* name;
    bool portable;
    bool existing;      // a sidecar exists when the save starts
    XMPSaveStep step;
    Action action;
    const char* message;   // a prefix of the message; nullptr when the save succeeds
    WorkflowError::Kind kind;
    enum class Ends { theirs, ours, original, none, fifo } ends;   // what the sidecar path holds afterwards
    bool backedUp;         // the original is kept in a backup, else nothing is
};

TEST(XMPServiceSave, anotherWriterAtEachStepNeverLosesData)
{
    using S = XMPSaveStep;
    using A = Action;
    using K = WorkflowError::Kind;
    using E = RaceRow::Ends;
    const RaceRow rows[] = {
        {"modified before the temporary file", false, true, S::checked, A::modifyInPlace, "El archivo XMP cambió mientras se preparaba el guardado", K::conflict, E::theirs, false},
        {"deleted while the temporary file is written", false, true, S::prepared, A::remove, "El archivo XMP cambió mientras se preparaba el guardado", K::conflict, E::none, false},
        {"created while the temporary file is written", false, false, S::prepared, A::create, "El archivo XMP cambió mientras se preparaba el guardado", K::conflict, E::theirs, false},
        {"replaced just before the swap", false, true, S::checkedAgain, A::replaceByRename, "Cambio externo detectado. Datos de recuperación conservados en ", K::conflict, E::theirs, false},
        {"modified in place just before the swap", false, true, S::checkedAgain, A::modifyInPlace, "Cambio externo detectado. Datos de recuperación conservados en ", K::conflict, E::theirs, false},
        {"a FIFO put in place just before the swap", false, true, S::checkedAgain, A::makeFifo, "Cambio externo detectado. Datos de recuperación conservados en ", K::conflict, E::fifo, false},
        {"deleted just before the swap", false, true, S::checkedAgain, A::remove, "No se pudo guardar el XMP: No such file or directory", K::io, E::none, false},
        {"created just before the exclusive rename", false, false, S::checkedAgain, A::create, "El XMP apareció mientras se guardaba. Vuelve a cargarlo.", K::conflict, E::theirs, false},
        {"modified right after the swap", false, true, S::exchanged, A::modifyInPlace, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::theirs, true},
        {"modified after placing", false, true, S::placed, A::replaceByRename, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::theirs, true},
        {"deleted after creating", false, false, S::placed, A::remove, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::none, false},
        {"portable: replaced before the lock", true, true, S::checkedAgain, A::replaceByRename, "El XMP cambió antes de guardar. Carga o combina los cambios.", K::conflict, E::theirs, false},
        {"portable: deleted before the lock", true, true, S::checkedAgain, A::remove, "El XMP cambió antes de guardar. Carga o combina los cambios.", K::conflict, E::none, false},
        {"portable: written under the lock by a program that ignores it", true, true, S::portableLocked, A::modifyInPlace, "El XMP cambió durante el guardado; copia anterior conservada.", K::conflict, E::theirs, true},
        {"portable: replaced after the backup", true, true, S::portableBackedUp, A::replaceByRename, "El XMP cambió durante el guardado; copia anterior conservada.", K::conflict, E::theirs, true},
        {"portable: created before the exclusive creation", true, false, S::checkedAgain, A::create, "El XMP apareció mientras se guardaba. Vuelve a cargarlo.", K::conflict, E::theirs, false},
        {"portable: modified after placing", true, true, S::placed, A::modifyInPlace, "El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.", K::conflict, E::theirs, true},
        {"portable: locked by another program", true, true, S::checked, A::lock, "El XMP está ocupado. Inténtalo de nuevo.", K::io, E::original, false},
        {"portable: the disk does not confirm a new sidecar", true, false, S::checkedAgain, A::failSync, "El disco no confirmó el guardado del XMP.", K::io, E::none, false},
        {"portable: nobody interferes", true, true, S::placed, A::create, nullptr, K::io, E::ours, true},
        {"portable: nobody interferes with a new sidecar", true, false, S::checked, A::create, nullptr, K::io, E::ours, false},
    };
    const QByteArray original = fixtures::lightroom(1, QStringLiteral("Red"), 200);
    const QByteArray theirs = fixtures::lightroom(5, QStringLiteral("Yellow"), 300);
    for (const RaceRow& row : rows) {
        SCOPED_TRACE(row.name);
        Scene scene(row.existing ? std::optional<QByteArray>(original) : std::nullopt);
        const XMPSnapshot snapshot = scene.read();
        const QByteArray native = Paths::encode(scene.sidecar);
        bool syncFails = false;
        int lock = -1;
        XMPSaveSeam seam;
        seam.unsupportedRenames = row.portable;
        seam.failSync = [&](const QString&) { return syncFails ? EIO : 0; };
        seam.atStep = [&](XMPSaveStep step) {
            if (step != row.step || !row.message)
                return;
            switch (row.action) {
            case A::modifyInPlace: case A::create: test::writeFile(scene.sidecar, theirs); break;
            case A::replaceByRename:
                test::writeFile(scene.sidecar + QStringLiteral(".other-tmp"), theirs);
                ASSERT_EQ(::rename(Paths::encode(scene.sidecar + QStringLiteral(".other-tmp")).constData(), native.constData()), 0);
                break;
            case A::remove: ASSERT_EQ(::unlink(native.constData()), 0); break;
            case A::makeFifo: ASSERT_TRUE(::unlink(native.constData()) == 0 && ::mkfifo(native.constData(), 0644) == 0); break;
            case A::failSync: syncFails = true; break;
            case A::lock:
                lock = ::open(native.constData(), O_RDONLY);
                ASSERT_EQ(::flock(lock, LOCK_EX), 0);
                break;
            }
        };
        scene.service.setSaveSeam(seam);
        const Result<XMPSnapshot> saved = scene.save(snapshot, {3, std::nullopt});
        ::close(lock);

        const QByteArray ours = XMPDocument::parse(row.existing ? original : XMPDocument::newSidecarTemplate())->applying({3, std::nullopt}).value();
        if (!row.message) {
            EXPECT_EQ(valueOf(saved).data, ours);
        } else {
            const auto* error = std::get_if<WorkflowError>(&saved.failure());
            EXPECT_TRUE(!saved.ok() && saved.message().startsWith(QString::fromUtf8(row.message)) && error && error->kind() == row.kind) << saved.message().toStdString();
        }
        struct stat st {};
        const bool present = ::lstat(native.constData(), &st) == 0;
        if (row.ends == E::none || row.ends == E::fifo) {
            EXPECT_TRUE(row.ends == E::none ? !present : present && S_ISFIFO(st.st_mode));
        } else {
            EXPECT_EQ(test::readFile(scene.sidecar), row.ends == E::theirs ? theirs : row.ends == E::ours ? ours : original);
        }
        // Every byte the save displaced is still on disk: in a backup, or in the temporary file
        // that the message names, which is the only temporary file left behind.
        const QStringList left = temporaries(scene.folder());
        const bool recovered = row.message && saved.message().startsWith(QStringLiteral("Cambio externo detectado"));
        ASSERT_EQ(left.size(), recovered ? 1 : 0) << left.join(QLatin1Char(' ')).toStdString();
        const QString temporary = recovered ? Paths::join(scene.folder(), left.front()) : QString();
        EXPECT_TRUE(!recovered || (saved.message().contains(temporary) && test::readFile(temporary) == ours));
        EXPECT_EQ(backups(scene.folder()), row.backedUp ? QList<QByteArray>{original} : QList<QByteArray>{});
    }
}

TEST(XMPServiceSave, aFullOrReadOnlyVolumeLeavesTheOldSidecarWhole)
{
    const QString noSpace = QStringLiteral("No space left on device");
    const QString incomplete = QStringLiteral("No se pudo completar el XMP. Revisa el espacio libre y la conexión del disco.");
    enum class Fault { fullBefore, fullJustBeforePlacing, readOnly };
    const struct { bool portable; bool existing; Fault fault; QString message; } rows[] = {
        {false, true, Fault::fullBefore, noSpace},
        {true, true, Fault::fullBefore, noSpace},
        {true, true, Fault::fullJustBeforePlacing, incomplete},    // the backup cannot be written
        {true, false, Fault::fullJustBeforePlacing, incomplete},   // the exclusive creation cannot be completed
        {false, true, Fault::readOnly, ": Read-only file system"},
        {false, false, Fault::readOnly, ": Read-only file system"},
    };
    const QByteArray original = fixtures::lightroom(1, QStringLiteral("Red"), 20000);
    Sandbox outer;
    for (int index = 0; index < int(std::size(rows)); ++index) {
        const auto& row = rows[index];
        SCOPED_TRACE(index);
        const QString mount = outer.mkdir(QString::number(index));
        test::SmallVolume volume(mount, "size=256k");
        // Without root there is no volume of our own to fill; a folder without write permission
        // still stands in for a read-only one.
        const bool asRoot = volume.mounted();
        if (!asRoot && row.fault != Fault::readOnly)
            continue;
        Scene scene(row.existing ? std::optional(original) : std::nullopt, mount + QStringLiteral("/XXXXXX"));
        const QString folder = scene.folder();
        XMPSaveSeam seam;
        seam.unsupportedRenames = row.portable;
        seam.atStep = [&](XMPSaveStep step) {
            if (row.fault == Fault::fullJustBeforePlacing && step == XMPSaveStep::checkedAgain)
                test::fillUp(folder);
        };
        scene.service.setSaveSeam(seam);
        const XMPSnapshot snapshot = scene.read();
        if (row.fault == Fault::fullBefore)
            test::fillUp(folder);
        if (row.fault == Fault::readOnly) {
            ASSERT_TRUE(asRoot ? volume.remountReadOnly() : ::chmod(Paths::encode(folder).constData(), 0555) == 0);
        }
        const Result<XMPSnapshot> saved = scene.save(snapshot, {4, std::nullopt});
        QFile::remove(Paths::join(folder, QStringLiteral("filler")));
        const QString message = asRoot ? row.message : QStringLiteral(": Permission denied");
        EXPECT_TRUE(!saved.ok() && saved.message().endsWith(message)) << saved.message().toStdString();
        EXPECT_EQ(test::pathExists(scene.sidecar) ? test::readFile(scene.sidecar) : QByteArray(), row.existing ? original : QByteArray());
        EXPECT_TRUE(temporaries(folder).isEmpty() && backups(folder).isEmpty());
    }
}

TEST(XMPInterop, exiftoolAndExiv2ReadWhatWasSaved)
{
    const QString exiftool = QStandardPaths::findExecutable(QStringLiteral("exiftool")), exiv2 = QStandardPaths::findExecutable(QStringLiteral("exiv2"));
    ASSERT_FALSE(exiftool.isEmpty() || exiv2.isEmpty()) << "exiftool or exiv2 is missing: scripts/install-deps.sh test installs them";
    const struct { const char* name; std::optional<QByteArray> sidecar; int rating; const char* label; } rows[] = {
        {"new sidecar", std::nullopt, 4, "green"},
        {"Lightroom", fixtures::lightroom(2, QStringLiteral("Red")), 5, "purple"},
        {"Lightroom without either", fixtures::lightroom(std::nullopt, std::nullopt), 1, "yellow"},
        {"Capture One", fixtures::captureOne(3, QStringLiteral("Blue")), -1, "red"},
        {"darktable", fixtures::darktable(1, std::nullopt), 2, "blue"},
        {"digiKam with CRLF", fixtures::digikam(4, QStringLiteral("Green"), true), 0, "Rojo & <azul>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Scene scene(row.sidecar);
        const QString label = QString::fromUtf8(row.label);
        valueOf(scene.save(scene.read(), {row.rating, label}));
        const test::CliRun byExiftool = test::runCli({"-j", "-XMP:Rating", "-XMP:Label", scene.sidecar}, QProcessEnvironment::systemEnvironment(), exiftool);
        const QJsonObject fields = byExiftool.json().array().at(0).toObject();
        EXPECT_TRUE(byExiftool.status == 0 && fields.value(QStringLiteral("Rating")).toInt(-99) == row.rating && fields.value(QStringLiteral("Label")).toString() == label)
            << byExiftool.out.toStdString() << byExiftool.err.toStdString();
        const auto byExiv2 = [&](const char* key) {
            return QString::fromUtf8(test::runCli({"-K", key, "-Pv", scene.sidecar}, QProcessEnvironment::systemEnvironment(), exiv2).out.trimmed());
        };
        EXPECT_EQ(byExiv2("Xmp.xmp.Rating"), QString::number(row.rating));
        EXPECT_EQ(byExiv2("Xmp.xmp.Label"), label);
    }
}

} // namespace
} // namespace vantelor
