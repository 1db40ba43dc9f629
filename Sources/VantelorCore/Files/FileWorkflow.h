#pragma once

#include <memory>
#include <optional>

#include <QFuture>
#include <QStringList>

#include "Files/TransferFileSystem.h"
#include "Files/TransferPlan.h"
#include "Files/TransferReceipt.h"
#include "Files/TransferRecovery.h"
#include "Support/Result.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// Copies and moves photos with their associated files. A serialised service: planning and
// execution run one at a time on its own worker, never on the caller's thread; the caller awaits
// the future. It keeps nothing between calls. Nothing is ever written over, every copy is
// verified by its SHA-256, and an interrupted move leaves every original either home, in a
// recovery folder beside it, or verified at the destination.
class FileWorkflow {
public:
    // `fileSystem` is where every change is made; tests pass one that fails on purpose.
    explicit FileWorkflow(std::shared_ptr<TransferFileSystem> fileSystem = {});

    // The files that would travel, with their digests now (TransferPlanner). Cancelling the
    // future stops between files with Cancelled.
    QFuture<Result<TransferPlan>> plan(const QStringList& sources, const QString& destination, TransferKind kind);
    // Carries out a confirmed plan (TransferExecution). Once `stopRequested` (asked on the worker)
    // says yes, the execution stops at the next file and rolls back, failing with Cancelled.
    QFuture<Result<TransferReceipt>> execute(const TransferPlan& plan, CancelCheck stopRequested = {});

    // Puts right the transfers that stopped half-way in a folder, or with `dryRun` only says what
    // it found; with `purgeVerified` also deletes the originals kept by finished moves whose
    // destination copies still verify (TransferRecovery).
    QFuture<Result<RecoveryReport>> recover(const QString& folder, bool dryRun, bool purgeVerified = false);
    // A dry run only where TransferRecovery::mayNeedAttention says one could find something;
    // elsewhere an empty report at once.
    QFuture<Result<RecoveryReport>> lookForUnfinished(const QString& folder);

    // The SHA-256 of a regular file as 64 lower-case hexadecimal digits (FileDigest).
    static Result<QString> digest(const QString& path);

    // When set, an execution fails on purpose with "Injected transfer failure" right after that
    // many files have been placed, so that the recovery path can be exercised. The application
    // never sets it. Read when execute() is called.
    std::optional<int> failAfterCommitting() const;
    void setFailAfterCommitting(std::optional<int> count);

private:
    std::shared_ptr<TransferFileSystem> m_fileSystem;
    std::optional<int> m_failAfterCommitting;
    SerialExecutor m_executor;
};

} // namespace vantelor
