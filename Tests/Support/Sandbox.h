#pragma once

#include <functional>
#include <map>
#include <optional>
#include <vector>

#include <QByteArray>
#include <QStringList>
#include <QString>
#include <QTemporaryDir>

namespace vantelor::test {

// A temporary folder for one test, removed afterwards. Names are paths in Vantelor's own form
// (see Paths), so a name with bytes that are not UTF-8 can be created and found again.
class Sandbox {
public:
    // In the system's temporary folder, or where a QTemporaryDir template says.
    explicit Sandbox(const QString& where = {});
    // Removes the folder with the system's own calls, so that names which are not UTF-8 (which
    // QTemporaryDir cannot name) and read-only folders go too.
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    const QString& path() const { return m_path; }
    QString file(const QString& relative) const;

    // Writes a file (creating parent folders); returns its path.
    QString write(const QString& relative, const QByteArray& bytes) const;
    QString mkdir(const QString& relative) const;
    QString symlink(const QString& target, const QString& relative) const;
    QByteArray read(const QString& relative) const;
    bool exists(const QString& relative) const;

private:
    QTemporaryDir m_dir;
    QString m_path;
};

// Reads and writes files by Vantelor path (bytes preserved); used by tests of every subsystem.
QByteArray readFile(const QString& path);
void writeFile(const QString& path, const QByteArray& bytes);

// The entries of a folder by name, sorted: the visible ones, or all of them.
QStringList visibleNames(const QString& folder);
QStringList allNames(const QString& folder);
bool pathExists(const QString& path);
// Every file under a folder (hidden ones included), by path relative to it, with its bytes;
// folders end in "/", symbolic links are listed as "-> target".
std::map<QString, QByteArray> treeContents(const QString& folder);

// A small tmpfs of its own on a folder, for a full disk or a read-only volume; mounting needs
// root, so tests check mounted() and skip without it. Unmounted at the end.
class SmallVolume {
public:
    SmallVolume(const QString& path, const char* options);
    ~SmallVolume();
    SmallVolume(const SmallVolume&) = delete;
    SmallVolume& operator=(const SmallVolume&) = delete;
    bool mounted() const { return m_mounted; }
    bool remountReadOnly();

private:
    QString m_path;
    bool m_mounted = false;
};
// Writes a "filler" file in the folder until its volume is full.
void fillUp(const QString& folder);
// Runs `write` with new files limited to `bytes`, so that a write fails part-way as on a full
// disk, without root or a volume of its own.
void underFileSizeLimit(qint64 bytes, const std::function<void()>& write);

// Environment variables (HOME, XDG_*, TZ) set for one test and put back as they were.
class EnvironmentGuard {
public:
    EnvironmentGuard() = default;
    ~EnvironmentGuard();
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;
    // Nothing unsets the variable.
    void set(const char* name, const std::optional<QByteArray>& value);

private:
    std::vector<std::pair<QByteArray, std::optional<QByteArray>>> m_saved;
};

} // namespace vantelor::test
