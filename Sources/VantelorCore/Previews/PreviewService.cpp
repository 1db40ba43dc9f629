#include "Previews/PreviewService.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <QCoreApplication>
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
// Nice steps of the decoding threads: what the user is looking at ahead of what may come next.
constexpr int displayNice = 4;
constexpr int backgroundNice = 10;

// Decoding must not take a core from the window or the display server: a late repaint is felt
// at once, a late thumbnail hardly. Linux keeps a nice value per thread, so each worker lowers its
// own, once, relative to the one it started with; it can never raise it again.
void yieldToTheDesktop(int steps)
{
    thread_local int lowered = 0;
    if (lowered >= steps)
        return;
    errno = 0;
    const int current = ::getpriority(PRIO_PROCESS, ::gettid());
    if (errno == 0 && ::setpriority(PRIO_PROCESS, ::gettid(), std::min(current + steps - lowered, 19)) == 0)
        lowered = steps;
}

bool isStaleCacheName(const char* name)
{
    int length = 0;
    for (; name[length] != '\0'; ++length)
        if (!isxdigit(uchar(name[length])) || length >= 64)
            return false;
    return length == 64;
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
    m_queue.setExpiryTimeout(-1);
    m_queue.setThreadPriority(QThread::NormalPriority);
    m_backgroundQueue.setObjectName(QStringLiteral("com.vantelor.prefetch"));
    m_backgroundQueue.setMaxThreadCount(1);
    m_backgroundQueue.setThreadPriority(QThread::LowPriority);
    m_lookupQueue.setObjectName(QStringLiteral("com.vantelor.preview.lookup"));
    m_lookupQueue.setMaxThreadCount(1);
    m_lookupQueue.setExpiryTimeout(-1);

    const QString directory = cacheDirectory.isEmpty() ? defaultCacheDirectory() : Paths::clean(cacheDirectory);
    m_queue.start([directory] { removeStaleFiles(directory); });
}

PreviewService::~PreviewService()
{
    // Work not yet started is dropped (its callers see a cancelled future); running work ends.
    m_lookupQueue.clear();
    m_lookupQueue.waitForDone();
    m_queue.clear();
    m_backgroundQueue.clear();
    m_queue.waitForDone();
    m_backgroundQueue.waitForDone();
    for (const Decoding& decoding : std::as_const(m_decodings))
        for (const auto& waiter : decoding.waiters)
            waiter->cancel();
    m_decodings.clear();
    m_watchThread.quit();
    m_watchThread.wait();
    // The watch thread has ended, so watchers still alive can be deleted from here.
    QMutexLocker lock(&m_watchersGuard);
    qDeleteAll(m_watchers);
    m_watchers.clear();
}

namespace {

QMutex sharedGuard;
PreviewService* sharedInstance = nullptr;
bool sharedDestroyed = false;

void destroyShared()
{
    QMutexLocker lock(&sharedGuard);
    delete std::exchange(sharedInstance, nullptr);
    sharedDestroyed = true;
}

} // namespace

PreviewService& PreviewService::shared()
{
    QMutexLocker lock(&sharedGuard);
    if (!sharedInstance) {
        // Its threads and cache must end before the application does, not in the static
        // destructors after it.
        if (sharedDestroyed || !QCoreApplication::instance())
            qFatal("PreviewService::shared() used outside the application's lifetime");
        sharedInstance = new PreviewService(sharedCacheBytes);
        qAddPostRoutine(destroyShared);
    }
    return *sharedInstance;
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
    auto request = std::make_shared<PreviewRequest>();
    QFuture<Result<PreviewResult>> future = request->future();
    watch(request);

    QRunnable* operation = QRunnable::create([this, request, item, dimension, warming] {
        if (request->begin())
            lookUp(request, item, dimension, warming);
    });
    if (!request->setOperation(operation, &m_lookupQueue)) {
        delete operation;
        return future;
    }
    m_lookupQueue.start(operation);
    return future;
}

void PreviewService::lookUp(const std::shared_ptr<PreviewRequest>& request, const PhotoItem& item, int dimension, bool warming)
{
    // The key of the file as it is now: a file rewritten since the item was made gets a new one.
    const auto inspected = PhotoItem::inspect(item.url);
    if (!inspected.ok() || !inspected->has_value()) {
        request->finish(BrowserError::unreadableImage(item.name()));
        return;
    }
    const PhotoItem current = **inspected;
    const QString key = current.cacheKey(dimension);
    if (auto hit = m_cache.find(key)) {
        request->finish(std::move(*hit));
        return;
    }

    const int priority = warming ? veryLowPriority : dimension <= largePreviewThreshold ? normalPriority : veryHighPriority;
    QMutexLocker guard(&m_locksGuard);
    // The decode may have ended between the cache lookup and taking the guard.
    if (auto hit = m_cache.find(key)) {
        guard.unlock();
        request->finish(std::move(*hit));
        return;
    }
    const auto running = m_decodings.find(key);
    if (running != m_decodings.end()) {
        running->waiters.append(request);
        // The user has reached a photo that was only being warmed: it must not wait behind the
        // other warming work.
        if (!warming && running->queued && running->pool == &m_backgroundQueue && m_backgroundQueue.tryTake(running->queued)) {
            running->pool = &m_queue;
            m_queue.start(running->queued, priority);
        }
        return;
    }
    Decoding& decoding = m_decodings[key];
    decoding.waiters.append(request);
    decoding.pool = warming ? &m_backgroundQueue : &m_queue;
    decoding.queued = QRunnable::create([this, key, current, dimension] { decodeKey(key, current, dimension); });
    decoding.pool->start(decoding.queued, priority);
}

void PreviewService::decodeKey(const QString& key, const PhotoItem& item, int dimension)
{
    {
        QMutexLocker guard(&m_locksGuard);
        const auto decoding = m_decodings.find(key);
        if (decoding == m_decodings.end())
            return;
        decoding->queued = nullptr;
        // Each queue has threads of its own, so a thread always gets the same answer here.
        yieldToTheDesktop(decoding->pool == &m_backgroundQueue ? backgroundNice : displayNice);
        // Everyone who wanted it gave up before it started: nothing to decode.
        const bool wanted = std::any_of(decoding->waiters.cbegin(), decoding->waiters.cend(),
                                        [](const auto& waiter) { return !waiter->isCancelled(); });
        if (!wanted) {
            m_decodings.erase(decoding);
            return;
        }
    }
    Result<PreviewResult> decoded = m_decoder(item, dimension);
    ++m_decodes;
    // The result stays cached for the next caller even when every waiter has gone.
    if (decoded)
        m_cache.insert(key, *decoded);
    QList<std::shared_ptr<PreviewRequest>> waiters;
    {
        QMutexLocker guard(&m_locksGuard);
        waiters = m_decodings.take(key).waiters;
    }
    for (const auto& waiter : waiters)
        waiter->finish(decoded);
}

int PreviewService::decodeLockCount() const
{
    QMutexLocker guard(&m_locksGuard);
    return int(m_decodings.size());
}

void PreviewService::waitForIdle()
{
    m_lookupQueue.waitForDone();
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
