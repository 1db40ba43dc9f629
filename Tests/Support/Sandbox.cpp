#include "Support/Sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <ctime>
#include <dirent.h>
#include <ftw.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <QFile>

#include "Support/Paths.h"

namespace vantelor::test {

Sandbox::Sandbox(const QString& where)
    : m_dir(where.isEmpty() ? QTemporaryDir() : QTemporaryDir(where)), m_path(Paths::clean(m_dir.path()))
{
}

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
    ::nftw(root.constData(), [](const char* path, const struct stat*, int, struct FTW*) {
        ::remove(path);
        return 0;  // go on whatever one entry did
    }, 32, FTW_DEPTH | FTW_PHYS);
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
    return pathExists(file(relative));
}

QByteArray readFile(const QString& path)
{
    const int fd = ::open(Paths::encode(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return {};
    QFile file;
    file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    return file.readAll();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    const int fd = ::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << "cannot create " << path.toStdString() << ": " << strerror(errno);
    QFile file;
    ASSERT_TRUE(file.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle) && file.write(bytes) == bytes.size() && file.flush());
}

namespace {

QStringList namesIn(const QString& folder, bool includeHidden)
{
    QStringList names;
    DIR* dir = opendir(Paths::encode(folder).constData());
    if (!dir)
        return names;
    while (const dirent* entry = readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        if (!includeHidden && name.startsWith('.'))
            continue;
        names.append(Paths::decode(name));
    }
    closedir(dir);
    names.sort();
    return names;
}

void collect(const QString& root, const QString& relative, std::map<QString, QByteArray>& out)
{
    const QString folder = relative.isEmpty() ? root : Paths::join(root, relative);
    for (const QString& name : allNames(folder)) {
        const QString rel = relative.isEmpty() ? name : relative + QLatin1Char('/') + name;
        const QString path = Paths::join(root, rel);
        struct stat st {};
        lstat(Paths::encode(path).constData(), &st);
        if (S_ISDIR(st.st_mode)) {
            out[rel + QLatin1Char('/')] = QByteArray();
            collect(root, rel, out);
        } else if (S_ISLNK(st.st_mode)) {
            char target[4096];
            const ssize_t n = readlink(Paths::encode(path).constData(), target, sizeof target);
            out[rel] = "-> " + QByteArray(target, int(std::max<ssize_t>(n, 0)));
        } else if (S_ISREG(st.st_mode)) {
            out[rel] = readFile(path);
        } else {
            out[rel] = "<special>";
        }
    }
}

} // namespace

QStringList visibleNames(const QString& folder)
{
    return namesIn(folder, false);
}

QStringList allNames(const QString& folder)
{
    return namesIn(folder, true);
}

bool pathExists(const QString& path)
{
    struct stat st {};
    return lstat(Paths::encode(path).constData(), &st) == 0;
}

std::map<QString, QByteArray> treeContents(const QString& folder)
{
    std::map<QString, QByteArray> out;
    collect(folder, QString(), out);
    return out;
}

SmallVolume::SmallVolume(const QString& path, const char* options) : m_path(path)
{
    m_mounted = ::geteuid() == 0 && ::mount("tmpfs", Paths::encode(path).constData(), "tmpfs", 0, options) == 0;
}

SmallVolume::~SmallVolume()
{
    if (m_mounted)
        ::umount2(Paths::encode(m_path).constData(), MNT_DETACH);
}

bool SmallVolume::remountReadOnly()
{
    return ::mount("tmpfs", Paths::encode(m_path).constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

void fillUp(const QString& folder)
{
    const int fd = ::open(Paths::encode(Paths::join(folder, QStringLiteral("filler"))).constData(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    const QByteArray block(4096, 'x');
    while (::write(fd, block.constData(), size_t(block.size())) > 0) {
    }
    ::close(fd);
}

void underFileSizeLimit(qint64 bytes, const std::function<void()>& write)
{
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small{rlim_t(bytes), limit.rlim_max};
    // Past the limit the kernel also signals SIGXFSZ, which would end the test program.
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    write();
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, handler);
}

EnvironmentGuard::~EnvironmentGuard()
{
    for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it) {
        if (it->second)
            qputenv(it->first.constData(), *it->second);
        else
            qunsetenv(it->first.constData());
    }
    tzset();
}

void EnvironmentGuard::set(const char* name, const std::optional<QByteArray>& value)
{
    m_saved.emplace_back(QByteArray(name), qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt);
    if (value)
        qputenv(name, *value);
    else
        qunsetenv(name);
    // The C library reads TZ only when asked to.
    tzset();
}

} // namespace vantelor::test
