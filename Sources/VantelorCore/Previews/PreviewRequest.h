#pragma once

#include <optional>

#include <QFuture>
#include <QMutex>
#include <QPromise>

#include "Previews/PreviewResult.h"
#include "Support/Result.h"

class QRunnable;
class QThreadPool;

namespace vantelor {

// One cache miss on its way through a work queue: the caller's promise, the queued operation
// and whether the caller gave up. The promise is fulfilled exactly once, by whichever comes
// first: the operation finishing or the caller cancelling. Shared between the caller's side and
// the operation; every member is guarded by the request's own mutex, and the promise is always
// completed outside it.
class PreviewRequest {
public:
    PreviewRequest();

    QFuture<Result<PreviewResult>> future() const { return m_future; }

    // Records the queued operation, which cancel() takes back out of its pool if it has not
    // started. False when the request was cancelled already: the operation must not be queued.
    bool setOperation(QRunnable* operation, QThreadPool* pool);
    // Called first by the operation: it is running now and cannot be taken back. False when
    // the request was cancelled before it started: the operation does nothing.
    bool begin();
    // The caller gave up (its future was cancelled) or the service stops.
    bool isCancelled() const;

    // Delivers the outcome, unless the promise was already completed.
    void finish(const Result<PreviewResult>& outcome);
    // Ends the caller's wait at once with a cancelled future; an operation that has not
    // started is removed from its queue, one that runs goes on and still fills the cache.
    void cancel();

private:
    mutable QMutex m_mutex;
    std::optional<QPromise<Result<PreviewResult>>> m_continuation;
    QFuture<Result<PreviewResult>> m_future;
    QRunnable* m_operation = nullptr;  // only while queued and not started
    QThreadPool* m_pool = nullptr;
    bool m_cancelled = false;
};

} // namespace vantelor
