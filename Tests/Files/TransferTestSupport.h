#pragma once

#include <map>
#include <optional>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include "Files/TransferFileSystem.h"
#include "Support/CliRunner.h"

namespace vantelor::test {

// Deterministic contents of a given length, different for each seed.
QByteArray patternBytes(qsizetype size, int seed);

// Every file under a folder (hidden ones included), by path relative to it, with its bytes.
// Symbolic links are listed as "-> target".
std::map<QString, QByteArray> treeContents(const QString& folder);
// The visible entries of a folder, by name.
QStringList visibleNames(const QString& folder);
QStringList allNames(const QString& folder);
bool pathExists(const QString& path);

// What a test knows about the originals of a transfer: path and bytes.
using Originals = std::map<QString, QByteArray>;
Originals originalsOf(const QStringList& paths);

// The promise that nothing is lost, checked after anything at all happened: every original's
// bytes are at its own path, in a ".vantelor-move-recovery/<id>/" folder beside it, or under
// its name in the destination; and every visible file of the destination holds exactly the
// bytes of the original of that name. Returns the number of originals found at the destination.
int expectNothingLost(const Originals& originals, const QString& destination);

// The real file system calls, except that one chosen call fails with a chosen error number, once
// or from then on. Syncs are skipped unless they are the chosen call: these tests look at what a
// running process sees, not at what survives a power cut, and they run thousands of transfers.
class FailingFileSystem : public TransferFileSystem {
public:
    enum class Call { copy, rename, remove, createFolder, removeFolder, writeNewFile, sync };
    static const char* callName(Call call);

    FailingFileSystem() = default;
    FailingFileSystem(Call call, int occurrence, int error, bool persistent);

    Status copyFile(const QString& from, const QString& to) override;
    Status renameExclusive(const QString& from, const QString& to) override;
    Status removeFile(const QString& path) override;
    Status createFolder(const QString& path) override;
    Status removeFolder(const QString& path) override;
    Status writeNewFile(const QString& path, const QByteArray& bytes) override;
    Status sync(const QString& path) override;

    // How many times each kind of call was made.
    int count(Call call) const { return m_counts[int(call)]; }
    bool fired() const { return m_fired; }
    // Called just before the n-th (1-based) call of a kind; a test changes the world here.
    std::function<void(Call, int, const QString&)> beforeCall;

private:
    std::optional<Status> intercept(Call call, const QString& path);

    std::optional<Call> m_call;
    int m_occurrence = 0;
    int m_error = 0;
    bool m_persistent = false;
    bool m_fired = false;
    int m_counts[7] = {};
};

} // namespace vantelor::test
