#pragma once

#include <QString>

#include "Support/Result.h"

namespace vantelor {

// Copies one regular file to a new name the way `cp -p` does: contents, permission bits,
// ownership where allowed, access and modification times, and the `user.*` extended attributes.
// The contents are cloned where the file system can share blocks (FICLONE), copied in the kernel
// where it can (copy_file_range), and read and written otherwise (another file system).
class FileCopier {
public:
    // `to` must not exist. On failure the partial copy is removed again. The copy's write-back to
    // disk has been started but not waited for: call fsync before relying on it.
    static Status copy(const QString& from, const QString& to);
    // Copies the `user.*` extended attributes from one open file to another; 0 or the error
    // number. A file system that keeps none is no error.
    static int copyUserAttributes(int from, int to);
};

} // namespace vantelor
