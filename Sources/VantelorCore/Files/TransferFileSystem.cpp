#include "Files/TransferFileSystem.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Files/FileCopier.h"
#include "Support/FileDescriptor.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

bool flagUnsupported(int error)
{
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

} // namespace

Status TransferFileSystem::copyFile(const QString& from, const QString& to)
{
    return FileCopier::copy(from, to);
}

Status TransferFileSystem::renameExclusive(const QString& from, const QString& to)
{
    const QByteArray source = Paths::encode(from);
    const QByteArray target = Paths::encode(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return Done{};
    if (!flagUnsupported(errno))
        return SystemError::fromErrno(to);

    // NFS, CIFS and FUSE volumes without the no-replace flag: a hard link never replaces either.
    if (::link(source.constData(), target.constData()) == 0) {
        if (::unlink(source.constData()) == 0)
            return Done{};
        const SystemError error = SystemError::fromErrno(from);
        ::unlink(target.constData());
        return error;
    }
    const int linkError = errno;
    if (linkError != EPERM && linkError != EOPNOTSUPP && linkError != ENOSYS)
        return SystemError(linkError, to);

    // FAT-like volumes through FUSE keep neither: look, then rename at once. The gap between the
    // two is the only place where this program relies on nobody else writing the same name.
    struct stat st {};
    if (::lstat(target.constData(), &st) == 0)
        return SystemError(EEXIST, to);
    if (errno != ENOENT)
        return SystemError::fromErrno(to);
    if (::rename(source.constData(), target.constData()) != 0)
        return SystemError::fromErrno(to);
    return Done{};
}

Status TransferFileSystem::removeFile(const QString& path)
{
    if (::unlink(Paths::encode(path).constData()) != 0)
        return SystemError::fromErrno(path);
    return Done{};
}

Status TransferFileSystem::createFolder(const QString& path)
{
    if (::mkdir(Paths::encode(path).constData(), 0755) != 0)
        return SystemError::fromErrno(path);
    return Done{};
}

Status TransferFileSystem::removeFolder(const QString& path)
{
    if (::rmdir(Paths::encode(path).constData()) != 0)
        return SystemError::fromErrno(path);
    return Done{};
}

Status TransferFileSystem::writeNewFile(const QString& path, const QByteArray& bytes)
{
    const QByteArray native = Paths::encode(path);
    FileDescriptor fd(::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd.isOpen())
        return SystemError::fromErrno(path);
    int error = fd.writeAll(bytes.constData(), bytes.size());
    if (error == 0 && ::fsync(fd.get()) != 0)
        error = errno;
    if (const int closed = fd.close(); error == 0)
        error = closed;
    if (error != 0) {
        // Ours and incomplete: a half-written journal helps nobody.
        ::unlink(native.constData());
        return SystemError(error, path);
    }
    return Done{};
}

Status TransferFileSystem::sync(const QString& path)
{
    const FileDescriptor fd(::open(Paths::encode(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.isOpen())
        return SystemError::fromErrno(path);
    // Some file systems cannot sync a folder (EINVAL); there is then nothing more to wait for.
    const bool failed = ::fsync(fd.get()) != 0 && errno != EINVAL;
    const SystemError error = SystemError::fromErrno(path);
    if (failed)
        return error;
    return Done{};
}

} // namespace vantelor
