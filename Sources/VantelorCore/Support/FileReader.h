#pragma once

#include <optional>

#include <QByteArray>
#include <QString>

#include "Support/FileDescriptor.h"

namespace vantelor {

// A file opened read-only for bounded random reads (pread). Counts the bytes it has read, so
// that tests can prove a parser reads no more than it should. Not shared between threads.
class FileReader {
public:
    static std::optional<FileReader> open(const QString& path);

    // Opens a path for reading only when it names a regular file, never blocking on a named
    // pipe or a device: the open does not wait (O_NONBLOCK), the type is read from the opened
    // descriptor, and only then are reads made blocking again. Closed for anything else.
    static FileDescriptor openRegular(const QString& path);
    // "/proc/self/fd/N": the opened file under a name for libraries that insist on opening a
    // path themselves (exiv2, LibRaw); nobody can put a pipe in its place in between.
    static QByteArray descriptorPath(int fd);

    qint64 size() const { return m_size; }
    // Up to `length` bytes at `offset`; shorter at the end of the file, empty past it or on error.
    QByteArray read(qint64 offset, qint64 length);
    qint64 bytesRead() const { return m_bytesRead; }
    int descriptor() const { return m_fd.get(); }

private:
    FileReader(FileDescriptor fd, qint64 size) : m_fd(std::move(fd)), m_size(size) {}

    FileDescriptor m_fd;
    qint64 m_size = 0;
    qint64 m_bytesRead = 0;
};

} // namespace vantelor
