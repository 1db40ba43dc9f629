#pragma once

#include <QString>

#include "Support/Result.h"

namespace vantelor {

// The SHA-256 of a file's contents, which is how transfers recognise a file: streamed in 1 MiB
// chunks through OpenSSL's EVP interface (which uses the CPU's SHA instructions), so memory stays
// flat whatever the size.
class FileDigest {
public:
    static constexpr qint64 chunkSize = 1 << 20;

    // 64 lower-case hexadecimal digits. Anything but a regular file (a symbolic link, a folder,
    // a FIFO) fails with "Solo se pueden transferir archivos normales" without being opened for
    // reading in a way that could block.
    static Result<QString> sha256(const QString& path);
};

} // namespace vantelor
