#include "Files/FileCopier.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QByteArrayList>

#include "Files/FileDigest.h"
#include "Support/FileDescriptor.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

// Errors by which copy_file_range says "not here", not "failed": another file system, a file
// system without the call, a file it cannot splice.
bool kernelCopyUnavailable(int error)
{
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EBADF
        || error == EPERM || error == ETXTBSY;
}

// A failure on the reading side names the source, on the writing side the copy.
struct CopyFailure {
    int error;
    bool reading;
};

std::optional<CopyFailure> copyByReading(int in, const FileDescriptor& out, off_t offset)
{
    const std::unique_ptr<char[]> buffer(new char[FileDigest::chunkSize]);
    for (;;) {
        const ssize_t n = ::pread(in, buffer.get(), size_t(FileDigest::chunkSize), offset);
        if (n == 0)
            return std::nullopt;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return CopyFailure{errno, true};
        }
        if (const int error = out.writeAll(buffer.get(), n, offset))
            return CopyFailure{error, false};
        offset += n;
    }
}

std::optional<CopyFailure> copyContents(int in, const FileDescriptor& out)
{
    // A clone shares the blocks (btrfs, xfs): instant, and it is all or nothing.
    if (::ioctl(out.get(), FICLONE, in) == 0)
        return std::nullopt;

    loff_t inOffset = 0;
    loff_t outOffset = 0;
    for (;;) {
        const ssize_t n = ::copy_file_range(in, &inOffset, out.get(), &outOffset, size_t(1) << 30, 0);
        if (n > 0)
            continue;
        if (n == 0)
            return std::nullopt;
        if (errno == EINTR)
            continue;
        if (!kernelCopyUnavailable(errno))
            return CopyFailure{errno, false};
        // Carry on where the kernel stopped: both offsets are where the copied bytes end.
        return copyByReading(in, out, off_t(inOffset));
    }
}

} // namespace

// Only the user namespace: the others belong to the system (security.*, trusted.*) or describe
// permissions that `cp -p` does not carry either.
int FileCopier::copyUserAttributes(int in, int out)
{
    ssize_t size = ::flistxattr(in, nullptr, 0);
    if (size <= 0)
        return 0;
    QByteArray names(size, '\0');
    size = ::flistxattr(in, names.data(), size_t(names.size()));
    if (size <= 0)
        return 0;
    names.truncate(size);
    for (const QByteArray& name : names.split('\0')) {
        if (!name.startsWith("user."))
            continue;
        const ssize_t valueSize = ::fgetxattr(in, name.constData(), nullptr, 0);
        if (valueSize < 0)
            continue;
        QByteArray value(valueSize, '\0');
        const ssize_t read = ::fgetxattr(in, name.constData(), value.data(), size_t(value.size()));
        if (read < 0)
            continue;
        if (::fsetxattr(out, name.constData(), value.constData(), size_t(read), 0) != 0) {
            if (errno == ENOTSUP || errno == EPERM)
                return 0;
            return errno;
        }
    }
    return 0;
}


Status FileCopier::copy(const QString& from, const QString& to)
{
    const QByteArray source = Paths::encode(from);
    const QByteArray target = Paths::encode(to);
    const FileDescriptor in(::open(source.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!in.isOpen())
        return SystemError::fromErrno(from);
    struct stat st {};
    if (::fstat(in.get(), &st) != 0)
        return SystemError::fromErrno(from);
    if (!S_ISREG(st.st_mode))
        return WorkflowError::invalid(QStringLiteral("Solo se pueden transferir archivos normales"));

    FileDescriptor out(::open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out.isOpen())
        return SystemError::fromErrno(to);

    std::optional<CopyFailure> failure = copyContents(in.get(), out);
    if (!failure)
        if (const int error = copyUserAttributes(in.get(), out.get()))
            failure = CopyFailure{error, false};
    if (!failure) {
        // As `cp -p`: ownership where the system allows it, and set-id bits only with it.
        const bool owned = ::fchown(out.get(), st.st_uid, st.st_gid) == 0;
        const mode_t mode = st.st_mode & (owned ? 07777 : 0777);
        const struct timespec times[2] = {st.st_atim, st.st_mtim};
        if (::fchmod(out.get(), mode) != 0 || ::futimens(out.get(), times) != 0)
            failure = CopyFailure{errno, false};
    }
    if (!failure) {
        // Start writing now, so that the later fsync before the copy is placed mostly finds the
        // work done while other files were being hashed.
        ::sync_file_range(out.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
        if (const int error = out.close())
            failure = CopyFailure{error, false};
    }
    if (failure) {
        ::unlink(target.constData());
        return SystemError(failure->error, failure->reading ? from : to);
    }
    return Done{};
}

} // namespace vantelor
