#include "Files/FileWorkflow.h"

#include "Files/FileDigest.h"
#include "Files/TransferExecution.h"
#include "Files/TransferPlanner.h"

namespace vantelor {

FileWorkflow::FileWorkflow(std::shared_ptr<TransferFileSystem> fileSystem)
    : m_fileSystem(fileSystem ? std::move(fileSystem) : std::make_shared<TransferFileSystem>()),
      m_executor(QStringLiteral("com.vantelor.files"))
{
}

QFuture<Result<TransferPlan>> FileWorkflow::plan(const QStringList& sources, const QString& destination,
                                                 TransferKind kind)
{
    return m_executor.run([sources, destination, kind](const CancelCheck& cancelled) {
        return TransferPlanner::plan(sources, destination, kind, cancelled);
    });
}

QFuture<Result<TransferReceipt>> FileWorkflow::execute(const TransferPlan& plan, CancelCheck stopRequested)
{
    return m_executor.run([plan, fileSystem = m_fileSystem, failAfter = m_failAfterCommitting,
                           stop = std::move(stopRequested)](const CancelCheck&) {
        return TransferExecution(plan, *fileSystem, failAfter, stop).run();
    });
}

QFuture<Result<RecoveryReport>> FileWorkflow::recover(const QString& folder, bool dryRun, bool purgeVerified)
{
    return m_executor.run([folder, dryRun, purgeVerified, fileSystem = m_fileSystem](const CancelCheck&) {
        return TransferRecovery(*fileSystem, dryRun, purgeVerified).run(folder);
    });
}

QFuture<Result<RecoveryReport>> FileWorkflow::lookForUnfinished(const QString& folder)
{
    return m_executor.run([folder, fileSystem = m_fileSystem](const CancelCheck&) -> Result<RecoveryReport> {
        if (!TransferRecovery::mayNeedAttention(folder))
            return RecoveryReport{};
        return TransferRecovery(*fileSystem, true, false).run(folder);
    });
}

Result<QString> FileWorkflow::digest(const QString& path)
{
    return FileDigest::sha256(path);
}

std::optional<int> FileWorkflow::failAfterCommitting() const
{
    return m_failAfterCommitting;
}

void FileWorkflow::setFailAfterCommitting(std::optional<int> count)
{
    m_failAfterCommitting = count;
}

} // namespace vantelor
