#include "Previews/PreviewRequest.h"

#include <QRunnable>
#include <QThreadPool>

namespace vantelor {

PreviewRequest::PreviewRequest()
{
    QPromise<Result<PreviewResult>> promise;
    m_future = promise.future();
    promise.start();
    m_continuation.emplace(std::move(promise));
}

bool PreviewRequest::setOperation(QRunnable* operation, QThreadPool* pool)
{
    QMutexLocker lock(&m_mutex);
    if (m_cancelled)
        return false;
    m_operation = operation;
    m_pool = pool;
    return true;
}

bool PreviewRequest::begin()
{
    QMutexLocker lock(&m_mutex);
    m_operation = nullptr;
    return !m_cancelled && !m_future.isCanceled();
}

bool PreviewRequest::isCancelled() const
{
    QMutexLocker lock(&m_mutex);
    return m_cancelled || m_future.isCanceled();
}

void PreviewRequest::finish(const Result<PreviewResult>& outcome)
{
    std::optional<QPromise<Result<PreviewResult>>> promise;
    {
        QMutexLocker lock(&m_mutex);
        promise.swap(m_continuation);
    }
    if (!promise)
        return;
    if (!outcome.ok() && vantelor::isCancelled(outcome.failure()))
        promise->future().cancel();
    else
        promise->addResult(outcome);
    promise->finish();
}

void PreviewRequest::cancel()
{
    std::optional<QPromise<Result<PreviewResult>>> promise;
    QRunnable* taken = nullptr;
    {
        QMutexLocker lock(&m_mutex);
        m_cancelled = true;
        promise.swap(m_continuation);
        // The operation's begin() needs this mutex, so it cannot start (and be deleted by its
        // pool) while it is being taken back here.
        if (m_operation && m_pool && m_pool->tryTake(m_operation))
            taken = m_operation;
        m_operation = nullptr;
    }
    // A runnable taken back from its pool belongs to us now.
    delete taken;
    if (promise) {
        promise->future().cancel();
        promise->finish();
    }
}

} // namespace vantelor
