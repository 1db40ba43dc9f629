#include "Support/FileReader.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Support/Paths.h"

namespace vantelor {

std::optional<FileReader> FileReader::open(const QString& path)
{
    const int fd = ::open(Paths::encode(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return std::nullopt;
    }
    return FileReader(fd, qint64(st.st_size));
}

FileReader::FileReader(FileReader&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_size(other.m_size), m_bytesRead(other.m_bytesRead)
{
}

FileReader& FileReader::operator=(FileReader&& other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = std::exchange(other.m_fd, -1);
        m_size = other.m_size;
        m_bytesRead = other.m_bytesRead;
    }
    return *this;
}

FileReader::~FileReader()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

QByteArray FileReader::read(qint64 offset, qint64 length)
{
    if (m_fd < 0 || offset < 0 || length <= 0 || offset >= m_size)
        return {};
    length = std::min(length, m_size - offset);
    QByteArray buffer(length, Qt::Uninitialized);
    qint64 done = 0;
    while (done < length) {
        const ssize_t n = ::pread(m_fd, buffer.data() + done, size_t(length - done), off_t(offset + done));
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
