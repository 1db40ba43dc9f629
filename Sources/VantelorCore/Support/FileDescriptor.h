#pragma once

#include <utility>

#include <QtGlobal>

namespace vantelor {

// An open file descriptor, closed when it goes. Callers that must hear the late write errors
// some file systems report only when closing (NFS) close it themselves.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    bool isOpen() const { return m_fd >= 0; }
    int get() const { return m_fd; }
    // 0, or the error number of a failed close; the descriptor is gone either way.
    int close();

    // Every byte, retrying interrupted writes and continuing after partial ones: at the file's
    // position, or at an offset when one is given. 0, or the error number of the failed write.
    int writeAll(const char* data, qint64 size, qint64 offset = -1) const;

private:
    int m_fd;
};

} // namespace vantelor
