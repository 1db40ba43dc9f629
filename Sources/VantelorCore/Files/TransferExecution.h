#pragma once

#include <optional>

#include <QList>
#include <QStringList>

#include "Files/TransferFileSystem.h"
#include "Files/TransferPlan.h"
#include "Files/TransferReceipt.h"
#include "Support/Result.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// One run of a confirmed plan, in four stages: open a staging folder with the journal inside the
// destination; copy every file there and verify each copy; place the copies under their real
// names; for a move, take each source out of its folder into a recovery folder beside it. Every
// source is checked against its planned digest before each stage touches it. A failure undoes
// what was done in reverse order; whatever cannot be undone stays in the staging and recovery
// folders, which the error message names. At no moment is a source gone without a verified copy
// under its destination name, and no file is ever written over.
class TransferExecution {
public:
    // `stopRequested` is asked before each file of each stage; once it says yes, the run stops
    // there and rolls back, failing with Cancelled.
    TransferExecution(const TransferPlan& plan, TransferFileSystem& fileSystem, std::optional<int> failAfterCommitting,
                      CancelCheck stopRequested = {});

    Result<TransferReceipt> run();

    static QString stagingPrefix() { return QStringLiteral(".vantelor-transfer-"); }
    static QString recoveryAreaName() { return QStringLiteral(".vantelor-move-recovery"); }
    static QString journalName() { return QStringLiteral("transaction.json"); }

private:
    struct MovedItem {
        qsizetype index;
        QString location;
    };
    struct RecoveryFolder {
        QString path;
        bool createdFolder;
        bool createdArea;
    };

    std::optional<Failure> openStaging();
    std::optional<Failure> stageCopies();
    std::optional<Failure> commitCopies();
    std::optional<Failure> moveSources();
    Result<QString> recoveryFolderFor(const QString& source);
    Failure rollBack(const Failure& cause);
    void removeStaging();
    void removeEmptyRecoveryFolders();

    bool sourceUnchanged(const TransferItem& item) const;
    bool stopping() const { return m_stopRequested && m_stopRequested(); }
    QString stagedCopy(qsizetype index) const;

    const TransferPlan& m_plan;
    TransferFileSystem& m_fileSystem;
    const std::optional<int> m_failAfterCommitting;
    const CancelCheck m_stopRequested;
    QString m_staging;
    qsizetype m_stagedCount = 0;
    QList<qsizetype> m_committed;
    QList<MovedItem> m_moved;
    QList<RecoveryFolder> m_recoveryFolders;
};

} // namespace vantelor
