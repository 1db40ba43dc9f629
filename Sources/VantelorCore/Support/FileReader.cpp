#include "Support/FileReader.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Support/Paths.h"

namespace vantelor {

std::optional<FileReader> FileReader::open(const QString& path)
{
    FileDescriptor fd = openRegular(path);
    struct stat st {};
    if (!fd.isOpen() || fstat(fd.get(), &st) != 0)
        return std::nullopt;
    return FileReader(std::move(fd), qint64(st.st_size));
}

FileDescriptor FileReader::openRegular(const QString& path)
{
    FileDescriptor fd(::open(Paths::encode(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat st {};
    if (!fd.isOpen())
        return fd;
    if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return FileDescriptor();
    }
    const int flags = ::fcntl(fd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0)
        return FileDescriptor();
    return fd;
}

QByteArray FileReader::descriptorPath(int fd)
{
    return QByteArrayLiteral("/proc/self/fd/") + QByteArray::number(fd);
}

QByteArray FileReader::read(qint64 offset, qint64 length)
{
    if (!m_fd.isOpen() || offset < 0 || length <= 0 || offset >= m_size)
        return {};
    length = std::min(length, m_size - offset);
    QByteArray buffer(length, Qt::Uninitialized);
    qint64 done = 0;
    while (done < length) {
        const ssize_t n = ::pread(m_fd.get(), buffer.data() + done, size_t(length - done), off_t(offset + done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += n;
    }
    buffer.truncate(done);
    m_bytesRead += done;
    return buffer;
}

} // namespace vantelor
