#pragma once

#include <QHash>
#include <QList>
#include <QPromise>

#include "Previews/PreviewLoading.h"

namespace vantelor::test {

// A preview loader that answers only when the test says so, and records every request and
// whether its caller cancelled it.
class FakePreviewLoader final : public PreviewLoading {
public:
    struct Request {
        QString url;
        int dimension = 0;
        std::shared_ptr<QPromise<Result<PreviewResult>>> promise;
        QFuture<Result<PreviewResult>> future;
    };

    QFuture<Result<PreviewResult>> load(const PhotoItem& item, int dimension) override
    {
        auto promise = std::make_shared<QPromise<Result<PreviewResult>>>();
        promise->start();
        Request request{item.url, dimension, promise, promise->future()};
        m_requests.append(request);
        return request.future;
    }

    QList<Request>& requests() { return m_requests; }

    static void answer(Request& request, QImage image)
    {
        PreviewResult result;
        result.image = std::move(image);
        request.promise->addResult(Result<PreviewResult>(result));
        request.promise->finish();
    }
    static void fail(Request& request)
    {
        request.promise->addResult(Result<PreviewResult>(BrowserError::unreadableImage(request.url)));
        request.promise->finish();
    }

private:
    QList<Request> m_requests;
};

} // namespace vantelor::test
