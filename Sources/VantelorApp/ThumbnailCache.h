#pragma once

#include <QCache>
#include <QFuture>
#include <QHash>
#include <QObject>
#include <QPixmap>
#include <QSet>

#include "Library/PhotoItem.h"
#include "Previews/PreviewResult.h"
#include "Support/Result.h"

namespace vantelor {

class PreviewLoading;

// Thumbnails of one photo view at one pixel dimension. A view asks for the cells it paints
// between beginFrame() and endFrame(); a photo not yet here is requested from the preview loader
// at that dimension (the loader takes the cheapest embedded image that covers it), and loads for
// photos that were not painted in the last frame are cancelled, so scrolling through thousands
// of photos only decodes where the view stops. Recent pixmaps are kept in a small LRU; failures
// are remembered so that a broken file is not asked for again on every paint.
// GUI thread only: pixmaps are made here from the loader's QImage.
class ThumbnailCache : public QObject {
    Q_OBJECT

public:
    ThumbnailCache(PreviewLoading& loader, int dimension, int capacity, QObject* parent = nullptr);
    ~ThumbnailCache() override;

    enum class State { loading, ready, failed };
    // The photo's thumbnail, starting its load when needed. `pixmap` is set when ready.
    State thumbnail(const PhotoItem& item, QPixmap* pixmap);

    // The device pixels a thumbnail is drawn into: arriving images are reduced to fit once, so
    // that painting a screen of cells draws them 1:1 instead of scaling each on every paint.
    void setDisplaySize(QSize size) { m_displaySize = size; }

    void beginFrame();
    void endFrame();
    // Drops everything (another folder).
    void clear();

    int dimension() const { return m_dimension; }
    int pendingCount() const { return int(m_pending.size()); }

signals:
    void ready(const QString& url);

private:
    bool isPending(const QString& key, quint64 token) const;
    void store(const QString& key, const QString& url, quint64 token, QImage image);

    PreviewLoading& m_loader;
    int m_dimension;
    QSize m_displaySize;
    QCache<QString, QPixmap> m_pixmaps;
    QSet<QString> m_failed;
    struct Pending {
        QFuture<Result<PreviewResult>> future;
        QFuture<void> answer;
        quint64 token = 0;
    };
    QHash<QString, Pending> m_pending;
    quint64 m_nextToken = 0;
    QSet<QString> m_wanted;
    bool m_inFrame = false;
};

} // namespace vantelor
