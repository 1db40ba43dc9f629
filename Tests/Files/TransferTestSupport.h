#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>

#include <gtest/gtest.h>

#include "Files/FileWorkflow.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

// Runs a plan through a workflow on the given file system (the real one by default).
Result<TransferReceipt> execute(const TransferPlan& plan, std::shared_ptr<TransferFileSystem> fileSystem = {}, std::optional<int> failAfter = {});

// Deterministic contents of a given length, different for each seed.
QByteArray patternBytes(qsizetype size, int seed);

// What a test knows about the originals of a transfer: path and bytes.
using Originals = std::map<QString, QByteArray>;

// The promise that nothing is lost, checked after anything at all happened: every original's
// bytes are at its own path, in a ".vantelor-move-recovery/<id>/" folder beside it, or under
// its name in the destination; and every visible file of the destination holds exactly the
// bytes of the original of that name. Returns the number of originals found at the destination.
int expectNothingLost(const Originals& originals, const QString& destination);

// The real file system calls, except that one chosen call fails with a chosen error number, once
// or from then on. Syncs are skipped unless they are the chosen call: these tests look at what a
// running process sees, not at what survives a power cut, and they run hundreds of transfers.
class FailingFileSystem : public TransferFileSystem {
public:
    enum class Call { copy, rename, remove, createFolder, removeFolder, writeNewFile, sync };
    static const char* callName(Call call)
    {
        return std::array{"copy", "rename", "remove", "createFolder", "removeFolder", "writeNewFile", "sync"}[size_t(call)];
    }

    FailingFileSystem() = default;
    FailingFileSystem(Call call, int occurrence, int error, bool persistent)
        : m_call(call), m_occurrence(occurrence), m_error(error), m_persistent(persistent) {}
    // Fails nothing; runs `change` just before the n-th call of a kind.
    FailingFileSystem(Call at, int n, const std::function<void()>& change)
        : beforeCall([=](Call call, int count, const QString&) { if (call == at && count == n) change(); }) {}

    Status copyFile(const QString& from, const QString& to) override { return pass(Call::copy, to, [&] { return TransferFileSystem::copyFile(from, to); }); }
    Status renameExclusive(const QString& from, const QString& to) override { return pass(Call::rename, to, [&] { return TransferFileSystem::renameExclusive(from, to); }); }
    Status removeFile(const QString& path) override { return pass(Call::remove, path, [&] { return TransferFileSystem::removeFile(path); }); }
    Status createFolder(const QString& path) override { return pass(Call::createFolder, path, [&] { return TransferFileSystem::createFolder(path); }); }
    Status removeFolder(const QString& path) override { return pass(Call::removeFolder, path, [&] { return TransferFileSystem::removeFolder(path); }); }
    Status writeNewFile(const QString& path, const QByteArray& bytes) override { return pass(Call::writeNewFile, path, [&] { return TransferFileSystem::writeNewFile(path, bytes); }); }
    Status sync(const QString& path) override { return pass(Call::sync, path, [] { return Status(Done{}); }); }

    bool fired() const { return m_fired; }
    // Called just before the n-th (1-based) call of a kind; a test changes the world here.
    std::function<void(Call, int, const QString&)> beforeCall;

private:
    // Counts the call, lets the test act, then fails it or makes the real one.
    Status pass(Call call, const QString& path, const std::function<Status()>& real);

    std::optional<Call> m_call;
    int m_occurrence = 0;
    int m_error = 0;
    bool m_persistent = false;
    bool m_fired = false;
    int m_counts[7] = {};
};

// A folder "src" of NEF photos (DSC_0001.NEF …), each with a ".xmp" sidecar and, with twins, every
// second one with a JPEG as well, and an empty folder "dest" beside it; in a folder made from
// `where` (a QTemporaryDir template) when given.
struct Shoot {
    explicit Shoot(int count = 2, qsizetype photoBytes = 3000, bool twins = false, const QString& where = {});
    Sandbox box;
    QString src = box.mkdir(QStringLiteral("src"));
    QString dest = box.mkdir(QStringLiteral("dest"));
    QStringList photos;
    Originals originals;

    // Plans the photos (or the selected ones) into dest.
    TransferPlan plan(TransferKind kind, const QStringList& selected = {}) const;
    QString staging(const TransferPlan& plan) const { return Paths::join(dest, QStringLiteral(".vantelor-transfer-") + plan.idText()); }
};

} // namespace vantelor::test
