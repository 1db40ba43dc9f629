#include "Support/FileStat.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "Support/Paths.h"

namespace vantelor {

namespace {

QDateTime fromTimestamp(const struct statx_timestamp& t)
{
    return QDateTime::fromMSecsSinceEpoch(qint64(t.tv_sec) * 1000 + t.tv_nsec / 1000000, Qt::UTC);
}

} // namespace

QDateTime FileStat::distantPast()
{
    static const QDateTime past(QDate(1, 1, 1), QTime(0, 0), Qt::UTC);
    return past;
}

QString FileStat::resourceID() const
{
    return QString::number(device) + QLatin1Char(':') + QString::number(inode);
}

Result<FileStat> FileStat::read(const QString& path, bool followLinks)
{
    struct statx sx {};
    const QByteArray native = Paths::encode(path);
    const int flags = (followLinks ? 0 : AT_SYMLINK_NOFOLLOW) | AT_STATX_SYNC_AS_STAT;
    if (statx(AT_FDCWD, native.constData(), flags, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0)
        return SystemError::fromErrno(path);

    FileStat st;
    const mode_t fmt = sx.stx_mode & S_IFMT;
    st.type = fmt == S_IFREG ? Type::regular
        : fmt == S_IFDIR     ? Type::directory
        : fmt == S_IFLNK     ? Type::symlink
                             : Type::other;
    st.mode = sx.stx_mode;
    st.size = (sx.stx_mask & STATX_SIZE) ? qint64(sx.stx_size) : 0;
    st.modified = (sx.stx_mask & STATX_MTIME) ? fromTimestamp(sx.stx_mtime) : distantPast();
    st.hasBirthTime = (sx.stx_mask & STATX_BTIME) != 0;
    st.created = st.hasBirthTime ? fromTimestamp(sx.stx_btime) : distantPast();
    st.device = makedev(sx.stx_dev_major, sx.stx_dev_minor);
    st.inode = sx.stx_ino;
    return st;
}

} // namespace vantelor
