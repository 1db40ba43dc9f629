#include "TransferTestSupport.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

QByteArray patternBytes(qsizetype size, int seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = 2166136261u ^ (quint32(seed) * 16777619u);
    for (qsizetype i = 0; i < size; ++i) {
        state = state * 1664525u + 1013904223u;
        bytes[i] = char(state >> 24);
    }
    return bytes;
}

static QStringList namesIn(const QString& folder, bool includeHidden)
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

static void collect(const QString& root, const QString& relative, std::map<QString, QByteArray>& out)
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

std::map<QString, QByteArray> treeContents(const QString& folder)
{
    std::map<QString, QByteArray> out;
    collect(folder, QString(), out);
    return out;
}

Originals originalsOf(const QStringList& paths)
{
    Originals originals;
    for (const QString& path : paths)
        originals[path] = readFile(path);
    return originals;
}

int expectNothingLost(const Originals& originals, const QString& destination)
{
    int atDestination = 0;
    std::map<QString, const QByteArray*> byName;
    for (const auto& [path, bytes] : originals) {
        const QString name = Paths::fileName(path);
        byName[name] = &bytes;
        bool found = pathExists(path) && readFile(path) == bytes;
        const QString area = Paths::join(Paths::parent(path), QStringLiteral(".vantelor-move-recovery"));
        for (const QString& id : allNames(area)) {
            const QString kept = Paths::join(Paths::join(area, id), name);
            if (pathExists(kept) && readFile(kept) == bytes)
                found = true;
        }
        const QString placed = Paths::join(destination, name);
        if (pathExists(placed) && readFile(placed) == bytes) {
            found = true;
            ++atDestination;
        }
        EXPECT_TRUE(found) << "lost: " << Paths::displayText(path).toStdString();
    }
    for (const QString& name : visibleNames(destination)) {
        const auto original = byName.find(name);
        if (original == byName.end())
            continue;
        EXPECT_EQ(readFile(Paths::join(destination, name)), *original->second)
            << "a destination name holds other bytes: " << Paths::displayText(name).toStdString();
    }
    return atDestination;
}

FailingFileSystem::FailingFileSystem(Call call, int occurrence, int error, bool persistent)
    : m_call(call), m_occurrence(occurrence), m_error(error), m_persistent(persistent)
{
}

const char* FailingFileSystem::callName(Call call)
{
    switch (call) {
    case Call::copy: return "copy";
    case Call::rename: return "rename";
    case Call::remove: return "remove";
    case Call::createFolder: return "createFolder";
    case Call::removeFolder: return "removeFolder";
    case Call::writeNewFile: return "writeNewFile";
    case Call::sync: return "sync";
    }
    return "?";
}

std::optional<Status> FailingFileSystem::intercept(Call call, const QString& path)
{
    const int n = ++m_counts[int(call)];
    if (beforeCall)
        beforeCall(call, n, path);
    if (m_call && *m_call == call && (n == m_occurrence || (m_persistent && n > m_occurrence))) {
        m_fired = true;
        return Status(SystemError(m_error, path));
    }
    return std::nullopt;
}

Status FailingFileSystem::copyFile(const QString& from, const QString& to)
{
    if (auto failed = intercept(Call::copy, to))
        return *failed;
    return TransferFileSystem::copyFile(from, to);
}

Status FailingFileSystem::renameExclusive(const QString& from, const QString& to)
{
    if (auto failed = intercept(Call::rename, to))
        return *failed;
    return TransferFileSystem::renameExclusive(from, to);
}

Status FailingFileSystem::removeFile(const QString& path)
{
    if (auto failed = intercept(Call::remove, path))
        return *failed;
    return TransferFileSystem::removeFile(path);
}

Status FailingFileSystem::createFolder(const QString& path)
{
    if (auto failed = intercept(Call::createFolder, path))
        return *failed;
    return TransferFileSystem::createFolder(path);
}

Status FailingFileSystem::removeFolder(const QString& path)
{
    if (auto failed = intercept(Call::removeFolder, path))
        return *failed;
    return TransferFileSystem::removeFolder(path);
}

Status FailingFileSystem::writeNewFile(const QString& path, const QByteArray& bytes)
{
    if (auto failed = intercept(Call::writeNewFile, path))
        return *failed;
    // As the real call, without its fsync.
    const int fd = ::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return SystemError::fromErrno(path);
    const bool written = ::write(fd, bytes.constData(), size_t(bytes.size())) == bytes.size();
    ::close(fd);
    if (!written)
        return SystemError(EIO, path);
    return Done{};
}

Status FailingFileSystem::sync(const QString& path)
{
    if (auto failed = intercept(Call::sync, path))
        return *failed;
    return Done{};
}

} // namespace vantelor::test
