#include "Library/FolderIndexer.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <unistd.h>

#include "Support/FileStat.h"
#include "Support/Paths.h"

namespace vantelor {

FolderIndexer::FolderIndexer(QString folder, int batchSize)
    : m_folder(std::move(folder)), m_batchSize(batchSize < 2 ? 1 : batchSize)
{
}

FolderIndexer::~FolderIndexer() = default;

QFuture<Result<ScanSnapshot>> FolderIndexer::nextBatch()
{
    return m_executor.run([this](const CancelCheck& cancelled) { return nextBatchNow(cancelled); });
}

QFuture<void> FolderIndexer::cancel()
{
    return m_executor.run([this](const CancelCheck&) { cancelNow(); });
}

void FolderIndexer::cancelNow()
{
    m_cancelled = true;
    m_enumerator.reset();
}

Result<ScanSnapshot> FolderIndexer::nextBatchNow(const CancelCheck& cancelled)
{
    if ((cancelled && cancelled()) || m_cancelled)
        return Cancelled{};

    if (!m_started) {
        // A folder reached through a symbolic link is still the user's folder: follow it.
        const auto st = FileStat::read(m_folder, /*followLinks=*/true);
        if (!st || !st->isDirectory())
            return BrowserError::folderUnavailable(m_folder);
        const QByteArray native = Paths::encode(m_folder);
        if (access(native.constData(), R_OK | X_OK) != 0)
            return BrowserError::folderUnavailable(m_folder);
        auto failures = m_failures;
        m_enumerator = DirectoryEnumerator::open(m_folder, [failures](int) { failures->increment(); });
        if (!m_enumerator)
            return BrowserError::folderUnavailable(m_folder);
        m_started = true;
    }

    QList<PhotoItem> batch;
    if (!m_finished) {
        for (int turn = 0; turn < m_batchSize; ++turn) {
            if (cancelled && cancelled())
                return Cancelled{};
            std::optional<QString> entry = m_enumerator ? m_enumerator->next() : std::nullopt;
            if (!entry) {
                m_finished = true;
                m_enumerator.reset();
                break;
            }
            auto inspected = PhotoItem::inspect(*entry);
            if (!inspected) {
                if (m_skipped == std::numeric_limits<int>::max())
                    std::abort();
                ++m_skipped;
            } else if (inspected->has_value()) {
                batch.append(std::move(**inspected));
            }
        }
    }

    std::stable_sort(batch.begin(), batch.end(), PhotoItem::ordered);
    m_sorted = merge(std::move(m_sorted), batch);
    return ScanSnapshot{m_sorted, m_finished, m_skipped + m_failures->value()};
}

QList<PhotoItem> FolderIndexer::merge(QList<PhotoItem> existing, const QList<PhotoItem>& batch)
{
    // The same result as a two-way merge from the front (a batch item goes before an existing
    // one only when it is strictly ordered before it), computed from the back: each batch item
    // finds its place by binary search and the existing items after it move up in one block.
    // A batch holds at most a few hundred items while the list can hold tens of thousands, so
    // this costs a few comparisons per new item instead of one per listed item.
    if (batch.isEmpty())
        return existing;
    qsizetype remaining = existing.size();
    existing.resize(existing.size() + batch.size());
    auto begin = existing.begin();
    qsizetype write = existing.size();
    for (qsizetype j = batch.size() - 1; j >= 0; --j) {
        const PhotoItem& item = batch.at(j);
        const auto place = std::upper_bound(begin, begin + remaining, item, PhotoItem::ordered);
        const qsizetype at = place - begin;
        std::move_backward(place, begin + remaining, begin + write);
        write -= remaining - at;
        remaining = at;
        existing[--write] = item;
    }
    return existing;
}

} // namespace vantelor
