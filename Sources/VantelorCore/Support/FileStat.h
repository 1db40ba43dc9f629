#pragma once

#include <QDateTime>
#include <QString>

#include "Support/Result.h"

namespace vantelor {

// What statx says of one path, read without following a final symbolic link unless asked.
struct FileStat {
    enum class Type { regular, directory, symlink, other };

    Type type = Type::other;
    qint64 size = 0;
    quint32 mode = 0;
    bool hasBirthTime = false;
    QDateTime created;   // the distant past when the file system keeps no birth time
    QDateTime modified;
    quint64 device = 0;
    quint64 inode = 0;

    bool isRegular() const { return type == Type::regular; }
    bool isDirectory() const { return type == Type::directory; }
    bool isSymlink() const { return type == Type::symlink; }
    // "device:inode": stable while the file is unchanged, new when it is replaced.
    QString resourceID() const;

    static Result<FileStat> read(const QString& path, bool followLinks = false);
    // 0001-01-01T00:00:00Z, the date of files whose dates are unknown.
    static QDateTime distantPast();
};

} // namespace vantelor
