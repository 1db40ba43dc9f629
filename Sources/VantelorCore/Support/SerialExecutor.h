#pragma once

#include <functional>

#include <QFuture>
#include <QPromise>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

namespace vantelor {

// Asked by long work between steps: true once the caller's future was cancelled.
using CancelCheck = std::function<bool()>;

// The one worker thread of a serialised service: operations run one at a time, in the order they
// were submitted, off the GUI thread. A service declares its executor as its last member, so that
// the executor is destroyed first and waits for the running operation while the rest still lives.
class SerialExecutor {
public:
    explicit SerialExecutor(const QString& name);
    ~SerialExecutor();
    SerialExecutor(const SerialExecutor&) = delete;
    SerialExecutor& operator=(const SerialExecutor&) = delete;

    // Runs work(cancelCheck) on the worker. Cancelling the returned future makes cancelCheck()
    // return true for the running operation; one cancelled before it started never runs.
    template <typename Work>
    auto run(Work work) -> QFuture<std::invoke_result_t<Work, const CancelCheck&>>
    {
        using T = std::invoke_result_t<Work, const CancelCheck&>;
        return QtConcurrent::run(&m_pool, [work = std::move(work)](QPromise<T>& promise) mutable {
            const CancelCheck cancelled = [&promise] { return promise.isCanceled(); };
            if constexpr (std::is_void_v<T>)
                work(cancelled);
            else
                promise.addResult(work(cancelled));
        });
    }

    // Blocks until every submitted operation has finished.
    void drain();

private:
    QThreadPool m_pool;
};

} // namespace vantelor
