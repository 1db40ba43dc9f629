#include "Support/Sandbox.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Support/Paths.h"

namespace vantelor::test {

Sandbox::Sandbox() : m_path(Paths::clean(m_dir.path())) {}

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*)
{
    ::remove(path);
    return 0;  // go on whatever one entry did
}

} // namespace

Sandbox::~Sandbox()
{
    if (m_path.isEmpty() || m_path == QStringLiteral("/"))
        return;
    const QByteArray root = Paths::encode(m_path);
    // Folders first made writable, so that their entries can go; depth first, links not followed.
    ::nftw(root.constData(), [](const char* path, const struct stat* st, int type, struct FTW*) {
        if (type == FTW_D)
            ::chmod(path, (st->st_mode & 07777) | 0700);
        return 0;
    }, 32, FTW_PHYS);
    ::nftw(root.constData(), removeEntry, 32, FTW_DEPTH | FTW_PHYS);
}

QString Sandbox::file(const QString& relative) const
{
    return Paths::join(m_path, relative);
}

QString Sandbox::write(const QString& relative, const QByteArray& bytes) const
{
    const QString path = file(relative);
    const QString parentFolder = Paths::parent(path);
    if (parentFolder != m_path)
        mkdir(parentFolder.mid(m_path.size() + 1));
    writeFile(path, bytes);
    return path;
}

QString Sandbox::mkdir(const QString& relative) const
{
    QString built = m_path;
    for (const QString& part : relative.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        built = Paths::join(built, part);
        ::mkdir(Paths::encode(built).constData(), 0755);
    }
    return built;
}

QString Sandbox::symlink(const QString& target, const QString& relative) const
{
    const QString path = file(relative);
    EXPECT_EQ(::symlink(Paths::encode(target).constData(), Paths::encode(path).constData()), 0);
    return path;
}

QByteArray Sandbox::read(const QString& relative) const
{
    return readFile(file(relative));
}

bool Sandbox::exists(const QString& relative) const
{
    struct stat st {};
    return lstat(Paths::encode(file(relative)).constData(), &st) == 0;
}

QByteArray readFile(const QString& path)
{
    QByteArray out;
    const int fd = ::open(Paths::encode(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return out;
    char buffer[65536];
    ssize_t n;
    while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
        out.append(buffer, n);
    ::close(fd);
    return out;
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    const int fd = ::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << "cannot create " << path.toStdString() << ": " << strerror(errno);
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        ASSERT_GT(n, 0);
        done += n;
    }
    ::close(fd);
}

} // namespace vantelor::test
