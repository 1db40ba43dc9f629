#pragma once

#include <QStyledItemDelegate>

namespace vantelor {

class PhotoListModel;
class ThumbnailCache;

// Draws one photo cell of the filmstrip or the contact sheet: the thumbnail fitted into the
// cell, the file name, the stars and the colour label; the current photo has an accent frame and
// the multi-selection an accent wash. Paints from the model's roles and the thumbnail cache only.
class ThumbnailDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    ThumbnailDelegate(const PhotoListModel& photos, ThumbnailCache& thumbnails, QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    void setCellSize(QSize size) { m_cellSize = size; }
    QSize cellSize() const { return m_cellSize; }

    // Height of the text under the thumbnail.
    static constexpr int captionHeight = 38;
    // The part of a cell the thumbnail is fitted into.
    static QRectF thumbnailArea(const QRectF& cell);

private:
    const PhotoListModel& m_photos;
    ThumbnailCache& m_thumbnails;
    QSize m_cellSize{180, 160};
};

} // namespace vantelor
