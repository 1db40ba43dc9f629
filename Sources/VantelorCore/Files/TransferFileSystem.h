#pragma once

#include <QByteArray>
#include <QString>

#include "Support/Result.h"

namespace vantelor {

// Every change that a transfer makes to the file system goes through one of these calls, so that
// a test can substitute a subclass and make a chosen call fail the way a full disk, a failing
// drive or a vanished volume would. The base class makes the real calls; failures are
// SystemErrors carrying the error number.
class TransferFileSystem {
public:
    virtual ~TransferFileSystem() = default;

    // Copies a regular file to a name that must not exist yet, keeping its attributes (FileCopier).
    virtual Status copyFile(const QString& from, const QString& to);
    // Renames atomically and never onto an existing name: EEXIST when `to` is taken.
    virtual Status renameExclusive(const QString& from, const QString& to);
    virtual Status removeFile(const QString& path);
    // Creates one folder, rwxr-xr-x before the umask; EEXIST when the name is taken.
    virtual Status createFolder(const QString& path);
    virtual Status removeFolder(const QString& path);
    // Creates a file that must not exist yet with these bytes, and waits until it is on disk.
    virtual Status writeNewFile(const QString& path, const QByteArray& bytes);
    // Waits until a file's contents, or a folder's entries, are on disk.
    virtual Status sync(const QString& path);
};

} // namespace vantelor
