#include "Metadata/SidecarWriter.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QUuid>

#include "Library/PhotoItem.h"
#include "Metadata/SidecarReader.h"
#include "Metadata/XMPDocument.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"

namespace vantelor {

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
    return Paths::fileName(sidecar) + QLatin1Char('.') + freshUuid() + QStringLiteral(".backup");
}

// The temporary file is removed on every way out of a save once this save has created it,
// unless it holds data that the message names for recovery.
class TemporaryFile {
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

// Closing the descriptor also releases an advisory lock held through it.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }
    // close() reports late write errors of some file systems (NFS): the caller must hear them.
    int close()
    {
        const int result = ::close(m_fd);
        m_fd = -1;
        return result;
    }

private:
    int m_fd;
};

// All bytes, retrying interrupted writes and continuing after partial ones; 0 or an error number.
int writeAll(int fd, const QByteArray& data)
{
    qsizetype done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.constData() + done, size_t(data.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        if (n == 0)
            return EIO;
        done += n;
    }
    return 0;
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
    if (::mkdir(native.constData(), 0777) != 0) {
        if (errno == EEXIST)
            return check();
        return SystemError::fromErrno(folder);
    }
    return Done{};
}

// A replacement starts private and takes the old sidecar's permissions; a new sidecar gets the
// user's default ones (the umask applies to 0666).
Status writeTemporary(const QByteArray& data, TemporaryFile& temporary, const std::optional<quint32>& mode, bool synchronise)
{
    const QString& path = temporary.path();
    Descriptor fd(::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                         mode ? 0600 : 0666));
    if (fd.get() < 0)
        return SystemError::fromErrno(path);
    temporary.created();
    if (mode && ::fchmod(fd.get(), mode_t(*mode)) != 0)
        return SystemError::fromErrno(path);
    if (const int error = writeAll(fd.get(), data))
        return SystemError(error, path);
    if (synchronise && ::fsync(fd.get()) != 0)
        return SystemError::fromErrno(path);
    if (fd.close() != 0)
        return SystemError::fromErrno(path);
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
    const int fd = ::open(Paths::encode(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return SystemError::fromErrno(folder);
    const int result = ::fsync(fd);
    const int error = errno;
    ::close(fd);
    // Some file systems cannot synchronise a folder and say so with EINVAL; nothing is lost.
    if (result != 0 && error != EINVAL)
        return WorkflowError::io(QStringLiteral("El disco no confirmó el guardado del XMP."));
    return Done{};
}

Status SidecarWriter::createExclusive(const QByteArray& data, const QString& path)
{
    Descriptor fd(::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (fd.get() < 0) {
        if (errno == EEXIST)
            return WorkflowError::conflict(appeared);
        return WorkflowError::io(QStringLiteral("No se pudo crear el XMP: ") + SystemError::text(errno));
    }
    if (writeAll(fd.get(), data) != 0) {
        discardCreated(fd.get(), path);
        return WorkflowError::io(
            QStringLiteral("No se pudo completar el XMP. Revisa el espacio libre y la conexión del disco."));
    }
    if (m_seam.synchronise && ::fsync(fd.get()) != 0) {
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

    Descriptor fd(::open(Paths::encode(snapshot.sidecar).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0)
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

    const auto unchangedSinceRead = [&](const Result<SidecarReader::Current>& now) {
        return now->sidecar == snapshot.sidecar && now->data == snapshot.data;
    };
    {
        const Result<SidecarReader::Current> now = SidecarReader::current(snapshot.raw);
        if (!now)
            return now.failure();
        if (!unchangedSinceRead(now))
            return WorkflowError::conflict(Paths::displayText(Paths::fileName(snapshot.sidecar))
                                           + QStringLiteral(" cambió fuera de Vantelor. Carga o combina antes de guardar."));
    }
    reach(XMPSaveStep::checked);

    const Result<XMPDocument> document = XMPDocument::parse(snapshot.data.value_or(XMPDocument::newSidecarTemplate()));
    if (!document)
        return document.failure();
    const Result<XMPValues> previous = document->values();
    if (!previous)
        return previous.failure();
    const Result<QByteArray> patched = document->applying(patch);
    if (!patched)
        return patched.failure();
    const QByteArray& bytes = *patched;
    if (snapshot.data && bytes == *snapshot.data)
        return snapshot;

    const bool replacing = snapshot.data.has_value();
    const QString folder = Paths::parent(snapshot.sidecar);
    TemporaryFile temporary(Paths::join(folder, QStringLiteral(".vantelor-") + freshUuid() + QStringLiteral(".xmp")));
    const QString backupFolder = Paths::join(folder, QStringLiteral(".vantelor-backups"));

    std::optional<quint32> mode;
    if (replacing) {
        const Status safe = ensureBackupFolder(backupFolder);
        if (!safe)
            return safe.failure();
        if (const Result<FileStat> st = FileStat::read(snapshot.sidecar); st.ok())
            mode = st->mode & 0777;
    }
    if (const Status written = writeTemporary(bytes, temporary, mode, m_seam.synchronise); !written)
        return written.failure();
    reach(XMPSaveStep::prepared);

    {
        const Result<SidecarReader::Current> now = SidecarReader::current(snapshot.raw);
        if (!now)
            return now.failure();
        if (!unchangedSinceRead(now))
            return WorkflowError::conflict(QStringLiteral("El archivo XMP cambió mientras se preparaba el guardado"));
    }
    reach(XMPSaveStep::checkedAgain);

    if (replacing) {
        // Root may write anything, so a sidecar whose write bits are all off counts as
        // protected too: the user made it read-only on purpose.
        const QByteArray native = Paths::encode(snapshot.sidecar);
        struct stat st {};
        const bool denied = ::access(native.constData(), W_OK) != 0 && (errno == EACCES || errno == EROFS || errno == EPERM);
        if (denied || (::lstat(native.constData(), &st) == 0 && (st.st_mode & 0222) == 0))
            return WorkflowError::io(QStringLiteral("El archivo XMP es de solo lectura"));

        const int error = renameWithFlags(temporary.path(), snapshot.sidecar, RENAME_EXCHANGE);
        if (error != 0) {
            if (!unsupported(error))
                return WorkflowError::io(QStringLiteral("No se pudo guardar el XMP: ") + SystemError::text(error));
            if (const Status replaced = replacePortable(snapshot, temporary.path(), backupFolder); !replaced)
                return replaced.failure();
        } else {
            // The temporary path now holds what was at the sidecar's path just before the swap.
            temporary.keep();
            reach(XMPSaveStep::exchanged);
            if (!sameData(SidecarReader::readSidecar(temporary.path()), *snapshot.data)) {
                // Another program wrote the sidecar after the last check: give it its version
                // back if ours is still in place, and keep the other one for recovery.
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
            if (const Status synced = synchroniseFolder(backupFolder); !synced)
                return synced.failure();
        }
    } else {
        const int error = renameWithFlags(temporary.path(), snapshot.sidecar, RENAME_NOREPLACE);
        if (error == EEXIST)
            return WorkflowError::conflict(appeared);
        if (error != 0) {
            if (!unsupported(error))
                return WorkflowError::io(QStringLiteral("No se pudo crear el XMP: ") + SystemError::text(error));
            if (const Status created = createExclusive(bytes, snapshot.sidecar); !created)
                return created.failure();
        }
    }
    if (const Status synced = synchroniseFolder(folder); !synced)
        return synced.failure();
    reach(XMPSaveStep::placed);

    // The read-back is a full read of the photo. Bytes equal to those written need no second
    // parse: the edit already proved what they hold.
    const QString changedAfter = QStringLiteral("El XMP cambió después del guardado. Vuelve a cargarlo antes de continuar.");
    if (!SidecarReader::checkPhoto(snapshot.raw))
        return WorkflowError::conflict(changedAfter);
    const Result<SidecarReader::Current> now = SidecarReader::current(snapshot.raw);
    if (!now || now->sidecar != snapshot.sidecar || now->data != bytes)
        return WorkflowError::conflict(changedAfter);
    XMPSnapshot saved;
    saved.raw = snapshot.raw;
    saved.sidecar = snapshot.sidecar;
    saved.data = bytes;
    saved.rating = patch.rating.value_or(previous->rating);
    saved.label = patch.label ? patch.label : previous->label;
    return saved;
}

} // namespace vantelor
