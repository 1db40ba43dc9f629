#include "Metadata/SidecarWriter.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QUuid>

#include "Files/FileCopier.h"
#include "Library/PhotoItem.h"
#include "Metadata/SidecarReader.h"
#include "Metadata/XMPDocument.h"
#include "Support/FileDescriptor.h"
#include "Support/FileStat.h"
#include "Support/FileReader.h"
#include "Support/Paths.h"

namespace vantelor {

// The temporary file is removed on every way out of a save once this save has created it,
// unless it holds data that the message names for recovery.
class SidecarWriter::TemporaryFile {
public:
    explicit TemporaryFile(QString path) : m_path(std::move(path)) {}
    ~TemporaryFile()
    {
        if (m_created && !m_kept)
            ::unlink(Paths::encode(m_path).constData());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const QString& path() const { return m_path; }
    void created() { m_created = true; }
    void keep() { m_kept = true; }

private:
    QString m_path;
    bool m_created = false;
    bool m_kept = false;
};

namespace {

const QString appeared = QStringLiteral("El XMP apareció mientras se guardaba. Vuelve a cargarlo.");

// What a volume answers when it cannot swap or rename exclusively (FUSE, NFS, CIFS, exFAT).
bool unsupported(int error)
{
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == ENOTSUP;
}

QString freshUuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString backupName(const QString& sidecar)
{
    // A name may hold 255 bytes: the sidecar's own name near that limit gives up its last
    // characters, whole, to the UUID that keeps every backup unique.
    constexpr qsizetype longestName = 255;
    const QString tail = QLatin1Char('.') + freshUuid() + QStringLiteral(".backup");
    QString name = Paths::fileName(sidecar);
    while (!name.isEmpty() && Paths::encode(name + tail).size() > longestName)
        name.chop(name.size() > 1 && name.back().isLowSurrogate() && name[name.size() - 2].isHighSurrogate() ? 2 : 1);
    return name + tail;
}

// Removes a file this save created and could not finish, but only if the path still names it.
void discardCreated(int fd, const QString& path)
{
    struct stat created {};
    struct stat now {};
    const QByteArray native = Paths::encode(path);
    if (::fstat(fd, &created) == 0 && ::lstat(native.constData(), &now) == 0 && created.st_dev == now.st_dev
        && created.st_ino == now.st_ino)
        ::unlink(native.constData());
}

Status ensureBackupFolder(const QString& folder)
{
    const QByteArray native = Paths::encode(folder);
    const auto check = [&]() -> Status {
        struct stat st {};
        if (::lstat(native.constData(), &st) != 0)
            return SystemError::fromErrno(folder);
        if (S_ISLNK(st.st_mode) || !S_ISDIR(st.st_mode))
            return WorkflowError::invalid(QStringLiteral("La carpeta de recuperación no es segura"));
        return Done{};
    };
    struct stat st {};
    if (::lstat(native.constData(), &st) == 0 || errno != ENOENT)
        return check();
    if (::mkdir(native.constData(), 0700) != 0) {
        if (errno == EEXIST)
            return check();
        return SystemError::fromErrno(folder);
    }
    // In a folder shared by a group the backups must stay writable for the next person who
    // rates: the backup folder takes its folder's group and permissions, whatever our umask.
    struct stat parent {};
    if (::stat(Paths::encode(Paths::parent(folder)).constData(), &parent) == 0) {
        (void)::lchown(native.constData(), uid_t(-1), parent.st_gid);
        (void)::chmod(native.constData(), parent.st_mode & 07777);
    }
    return Done{};
}

// A replacement starts private and takes the old sidecar's owner and group (as far as we may
// give them), permissions and `user.*` attributes, so that a sidecar in a shared folder stays
// what it was; a new sidecar gets the user's default ones (the umask applies to 0666).
Status writeTemporary(const QByteArray& data, SidecarWriter::TemporaryFile& temporary, const QString& replaced, bool synchronise)
{
    const QString& path = temporary.path();
    const FileDescriptor old = replaced.isEmpty() ? FileDescriptor() : FileReader::openRegular(replaced);
    struct stat st {};
    const bool like = old.isOpen() && ::fstat(old.get(), &st) == 0;
    FileDescriptor fd(::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             like ? 0600 : 0666));
    if (!fd.isOpen())
        return SystemError::fromErrno(path);
    temporary.created();
    if (like) {
        if (::fchown(fd.get(), st.st_uid, st.st_gid) != 0)
            (void)::fchown(fd.get(), uid_t(-1), st.st_gid);  // a member of the group may give that
        if (::fchmod(fd.get(), st.st_mode & 07777) != 0)
            return SystemError::fromErrno(path);
        if (const int error = FileCopier::copyUserAttributes(old.get(), fd.get()))
            return SystemError(error, path);
    }
    if (const int error = fd.writeAll(data.constData(), data.size()))
        return SystemError(error, path);
    if (synchronise && ::fsync(fd.get()) != 0)
        return SystemError::fromErrno(path);
    if (const int error = fd.close())
        return SystemError(error, path);
    return Done{};
}

bool sameData(const Result<std::optional<QByteArray>>& read, const QByteArray& expected)
{
    return read.ok() && read->has_value() && **read == expected;
}

} // namespace

SidecarWriter::SidecarWriter(XMPSaveSeam seam) : m_seam(std::move(seam)) {}

void SidecarWriter::reach(XMPSaveStep step) const
{
    if (m_seam.atStep)
        m_seam.atStep(step);
}

int SidecarWriter::renameWithFlags(const QString& from, const QString& to, unsigned int flags) const
{
    if (m_seam.unsupportedRenames)
        return EINVAL;
    if (::renameat2(AT_FDCWD, Paths::encode(from).constData(), AT_FDCWD, Paths::encode(to).constData(), flags) != 0)
        return errno;
    return 0;
}

Status SidecarWriter::synchroniseFolder(const QString& folder) const
{
    if (!m_seam.synchronise)
        return Done{};
    const FileDescriptor fd(::open(Paths::encode(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.isOpen())
        return SystemError::fromErrno(folder);
    const int result = ::fsync(fd.get());
    const int error = errno;
    // Some file systems cannot synchronise a folder and say so with EINVAL; nothing is lost.
    if (result != 0 && error != EINVAL)
        return WorkflowError::io(QStringLiteral("El disco no confirmó el guardado del XMP."));
    return Done{};
}

int SidecarWriter::synchroniseFile(int fd, const QString& path) const
{
    if (!m_seam.synchronise)
        return 0;
    if (const int error = m_seam.failSync ? m_seam.failSync(path) : 0)
        return error;
    return ::fsync(fd) == 0 ? 0 : errno;
}

Status SidecarWriter::createExclusive(const QByteArray& data, const QString& path)
{
    FileDescriptor fd(::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.isOpen()) {
        if (errno == EEXIST)
            return WorkflowError::conflict(appeared);
        return WorkflowError::io(QStringLiteral("No se pudo crear el XMP: ") + SystemError::text(errno));
    }
    if (fd.writeAll(data.constData(), data.size()) != 0) {
        discardCreated(fd.get(), path);
        return WorkflowError::io(
            QStringLiteral("No se pudo completar el XMP. Revisa el espacio libre y la conexión del disco."));
    }
    if (synchroniseFile(fd.get(), path) != 0) {
        discardCreated(fd.get(), path);
        return WorkflowError::io(QStringLiteral("El disco no confirmó el guardado del XMP."));
    }
    if (fd.close() != 0)
        return WorkflowError::io(QStringLiteral("El disco no confirmó el guardado del XMP."));
    return Done{};
}

Status SidecarWriter::replacePortable(const XMPSnapshot& snapshot, const QString& temporary, const QString& backupFolder)
{
    // Linux has no file coordinator: the coordinated section runs directly, and the advisory
    // lock below is what other cooperating programs see.
    const Result<SidecarReader::Current> now = SidecarReader::current(snapshot.raw);
    if (!now)
        return now.failure();
    if (now->sidecar != snapshot.sidecar || !snapshot.data || now->data != snapshot.data)
        return WorkflowError::conflict(QStringLiteral("El XMP cambió antes de guardar. Carga o combina los cambios."));

    // Closing the descriptor also releases the advisory lock held through it.
    const FileDescriptor fd(::open(Paths::encode(snapshot.sidecar).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.isOpen())
        return WorkflowError::io(QStringLiteral("No se pudo abrir el XMP para comprobarlo"));
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            return WorkflowError::io(QStringLiteral("El XMP está ocupado. Inténtalo de nuevo."));
        return SystemError::fromErrno(snapshot.sidecar);
    }
    reach(XMPSaveStep::portableLocked);

    const Status backedUp = createExclusive(*snapshot.data, Paths::join(backupFolder, backupName(snapshot.sidecar)));
    if (!backedUp)
        return backedUp;
    reach(XMPSaveStep::portableBackedUp);

    if (!sameData(SidecarReader::readSidecar(snapshot.sidecar), *snapshot.data))
        return WorkflowError::conflict(QStringLiteral("El XMP cambió durante el guardado; copia anterior conservada."));
    if (::rename(Paths::encode(temporary).constData(), Paths::encode(snapshot.sidecar).constData()) != 0)
        return WorkflowError::io(QStringLiteral("No se pudo reemplazar el XMP: ") + SystemError::text(errno));
    return synchroniseFolder(backupFolder);
}

Result<XMPSnapshot> SidecarWriter::save(const XMPSnapshot& snapshot, const XMPPatch& patch)
{
    if (const Status valid = checkRequest(snapshot, patch); !valid)
        return valid.failure();
    if (const Status unchanged = checkUnchanged(snapshot, Paths::displayText(Paths::fileName(snapshot.sidecar))
                                                              + QStringLiteral(" cambió fuera de Vantelor. Carga o combina antes de guardar."));
        !unchanged)
        return unchanged.failure();
    reach(XMPSaveStep::checked);

    const Result<Edit> edit = applyPatch(snapshot, patch);
    if (!edit)
        return edit.failure();
    if (snapshot.data && edit->bytes == *snapshot.data)
        return snapshot;

    const QString folder = Paths::parent(snapshot.sidecar);
    TemporaryFile temporary(Paths::join(folder, QStringLiteral(".vantelor-") + freshUuid() + QStringLiteral(".xmp")));
    const QString backupFolder = Paths::join(folder, QStringLiteral(".vantelor-backups"));
    if (const Status prepared = prepareTemporary(snapshot, edit->bytes, temporary, backupFolder); !prepared)
        return prepared.failure();
    reach(XMPSaveStep::prepared);
    if (const Status unchanged = checkUnchanged(snapshot, QStringLiteral("El archivo XMP cambió mientras se preparaba el guardado"));
        !unchanged)
        return unchanged.failure();
    reach(XMPSaveStep::checkedAgain);

    const Status placed = snapshot.data ? replaceSidecar(snapshot, edit->bytes, temporary, backupFolder)
                                        : createSidecar(snapshot, edit->bytes, temporary);
    if (!placed)
        return placed.failure();
    if (const Status synced = synchroniseFolder(folder); !synced)
        return synced.failure();
    reach(XMPSaveStep::placed);
    return readBack(snapshot, patch, *edit);
}

Status SidecarWriter::checkRequest(const XMPSnapshot& snapshot, const XMPPatch& patch)
{
    if (patch.rating && (*patch.rating < -1 || *patch.rating > 5))
        return WorkflowError::invalid(QStringLiteral("Valoración XMP no válida"));
    const QString unavailable = QStringLiteral("El archivo NEF no está disponible");
    if (Paths::suffix(snapshot.raw).toLower() != QLatin1String("nef"))
        return WorkflowError::invalid(unavailable);
    const Result<std::optional<PhotoItem>> photo = PhotoItem::inspect(snapshot.raw);
    if (!photo)
        return photo.failure();
    if (!photo->has_value())
        return WorkflowError::invalid(unavailable);
    return Done{};
}

Status SidecarWriter::checkUnchanged(const XMPSnapshot& snapshot, const QString& conflict)
{
    const Result<SidecarReader::Current> now = SidecarReader::current(snapshot.raw);
    if (!now)
        return now.failure();
    if (now->sidecar != snapshot.sidecar || now->data != snapshot.data)
        return WorkflowError::conflict(conflict);
    return Done{};
}

Result<SidecarWriter::Edit> SidecarWriter::applyPatch(const XMPSnapshot& snapshot, const XMPPatch& patch)
{
    const Result<XMPDocument> document = XMPDocument::parse(snapshot.data.value_or(XMPDocument::newSidecarTemplate()));
    if (!document)
        return document.failure();
    const Result<XMPValues> previous = document->values();
    if (!previous)
        return previous.failure();
    const Result<QByteArray> patched = document->applying(patch);
    if (!patched)
        return patched.failure();
    return Edit{*patched, *previous};
}

Status SidecarWriter::prepareTemporary(const XMPSnapshot& snapshot, const QByteArray& bytes, TemporaryFile& temporary,
                                       const QString& backupFolder) const
{
    if (snapshot.data) {
        const Status safe = ensureBackupFolder(backupFolder);
        if (!safe)
            return safe;
    }
    return writeTemporary(bytes, temporary, snapshot.data ? snapshot.sidecar : QString(), m_seam.synchronise);
}

Status SidecarWriter::replaceSidecar(const XMPSnapshot& snapshot, const QByteArray& bytes, TemporaryFile& temporary,
                                     const QString& backupFolder)
{
    // Root may write anything, so a sidecar whose write bits are all off counts as protected
    // too: the user made it read-only on purpose.
    const QByteArray native = Paths::encode(snapshot.sidecar);
    struct stat st {};
    const bool denied = ::access(native.constData(), W_OK) != 0 && (errno == EACCES || errno == EROFS || errno == EPERM);
    if (denied || (::lstat(native.constData(), &st) == 0 && (st.st_mode & 0222) == 0))
        return WorkflowError::io(QStringLiteral("El archivo XMP es de solo lectura"));

    const int error = renameWithFlags(temporary.path(), snapshot.sidecar, RENAME_EXCHANGE);
    if (error != 0) {
        if (!unsupported(error))
            return WorkflowError::io(QStringLiteral("No se pudo guardar el XMP: ") + SystemError::text(error));
        return replacePortable(snapshot, temporary.path(), backupFolder);
    }
    // The temporary path now holds what was at the sidecar's path just before the swap.
    temporary.keep();
    reach(XMPSaveStep::exchanged);
    if (!sameData(SidecarReader::readSidecar(temporary.path()), *snapshot.data)) {
        // Another program wrote the sidecar after the last check: give it its version back if
        // ours is still in place, and keep the other one for recovery.
        if (sameData(SidecarReader::readSidecar(snapshot.sidecar), bytes))
            renameWithFlags(temporary.path(), snapshot.sidecar, RENAME_EXCHANGE);
        return WorkflowError::conflict(QStringLiteral("Cambio externo detectado. Datos de recuperación conservados en ")
                                       + Paths::displayText(temporary.path())
                                       + QStringLiteral(" si no fue posible restaurar."));
    }
    const QString backup = Paths::join(backupFolder, backupName(snapshot.sidecar));
    int moveError = renameWithFlags(temporary.path(), backup, RENAME_NOREPLACE);
    if (unsupported(moveError))
        moveError = ::rename(Paths::encode(temporary.path()).constData(), Paths::encode(backup).constData()) == 0 ? 0 : errno;
    if (moveError != 0)
        return WorkflowError::io(QStringLiteral("XMP guardado; copia anterior conservada en ")
                                 + Paths::displayText(temporary.path()) + QStringLiteral(". ")
                                 + SystemError(moveError, backup).message());
    return synchroniseFolder(backupFolder);
}

Status SidecarWriter::createSidecar(const XMPSnapshot& snapshot, const QByteArray& bytes, const TemporaryFile& temporary)
{
    const int error = renameWithFlags(temporary.path(), snapshot.sidecar, RENAME_NOREPLACE);
    if (error == EEXIST)
        return WorkflowError::conflict(appeared);
    if (error != 0) {
        if (!unsupported(error))
            return WorkflowError::io(QStringLiteral("No se pudo crear el XMP: ") + SystemError::text(error));
        return createExclusive(bytes, snapshot.sidecar);
    }
    return Done{};
}

Result<XMPSnapshot> SidecarWriter::readBack(const XMPSnapshot& snapshot, const XMPPatch& patch, const Edit& edit)
{
    // The read-back is a full read of the photo. Bytes equal to those written need no second
    // parse: the edit already proved what they hold.
    const QString changedAfter = QStringLiteral("El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.");
    if (!SidecarReader::checkPhoto(snapshot.raw))
        return WorkflowError::conflict(changedAfter);
    const Result<SidecarReader::Current> now = SidecarReader::current(snapshot.raw);
    if (!now || now->sidecar != snapshot.sidecar || now->data != edit.bytes)
        return WorkflowError::conflict(changedAfter);
    XMPSnapshot saved;
    saved.raw = snapshot.raw;
    saved.sidecar = snapshot.sidecar;
    saved.data = edit.bytes;
    saved.rating = patch.rating.value_or(edit.previous.rating);
    saved.label = patch.label ? patch.label : edit.previous.label;
    return saved;
}

} // namespace vantelor
