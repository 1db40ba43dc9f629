#include "Files/TransferExecution.h"

#include <cerrno>

#include "Files/FileDigest.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

WorkflowError changedAfterConfirming()
{
    return WorkflowError::conflict(QStringLiteral("Los archivos han cambiado tras confirmar; operación detenida"));
}

WorkflowError recoveryUnsafe()
{
    return WorkflowError::invalid(QStringLiteral("La carpeta de recuperación no es segura"));
}

bool hasErrorNumber(const Failure& failure, int code)
{
    const auto* error = std::get_if<SystemError>(&failure);
    return error && error->code() == code;
}

bool isMissing(const Failure& failure)
{
    return hasErrorNumber(failure, ENOENT);
}

// A system error about a staged copy, told about the name the copy was meant for: the staging
// name means nothing to the user.
Failure aboutDestination(const Failure& failure, const QString& staged, const QString& destination)
{
    const auto* error = std::get_if<SystemError>(&failure);
    if (error && error->path() == staged)
        return SystemError(error->code(), destination);
    return failure;
}

} // namespace

TransferExecution::TransferExecution(const TransferPlan& plan, TransferFileSystem& fileSystem,
                                     std::optional<int> failAfterCommitting, CancelCheck stopRequested)
    : m_plan(plan), m_fileSystem(fileSystem), m_failAfterCommitting(failAfterCommitting),
      m_stopRequested(std::move(stopRequested))
{
}

Result<TransferReceipt> TransferExecution::run()
{
    m_staging = Paths::join(m_plan.destination, stagingPrefix() + m_plan.idText());
    // A staging folder that exists already is not ours to clean up: stop before touching it.
    if (const Status created = m_fileSystem.createFolder(m_staging); !created)
        return created.failure();

    std::optional<Failure> failure = openStaging();
    if (!failure)
        failure = stageCopies();
    if (!failure)
        failure = commitCopies();
    if (!failure && m_plan.kind == TransferKind::move)
        failure = moveSources();
    if (failure)
        return rollBack(*failure);

    removeStaging();
    TransferReceipt receipt;
    receipt.count = m_plan.items.size();
    for (const RecoveryFolder& folder : std::as_const(m_recoveryFolders))
        receipt.recoveryFolders.append(folder.path);
    return receipt;
}

std::optional<Failure> TransferExecution::openStaging()
{
    // The journal is on disk, and findable, before the first byte is copied.
    if (const Status written = m_fileSystem.writeNewFile(Paths::join(m_staging, journalName()), m_plan.journal()); !written)
        return written.failure();
    if (const Status synced = m_fileSystem.sync(m_staging); !synced)
        return synced.failure();
    if (const Status synced = m_fileSystem.sync(m_plan.destination); !synced)
        return synced.failure();
    return std::nullopt;
}

std::optional<Failure> TransferExecution::stageCopies()
{
    for (qsizetype n = 0; n < m_plan.items.size(); ++n) {
        if (stopping())
            return Cancelled{};
        const TransferItem& item = m_plan.items[n];
        if (!sourceUnchanged(item))
            return changedAfterConfirming();
        const Result<FileStat> existing = FileStat::read(item.destination);
        if (existing)
            return changedAfterConfirming();
        if (!isMissing(existing.failure()))
            return existing.failure();

        const QString staged = stagedCopy(n);
        m_stagedCount = n + 1;
        if (const Status copied = m_fileSystem.copyFile(item.source, staged); !copied)
            return aboutDestination(copied.failure(), staged, item.destination);
        const Result<QString> digest = FileDigest::sha256(staged);
        if (!digest || *digest != item.digest)
            return WorkflowError::io(QStringLiteral("No se pudo verificar la copia"));
    }
    return std::nullopt;
}

std::optional<Failure> TransferExecution::commitCopies()
{
    for (qsizetype n = 0; n < m_plan.items.size(); ++n) {
        if (stopping())
            return Cancelled{};
        const TransferItem& item = m_plan.items[n];
        if (!sourceUnchanged(item))
            return WorkflowError::conflict(QStringLiteral("El origen cambió durante la copia"));
        // The contents reach the disk before the name does: after a power cut a placed name
        // never holds an empty or partial file.
        const QString staged = stagedCopy(n);
        if (const Status synced = m_fileSystem.sync(staged); !synced)
            return aboutDestination(synced.failure(), staged, item.destination);
        if (!m_fileSystem.renameExclusive(staged, item.destination)) {
            return WorkflowError::io(QStringLiteral("No se puede colocar ")
                                     + Paths::displayText(Paths::fileName(item.destination))
                                     + QStringLiteral(" sin sobrescribir"));
        }
        m_committed.append(n);
        if (m_failAfterCommitting && *m_failAfterCommitting == m_committed.size())
            return WorkflowError::io(QStringLiteral("Injected transfer failure"));
    }
    // The placed names are on disk before any source leaves its folder.
    if (const Status synced = m_fileSystem.sync(m_plan.destination); !synced)
        return synced.failure();
    return std::nullopt;
}

std::optional<Failure> TransferExecution::moveSources()
{
    QStringList sourceFolders;
    for (qsizetype n = 0; n < m_plan.items.size(); ++n) {
        if (stopping())
            return Cancelled{};
        const TransferItem& item = m_plan.items[n];
        if (!sourceUnchanged(item))
            return WorkflowError::conflict(QStringLiteral("El origen cambió antes de mover"));
        const Result<QString> recovery = recoveryFolderFor(item.source);
        if (!recovery)
            return recovery.failure();

        const QString kept = Paths::join(*recovery, Paths::fileName(item.source));
        if (!m_fileSystem.renameExclusive(item.source, kept))
            return WorkflowError::io(QStringLiteral("No se pudo conservar la copia de recuperación"));
        m_moved.append(MovedItem{n, kept});
        if (!sourceFolders.contains(Paths::parent(item.source)))
            sourceFolders.append(Paths::parent(item.source));
        // Someone writing the file while it moved would leave us holding a copy of other bytes.
        const Result<QString> digest = FileDigest::sha256(kept);
        if (!digest || *digest != item.digest)
            return WorkflowError::conflict(QStringLiteral("El origen cambió al mover; restaurando"));
    }
    // Every placed copy is already on disk; these only make the departures durable sooner.
    for (const RecoveryFolder& folder : std::as_const(m_recoveryFolders))
        (void)m_fileSystem.sync(folder.path);
    for (const QString& folder : std::as_const(sourceFolders))
        (void)m_fileSystem.sync(folder);
    return std::nullopt;
}

Result<QString> TransferExecution::recoveryFolderFor(const QString& source)
{
    const QString area = Paths::join(Paths::parent(source), recoveryAreaName());
    const QString folder = Paths::join(area, m_plan.idText());
    for (const RecoveryFolder& known : std::as_const(m_recoveryFolders))
        if (known.path == folder)
            return folder;

    // A link or a file in place of the area could send the originals anywhere.
    bool createdArea = false;
    const Result<FileStat> areaStat = FileStat::read(area);
    if (areaStat && !areaStat->isDirectory())
        return recoveryUnsafe();
    if (!areaStat) {
        if (!isMissing(areaStat.failure()))
            return areaStat.failure();
        if (const Status created = m_fileSystem.createFolder(area); !created)
            return created.failure();
        createdArea = true;
    }
    const Status created = m_fileSystem.createFolder(folder);
    if (created) {
        m_recoveryFolders.append(RecoveryFolder{folder, true, createdArea});
        if (const Status written = m_fileSystem.writeNewFile(Paths::join(folder, journalName()), m_plan.journal()); !written)
            return written.failure();
        return folder;
    }
    if (!hasErrorNumber(created.failure(), EEXIST)) {
        if (createdArea)
            (void)m_fileSystem.removeFolder(area);
        return created.failure();
    }
    const Result<FileStat> folderStat = FileStat::read(folder);
    if (!folderStat)
        return folderStat.failure();
    if (!folderStat->isDirectory())
        return recoveryUnsafe();
    m_recoveryFolders.append(RecoveryFolder{folder, false, false});
    return folder;
}

Failure TransferExecution::rollBack(const Failure& cause)
{
    bool complete = true;
    for (auto moved = m_moved.crbegin(); moved != m_moved.crend(); ++moved) {
        if (!m_fileSystem.renameExclusive(moved->location, m_plan.items[moved->index].source))
            complete = false;
    }
    // Placed copies are removed only when every original is back where it was, and only while
    // they still hold our bytes: a file someone changed since may no longer be ours to delete.
    if (complete) {
        for (auto index = m_committed.crbegin(); index != m_committed.crend(); ++index) {
            const TransferItem& item = m_plan.items[*index];
            const Result<QString> digest = FileDigest::sha256(item.destination);
            if (!digest || *digest != item.digest || !m_fileSystem.removeFile(item.destination))
                complete = false;
        }
    }
    if (complete) {
        removeStaging();
        removeEmptyRecoveryFolders();
        return cause;
    }
    return WorkflowError::io(QStringLiteral("Operación interrumpida. Archivos de recuperación conservados en ")
                             + Paths::displayText(m_staging)
                             + QStringLiteral(" y en .vantelor-move-recovery del origen. ") + describe(cause));
}

void TransferExecution::removeStaging()
{
    // Only the names this run created; anything else found inside keeps the folder in place.
    (void)m_fileSystem.removeFile(Paths::join(m_staging, journalName()));
    // Items are committed in plan order, so the placed ones are the first m_committed.size().
    for (qsizetype n = m_committed.size(); n < m_stagedCount; ++n)
        (void)m_fileSystem.removeFile(stagedCopy(n));
    (void)m_fileSystem.removeFolder(m_staging);
}

void TransferExecution::removeEmptyRecoveryFolders()
{
    // After a complete rollback every original is home again: the recovery folders hold only
    // their journal, and a clean failure leaves no trace in the source folders.
    for (const RecoveryFolder& folder : std::as_const(m_recoveryFolders)) {
        if (!folder.createdFolder)
            continue;
        (void)m_fileSystem.removeFile(Paths::join(folder.path, journalName()));
        if (m_fileSystem.removeFolder(folder.path) && folder.createdArea)
            (void)m_fileSystem.removeFolder(Paths::parent(folder.path));
    }
}

bool TransferExecution::sourceUnchanged(const TransferItem& item) const
{
    // A source that vanished, became a link or cannot be read has changed as much as one whose
    // bytes differ.
    const Result<QString> digest = FileDigest::sha256(item.source);
    return digest && *digest == item.digest;
}

QString TransferExecution::stagedCopy(qsizetype index) const
{
    return Paths::join(m_staging, QStringLiteral("item-") + QString::number(index));
}

} // namespace vantelor
