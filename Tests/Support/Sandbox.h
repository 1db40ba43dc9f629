#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

namespace vantelor::test {

// A temporary folder for one test, removed afterwards. Names are paths in Vantelor's own form
// (see Paths), so a name with bytes that are not UTF-8 can be created and found again.
class Sandbox {
public:
    Sandbox();
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

} // namespace vantelor::test
