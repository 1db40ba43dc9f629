#include "Previews/PreviewService.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <QFutureWatcher>
#include <QRunnable>

#include "Previews/PreviewDecoder.h"
#include "Previews/PreviewRequest.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

// Queue priorities: the order of waiting work only; running work is never pre-empted.
constexpr int veryLowPriority = -1000;
constexpr int normalPriority = 0;
constexpr int veryHighPriority = 1000;

bool isStaleCacheName(const char* name)
{
    int length = 0;
    for (; name[length] != '\0'; ++length)
        if (!isxdigit(uchar(name[length])) || length >= 64)
            return false;
    return length == 64;
}

QFuture<Result<PreviewResult>> readyFuture(Result<PreviewResult> result)
{
    QPromise<Result<PreviewResult>> promise;
    QFuture<Result<PreviewResult>> future = promise.future();
    promise.start();
    promise.addResult(std::move(result));
    promise.finish();
    return future;
}

} // namespace

PreviewService::PreviewService(qint64 cacheBytes, const QString& cacheDirectory, Decoder decoder)
    : m_cache(cacheBytes, countLimit)
    , m_decoder(decoder ? std::move(decoder) : Decoder(&PreviewDecoder::decode))
{
    m_watchThread.setObjectName(QStringLiteral("com.vantelor.preview.watch"));
    m_watchThread.start();

    m_queue.setObjectName(QStringLiteral("com.vantelor.preview"));
    m_queue.setMaxThreadCount(2);
    m_queue.setThreadPriority(QThread::NormalPriority);
    m_backgroundQueue.setObjectName(QStringLiteral("com.vantelor.prefetch"));
    m_backgroundQueue.setMaxThreadCount(1);
    m_backgroundQueue.setThreadPriority(QThread::LowPriority);

    const QString directory = cacheDirectory.isEmpty() ? defaultCacheDirectory() : Paths::clean(cacheDirectory);
    m_queue.start([directory] { removeStaleFiles(directory); });
}

PreviewService::~PreviewService()
{
    // Work not yet started is dropped (its callers see a cancelled future); running work ends.
    m_queue.clear();
    m_backgroundQueue.clear();
    m_queue.waitForDone();
    m_backgroundQueue.waitForDone();
    m_watchThread.quit();
    m_watchThread.wait();
    // The watch thread has ended, so watchers still alive can be deleted from here.
    QMutexLocker lock(&m_watchersGuard);
    qDeleteAll(m_watchers);
    m_watchers.clear();
}

PreviewService& PreviewService::shared()
{
    static PreviewService instance(sharedCacheBytes);
    return instance;
}

QFuture<Result<PreviewResult>> PreviewService::load(const PhotoItem& item, int dimension)
{
    return request(item, dimension, false);
}

QFuture<Result<PreviewResult>> PreviewService::prefetch(const PhotoItem& item, int dimension)
{
    return request(item, dimension, true);
}

QFuture<Result<PreviewResult>> PreviewService::prepare(const PhotoItem& item)
{
    return request(item, standardDimension, true);
}

void PreviewService::clearCache()
{
    m_cache.clear();
}

int PreviewService::clampDimension(int dimension)
{
    return std::clamp(dimension, minimumDimension, maximumDimension);
}

QString PreviewService::defaultCacheDirectory()
{
    QString base = Paths::decode(qgetenv("XDG_CACHE_HOME"));
    // The XDG rules ignore a relative value.
    if (!base.startsWith(QLatin1Char('/')))
        base = Paths::join(Paths::decode(qgetenv("HOME")), QStringLiteral(".cache"));
    return Paths::clean(base + QStringLiteral("/com.vantelor.culling/previews-v1"));
}

Result<PreviewResult> PreviewService::decode(const PhotoItem& item, int dimension)
{
    return PreviewDecoder::decode(item, dimension);
}

QFuture<Result<PreviewResult>> PreviewService::request(const PhotoItem& item, int dimension, bool warming)
{
    dimension = clampDimension(dimension);
    // The key of the file as it is now: a file rewritten since the item was made gets a new one.
    if (const auto inspected = PhotoItem::inspect(item.url); inspected.ok() && inspected->has_value())
        if (auto hit = m_cache.find((*inspected)->cacheKey(dimension)))
            return readyFuture(std::move(*hit));

    auto request = std::make_shared<PreviewRequest>();
    QFuture<Result<PreviewResult>> future = request->future();
    watch(request);

    const int priority = warming ? veryLowPriority : dimension <= largePreviewThreshold ? normalPriority : veryHighPriority;
    QThreadPool& pool = warming ? m_backgroundQueue : m_queue;
    QRunnable* operation = QRunnable::create([this, request, item, dimension] {
        if (!request->begin())
            return;
        request->finish(runJob(item, dimension, *request));
    });
    if (!request->setOperation(operation, &pool)) {
        delete operation;
        return future;
    }
    pool.start(operation, priority);
    return future;
}

Result<PreviewResult> PreviewService::runJob(const PhotoItem& item, int dimension, const PreviewRequest& request)
{
    const auto inspected = PhotoItem::inspect(item.url);
    if (!inspected.ok() || !inspected->has_value())
        return BrowserError::unreadableImage(item.name());
    const PhotoItem& current = **inspected;
    const QString key = current.cacheKey(dimension);

    const std::shared_ptr<QMutex> lock = acquireLock(key);
    lock->lock();
    Result<PreviewResult> outcome = [&]() -> Result<PreviewResult> {
        // Another request for the same key may have decoded it while this one waited.
        if (auto hit = m_cache.find(key))
            return std::move(*hit);
        if (request.isCancelled())
            return Cancelled();
        Result<PreviewResult> decoded = m_decoder(current, dimension);
        ++m_decodes;
        if (!decoded)
            return decoded;
        m_cache.insert(key, *decoded);
        // The result stays cached for the next caller even when this one has gone.
        if (request.isCancelled())
            return Cancelled();
        return decoded;
    }();
    lock->unlock();
    releaseLock(key);
    return outcome;
}

std::shared_ptr<QMutex> PreviewService::acquireLock(const QString& key)
{
    QMutexLocker guard(&m_locksGuard);
    DecodeLock& entry = m_decodeLocks[key];
    if (!entry.mutex)
        entry.mutex = std::make_shared<QMutex>();
    ++entry.holders;
    return entry.mutex;
}

void PreviewService::releaseLock(const QString& key)
{
    QMutexLocker guard(&m_locksGuard);
    const auto it = m_decodeLocks.find(key);
    if (it == m_decodeLocks.end())
        return;
    if (it->holders <= 1)
        m_decodeLocks.erase(it);
    else
        --it->holders;
}

int PreviewService::decodeLockCount() const
{
    QMutexLocker guard(&m_locksGuard);
    return int(m_decodeLocks.size());
}

void PreviewService::waitForIdle()
{
    m_queue.waitForDone();
    m_backgroundQueue.waitForDone();
}

void PreviewService::watch(const std::shared_ptr<PreviewRequest>& request)
{
    auto* watcher = new QFutureWatcher<Result<PreviewResult>>();
    {
        QMutexLocker lock(&m_watchersGuard);
        m_watchers.insert(watcher);
    }
    QObject::connect(watcher, &QFutureWatcherBase::canceled, watcher, [request] { request->cancel(); });
    QObject::connect(watcher, &QFutureWatcherBase::finished, watcher, [this, watcher] {
        {
            QMutexLocker lock(&m_watchersGuard);
            m_watchers.remove(watcher);
        }
        watcher->deleteLater();
    });
    watcher->setFuture(request->future());
    // Its notifications are now delivered on the watch thread, which always runs an event loop.
    watcher->moveToThread(&m_watchThread);
}

void PreviewService::removeStaleFiles(const QString& directory)
{
    DIR* dir = opendir(Paths::encode(directory).constData());
    if (!dir)
        return;
    const int fd = dirfd(dir);
    while (const dirent* entry = readdir(dir)) {
        // Failures are skipped: the next start tries again.
        if (isStaleCacheName(entry->d_name))
            unlinkat(fd, entry->d_name, 0);
    }
    closedir(dir);
}

} // namespace vantelor
