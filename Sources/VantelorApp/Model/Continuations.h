#pragma once

#include <type_traits>

#include <QFuture>
#include <QMetaObject>
#include <QObject>

namespace vantelor {

// Continues with `body` on the context's thread once the future has its answer, the Qt way, but
// from an event of its own: with Qt 6.4 a continuation that attaches the next continuation while
// it runs (the next scan batch, the next sidecar of a save pass) can deadlock inside QFuture.
// A cancelled future's body never runs. Whoever may cancel the future later keeps the returned
// continuation as long as the future: Qt 6.4 cancels a chain through it and would otherwise reach
// a continuation already freed.
template <typename T, typename Body>
QFuture<void> whenReady(QFuture<T> future, QObject* context, Body body)
{
    if constexpr (std::is_void_v<T>) {
        return future.then(context, [context, body = std::move(body)]() mutable {
            QMetaObject::invokeMethod(context, std::move(body), Qt::QueuedConnection);
        });
    } else {
        return future.then(context, [context, body = std::move(body)](T value) mutable {
            QMetaObject::invokeMethod(
                context, [body = std::move(body), value = std::move(value)]() mutable { body(value); }, Qt::QueuedConnection);
        });
    }
}

// Finished work has nothing left to stop, and Qt 6.4 cancels even a finished future's chain of
// continuations, some of which may be freed by then.
template <typename T>
void cancelRunning(QFuture<T>& future)
{
    if (!future.isFinished())
        future.cancel();
}

} // namespace vantelor
