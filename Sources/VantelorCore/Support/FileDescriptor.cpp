#include "Support/FileDescriptor.h"

#include <cerrno>
#include <unistd.h>

namespace vantelor {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this != &other) {
        close();
        m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    close();
}

int FileDescriptor::close()
{
    if (m_fd < 0)
        return 0;
    // Linux frees the descriptor even when close fails: retrying would close someone else's.
    const int result = ::close(std::exchange(m_fd, -1));
    return result == 0 ? 0 : errno;
}

int FileDescriptor::writeAll(const char* data, qint64 size, qint64 offset) const
{
    qint64 done = 0;
    while (done < size) {
        const ssize_t n = offset < 0 ? ::write(m_fd, data + done, size_t(size - done))
                                     : ::pwrite(m_fd, data + done, size_t(size - done), off_t(offset + done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        if (n == 0)
            return EIO;  // nothing written and no reason given: trying again would spin
        done += n;
    }
    return 0;
}

} // namespace vantelor
