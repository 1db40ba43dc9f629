#pragma once

#include <memory>
#include <optional>

#include <QList>
#include <QString>

#include "Library/DirectoryEnumerator.h"
#include "Library/EnumerationFailures.h"
#include "Library/FolderIndexing.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// Lists the photos of one folder, one level deep, in batches, so that a folder of thousands of
// raw files shows its first photos at once. A serialised service: its operations run one at a
// time on its own worker, and the state below is touched only there.
class FolderIndexer final : public FolderIndexing {
public:
    // A batch size below 2 is taken as 1. Nothing touches the file system yet.
    FolderIndexer(QString folder, int batchSize);
    ~FolderIndexer() override;

    QFuture<Result<ScanSnapshot>> nextBatch() override;
    QFuture<void> cancel() override;

    // Merges a sorted batch into a sorted list; on equal keys the element already listed goes
    // first.
    static QList<PhotoItem> merge(QList<PhotoItem> existing, const QList<PhotoItem>& batch);

    const QString& folder() const { return m_folder; }
    int batchSize() const { return m_batchSize; }

    // Tests and benchmarks run a batch on their own thread (FolderIndexerProbe.h).
    struct Probe;

private:
    friend struct Probe;

    // The work of nextBatch and cancel, on the worker.
    Result<ScanSnapshot> nextBatchNow(const CancelCheck& cancelled);
    void cancelNow();

    QString m_folder;
    int m_batchSize;
    std::optional<DirectoryEnumerator> m_enumerator;
    QList<PhotoItem> m_sorted;
    bool m_started = false;
    bool m_cancelled = false;
    bool m_finished = false;
    int m_skipped = 0;
    // Shared with the enumerator's error callback.
    std::shared_ptr<EnumerationFailures> m_failures = std::make_shared<EnumerationFailures>();
    SerialExecutor m_executor{QStringLiteral("com.vantelor.folder-indexer")};
};

} // namespace vantelor
