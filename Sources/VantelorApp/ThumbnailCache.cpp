#include "ThumbnailCache.h"

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
    m_pending.insert(key, {future, token});
    const QString url = item.url;
    future.then(this, [this, key, url, token](const Result<PreviewResult>& result) {
        // A load dropped in the meantime (scrolled away, cleared) has nothing to say any more.
        const auto it = m_pending.constFind(key);
        if (it == m_pending.constEnd() || it->token != token)
            return;
        m_pending.erase(it);
        if (result && !result->image.isNull()) {
            QImage image = result->image;
            if (m_displaySize.isValid() && (image.width() > m_displaySize.width() || image.height() > m_displaySize.height()))
                image = image.scaled(m_displaySize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
            m_pixmaps.insert(key, new QPixmap(QPixmap::fromImage(image)));
        }
        else
            m_failed.insert(key);
        emit ready(url);
    }).onCanceled(this, [this, key, token] {
        const auto it = m_pending.constFind(key);
        if (it != m_pending.constEnd() && it->token == token)
            m_pending.erase(it);
    });
    return State::loading;
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
        it->future.cancel();
        it = m_pending.erase(it);
    }
}

void ThumbnailCache::clear()
{
    for (auto& pending : m_pending)
        pending.future.cancel();
    m_pending.clear();
    m_pixmaps.clear();
    m_failed.clear();
}

} // namespace vantelor
