#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <QHash>
#include <QMutex>
#include <QSet>
#include <QThread>
#include <QThreadPool>

#include "Previews/PreviewCache.h"
#include "Previews/PreviewLoading.h"

namespace vantelor {

class PreviewRequest;

// Photo files to display-ready previews, with recent results kept in memory. Decoding runs on
// two queues: "com.vantelor.preview" (two at once) for what is on screen, large previews first,
// and "com.vantelor.prefetch" (one at a time, lowest priority) for warming the cache ahead of the
// user. Every request first passes a lookup worker ("com.vantelor.preview.lookup") that looks at
// the file as it is now and answers cache hits, so the caller's thread never touches the disk.
// Requests for the same file and size decode once: a later one joins the decode under way (and
// moves it to the display queue when it was only warming and has not started) instead of taking
// a thread to wait on it. A cancelled request ends at once.
// Callers may use it from any thread; results are values. The application owns one instance.
class PreviewService final : public PreviewLoading {
public:
    using Decoder = std::function<Result<PreviewResult>(const PhotoItem&, int dimension)>;

    static constexpr int minimumDimension = 32;
    static constexpr int maximumDimension = 8192;
    static constexpr int standardDimension = 2560;
    static constexpr int largePreviewThreshold = 800;
    static constexpr int countLimit = 400;
    static constexpr qint64 sharedCacheBytes = 512LL * 1024 * 1024;

    // An empty cacheDirectory means the user's: $XDG_CACHE_HOME (or ~/.cache) followed by
    // "com.vantelor.culling/previews-v1". Nothing is kept there; files that older versions left
    // (named by 64 hexadecimal digits) are deleted once, on the display queue. The decoder is
    // PreviewDecoder::decode unless a test brings its own.
    explicit PreviewService(qint64 cacheBytes, const QString& cacheDirectory = {}, Decoder decoder = {});
    ~PreviewService() override;
    PreviewService(const PreviewService&) = delete;
    PreviewService& operator=(const PreviewService&) = delete;

    // The application's instance: 512 MiB of previews, the user's cache directory. Made on first
    // use while a QCoreApplication exists and destroyed with it; using it outside that lifetime
    // is a programming error and stops the program.
    static PreviewService& shared();

    QFuture<Result<PreviewResult>> load(const PhotoItem& item, int dimension) override;
    // Warms the cache; the future may be ignored, or cancelled when the user turns away.
    QFuture<Result<PreviewResult>> prefetch(const PhotoItem& item, int dimension) override;
    // Warms the preview of the standard display size.
    QFuture<Result<PreviewResult>> prepare(const PhotoItem& item);
    void clearCache() override;

    // A cache hit is answered by the lookup worker without decoding.
    QFuture<Result<PreviewResult>> request(const PhotoItem& item, int dimension, bool warming);
    static Result<PreviewResult> decode(const PhotoItem& item, int dimension);

    static int clampDimension(int dimension);
    static QString defaultCacheDirectory();

    // What tests and benchmarks look at inside (PreviewServiceProbe.h); the app has no use for it.
    struct Probe;

private:
    friend struct Probe;

    // Keys being decoded or waiting for a decode thread.
    int decodeLockCount() const;
    // Blocks until every queue is empty.
    void waitForIdle();

    // One key's decode, from the first request that missed the cache until its result is out.
    struct Decoding {
        QList<std::shared_ptr<PreviewRequest>> waiters;
        QRunnable* queued = nullptr;   // while waiting for a thread; null once it runs
        QThreadPool* pool = nullptr;
    };

    void lookUp(const std::shared_ptr<PreviewRequest>& request, const PhotoItem& item, int dimension, bool warming);
    void decodeKey(const QString& key, const PhotoItem& item, int dimension);
    void watch(const std::shared_ptr<PreviewRequest>& request);
    static void removeStaleFiles(const QString& directory);

    PreviewCache m_cache;
    Decoder m_decoder;
    std::atomic<int> m_decodes{0};
    mutable QMutex m_locksGuard;
    QHash<QString, Decoding> m_decodings;

    // Receives the cancellation of callers' futures, so that a cancelled request ends at once
    // whatever thread the caller is on and whether or not that thread runs an event loop.
    QThread m_watchThread;
    QMutex m_watchersGuard;
    QSet<QObject*> m_watchers;

    // Last: destroyed first, waiting for running jobs while the rest still exists.
    QThreadPool m_backgroundQueue;
    QThreadPool m_queue;
    QThreadPool m_lookupQueue;
};

} // namespace vantelor
