#include "ThumbnailCache.h"

#include <QtConcurrent/QtConcurrentRun>

#include "Model/Continuations.h"
#include "Previews/Downscale.h"
#include "Previews/PreviewLoading.h"

namespace vantelor {

ThumbnailCache::ThumbnailCache(PreviewLoading& loader, int dimension, int capacity, QObject* parent)
    : QObject(parent)
    , m_loader(loader)
    , m_dimension(dimension)
    , m_pixmaps(capacity)
{
}

ThumbnailCache::~ThumbnailCache()
{
    clear();
}

ThumbnailCache::State ThumbnailCache::thumbnail(const PhotoItem& item, QPixmap* pixmap)
{
    const QString key = item.cacheKey(m_dimension);
    if (m_inFrame)
        m_wanted.insert(key);
    if (const QPixmap* cached = m_pixmaps.object(key)) {
        *pixmap = *cached;
        return State::ready;
    }
    if (m_failed.contains(key))
        return State::failed;
    if (m_pending.contains(key))
        return State::loading;

    QFuture<Result<PreviewResult>> future = m_loader.load(item, m_dimension);
    const quint64 token = ++m_nextToken;
    m_pending.insert(key, {future, {}, token});
    const QString url = item.url;
    const QSize display = m_displaySize;
    // The answer's future is kept with the load while it may be cancelled (see cancelRunning).
    QFuture<void> answer = future
        .then(this, [this, key, url, token, display](const Result<PreviewResult>& result) {
            if (!isPending(key, token))
                return;
            QImage image = result ? result->image : QImage();
            const bool fits = image.width() <= display.width() && image.height() <= display.height();
            if (image.isNull() || !display.isValid() || fits) {
                store(key, url, token, std::move(image));
                return;
            }
            // The reduction to the cell runs on the pool: a screenful of thumbnails arriving at
            // once would otherwise hold up scrolling for as long as it takes to resize them all.
            QtConcurrent::run([image = std::move(image), display] {
                const QSize fitted = image.size().scaled(display, Qt::KeepAspectRatio);
                return Downscale::fit(image, std::max(fitted.width(), fitted.height()));
            }).then(this, [this, key, url, token](QImage reduced) { store(key, url, token, std::move(reduced)); });
        })
        .onCanceled(this, [this, key, token] {
            if (isPending(key, token))
                m_pending.remove(key);
        });
    if (const auto it = m_pending.find(key); it != m_pending.end() && it->token == token) {
        it->answer = answer;
    } else if (const QPixmap* cached = m_pixmaps.object(key)) {
        // An answer already at hand was taken while the continuation was being attached.
        *pixmap = *cached;
        return State::ready;
    }
    return State::loading;
}

bool ThumbnailCache::isPending(const QString& key, quint64 token) const
{
    const auto it = m_pending.constFind(key);
    return it != m_pending.constEnd() && it->token == token;
}

void ThumbnailCache::store(const QString& key, const QString& url, quint64 token, QImage image)
{
    // A load dropped in the meantime (scrolled away, cleared) has nothing to say any more.
    if (!isPending(key, token))
        return;
    m_pending.remove(key);
    if (!image.isNull())
        m_pixmaps.insert(key, new QPixmap(QPixmap::fromImage(std::move(image))));
    else
        m_failed.insert(key);
    emit ready(url);
}

void ThumbnailCache::beginFrame()
{
    m_inFrame = true;
    m_wanted.clear();
}

void ThumbnailCache::endFrame()
{
    m_inFrame = false;
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        if (m_wanted.contains(it.key())) {
            ++it;
            continue;
        }
        // A reduction already under way is dropped when it comes back.
        cancelRunning(it->future);
        it = m_pending.erase(it);
    }
}

void ThumbnailCache::clear()
{
    for (Pending& pending : m_pending)
        cancelRunning(pending.future);
    m_pending.clear();
    m_pixmaps.clear();
    m_failed.clear();
}

} // namespace vantelor
