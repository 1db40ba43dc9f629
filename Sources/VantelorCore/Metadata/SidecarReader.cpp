#include "Metadata/SidecarReader.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <unordered_map>

#include "Library/PhotoItem.h"
#include "Metadata/SidecarFolder.h"
#include "Metadata/XMPDocument.h"
#include "Support/FileDescriptor.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

const QString nefOnly = QStringLiteral("El guardado XMP solo está habilitado para Nikon NEF. Los otros formatos "
                                       "solo conservan cambios durante esta sesión.");
const QString unsafeFile = QStringLiteral("Archivo XMP inseguro o demasiado grande");

Result<QString> locateAfresh(const QString& raw)
{
    const Result<SidecarFolder> folder = SidecarFolder::list(Paths::parent(raw));
    if (!folder)
        return folder.failure();
    return folder->locate(raw);
}

// Copied from one value: GCC 12 at -O1 with sanitizers misreads the construction of this
// variant from a temporary as a use of uninitialised memory.
Result<XMPSnapshot> cancelledRead()
{
    static const Failure cancelled{std::in_place_type<Cancelled>};
    return Result<XMPSnapshot>(cancelled);
}

} // namespace

Result<std::optional<QByteArray>> SidecarReader::readSidecar(const QString& path)
{
    const QByteArray native = Paths::encode(path);
    struct stat own {};
    if (::lstat(native.constData(), &own) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return std::optional<QByteArray>();
        return SystemError::fromErrno(path);
    }
    if (S_ISLNK(own.st_mode)) {
        struct stat target {};
        if (::stat(native.constData(), &target) != 0)
            return WorkflowError::invalid(QStringLiteral("Archivo XMP rechazado: enlace simbólico"));
        return WorkflowError::invalid(unsafeFile);
    }
    // Devices and FIFOs are never opened: opening some of them has effects of its own.
    if (!S_ISREG(own.st_mode) || own.st_size > maximumSize)
        return WorkflowError::invalid(unsafeFile);

    // Opened without following a link and without waiting on a FIFO, and checked again once
    // open: something may have been put at the path since.
    const FileDescriptor fd(::open(native.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.isOpen()) {
        if (errno == ELOOP)
            return WorkflowError::invalid(unsafeFile);
        if (errno == ENOENT)
            return std::optional<QByteArray>();
        return SystemError::fromErrno(path);
    }
    struct stat opened {};
    if (::fstat(fd.get(), &opened) != 0 || !S_ISREG(opened.st_mode) || opened.st_size > maximumSize)
        return WorkflowError::invalid(unsafeFile);
    // Read until the end of the file or one page past the bound, whatever the size said: the
    // file may have grown since it was measured. Sizes stay page-aligned, which some special
    // files insist on.
    constexpr qsizetype page = 4096;
    constexpr qsizetype limit = maximumSize + page;
    QByteArray bytes;
    bytes.resize(std::min<qsizetype>(limit, (qsizetype(opened.st_size) / page + 1) * page));
    qsizetype done = 0;
    while (done <= maximumSize) {
        if (done == bytes.size())
            bytes.resize(std::min<qsizetype>(limit, done * 2));
        const ssize_t n = ::read(fd.get(), bytes.data() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return SystemError::fromErrno(path);
        if (n == 0)
            break;
        done += n;
    }
    if (done > maximumSize)
        return WorkflowError::invalid(QStringLiteral("Archivo XMP demasiado grande"));
    bytes.truncate(done);
    bytes.squeeze();   // snapshots keep these bytes for as long as the folder is open
    return std::optional<QByteArray>(std::move(bytes));
}

Result<SidecarReader::Current> SidecarReader::current(const QString& raw)
{
    const Result<QString> sidecar = locateAfresh(raw);
    if (!sidecar)
        return sidecar.failure();
    Result<std::optional<QByteArray>> data = readSidecar(*sidecar);
    if (!data)
        return data.failure();
    return Current{*sidecar, std::move(*data)};
}

Result<XMPSnapshot> SidecarReader::readLocated(const QString& raw, const Result<QString>& sidecar)
{
    if (!sidecar)
        return sidecar.failure();
    Result<std::optional<QByteArray>> data = readSidecar(*sidecar);
    if (!data)
        return data.failure();
    XMPSnapshot snapshot;
    snapshot.raw = raw;
    snapshot.sidecar = *sidecar;
    if (data->has_value()) {
        const Result<XMPDocument> document = XMPDocument::parse(**data);
        if (!document)
            return document.failure();
        const Result<XMPValues> values = document->values();
        if (!values)
            return values.failure();
        snapshot.rating = values->rating;
        snapshot.label = values->label;
        snapshot.data = std::move(*data);
    }
    return snapshot;
}

Status SidecarReader::checkPhoto(const QString& raw)
{
    if (Paths::suffix(raw).toLower() != QLatin1String("nef"))
        return WorkflowError::invalid(nefOnly);
    const Result<std::optional<PhotoItem>> photo = PhotoItem::inspect(raw);
    if (!photo)
        return photo.failure();
    if (!photo->has_value())
        return WorkflowError::invalid(nefOnly);
    return Done{};
}

Result<XMPSnapshot> SidecarReader::read(const QString& raw)
{
    if (const Status photo = checkPhoto(raw); !photo)
        return photo.failure();
    return readLocated(raw, locateAfresh(raw));
}

QList<Result<XMPSnapshot>> SidecarReader::readAll(const QList<QString>& raws, bool checkPhotos,
                                                  const std::function<bool()>& cancelled)
{
    std::unordered_map<QString, Result<SidecarFolder>> folders;
    QList<Result<XMPSnapshot>> out;
    out.reserve(raws.size());
    for (const QString& raw : raws) {
        if (cancelled && cancelled()) {
            out.resize(raws.size(), cancelledRead());
            break;
        }
        if (checkPhotos) {
            if (const Status photo = checkPhoto(raw); !photo) {
                out.append(photo.failure());
                continue;
            }
        }
        const QString folder = Paths::parent(raw);
        auto it = folders.find(folder);
        if (it == folders.end())
            it = folders.emplace(folder, SidecarFolder::list(folder)).first;
        const Result<SidecarFolder>& listing = it->second;
        out.append(listing.ok() ? readLocated(raw, listing->locate(raw)) : Result<XMPSnapshot>(listing.failure()));
    }
    return out;
}

} // namespace vantelor
