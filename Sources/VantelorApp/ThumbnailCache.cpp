#include "ThumbnailCache.h"

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
    m_pending.insert(key, {future, token});
    const QString url = item.url;
    const QSize display = m_displaySize;
    // The reduction to the cell runs on the pool: a screenful of thumbnails arriving at once
    // would otherwise hold up scrolling for as long as it takes to resize them all.
    future.then(QtFuture::Launch::Async, [display](const Result<PreviewResult>& result) {
              if (!result || result->image.isNull())
                  return QImage();
              const QImage& image = result->image;
              if (!display.isValid() || (image.width() <= display.width() && image.height() <= display.height()))
                  return image;
              const QSize fitted = image.size().scaled(display, Qt::KeepAspectRatio);
              return Downscale::fit(image, std::max(fitted.width(), fitted.height()));
          })
        .then(this, [this, key, url, token](QImage image) {
            // A load dropped in the meantime (scrolled away, cleared) has nothing to say any more.
            const auto it = m_pending.constFind(key);
            if (it == m_pending.constEnd() || it->token != token)
                return;
            m_pending.erase(it);
            if (!image.isNull())
                m_pixmaps.insert(key, new QPixmap(QPixmap::fromImage(std::move(image))));
            else
                m_failed.insert(key);
            emit ready(url);
        })
        .onCanceled(this, [this, key, token] {
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
