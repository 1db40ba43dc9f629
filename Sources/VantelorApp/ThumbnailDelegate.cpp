#include "ThumbnailDelegate.h"

#include <QPainter>
#include <QPainterPath>

#include "Appearance.h"
#include "PhotoListModel.h"
#include "Support/Paths.h"
#include "ThumbnailCache.h"

namespace vantelor {

ThumbnailDelegate::ThumbnailDelegate(const PhotoListModel& photos, ThumbnailCache& thumbnails, QObject* parent)
    : QStyledItemDelegate(parent)
    , m_photos(photos)
    , m_thumbnails(thumbnails)
{
}

QRectF ThumbnailDelegate::thumbnailArea(const QRectF& cell)
{
    return cell.adjusted(3, 3, -3, -3).adjusted(6, 6, -6, -captionHeight);
}

QSize ThumbnailDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const
{
    return m_cellSize;
}

void ThumbnailDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    if (!index.isValid())
        return;
    const bool current = index.data(PhotoListModel::currentRole).toBool();
    const bool selected = index.data(PhotoListModel::selectedRole).toBool();
    const int rating = index.data(PhotoListModel::ratingRole).toInt();
    const auto label = SessionLabel(index.data(PhotoListModel::labelRole).toInt());

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QRectF cell = QRectF(option.rect).adjusted(3, 3, -3, -3);
    QPainterPath frame;
    frame.addRoundedRect(cell, 6, 6);
    QColor background = Appearance::panel().lighter(118);
    if (selected)
        background = QColor(0x2a, 0x44, 0x6e);
    painter->fillPath(frame, background);

    // The thumbnail, fitted into the area above the caption.
    const QRectF area = thumbnailArea(QRectF(option.rect));
    QPixmap pixmap;
    const auto state = m_thumbnails.thumbnail(m_photos.photo(index.row()), &pixmap);
    if (state == ThumbnailCache::State::ready) {
        const qreal ratio = painter->device()->devicePixelRatioF();
        const QSizeF fitted = QSizeF(pixmap.size()).scaled(area.size(), Qt::KeepAspectRatio);
        const QRectF target(area.center() - QPointF(fitted.width() / 2, fitted.height() / 2), fitted);
        // Thumbnails arrive reduced to the cell; only a cell resized since then scales here.
        const bool exact = std::abs(fitted.width() * ratio - pixmap.width()) < 1.5;
        painter->setRenderHint(QPainter::SmoothPixmapTransform, !exact);
        painter->drawPixmap(exact ? QRectF(target.topLeft(), QSizeF(pixmap.size()) / ratio) : target, pixmap, pixmap.rect());
    } else {
        painter->fillRect(area, Appearance::canvas());
        if (state == ThumbnailCache::State::failed) {
            painter->setPen(Appearance::secondaryText());
            painter->drawText(area, Qt::AlignCenter | Qt::TextWordWrap, QStringLiteral("Vista previa no disponible"));
        }
    }

    // Caption: name, then stars and the colour dot.
    QFont font = option.font;
    font.setPointSizeF(font.pointSizeF() * 0.9);
    painter->setFont(font);
    const QFontMetricsF metrics(font);
    const QRectF nameRect(cell.left() + 8, cell.bottom() - captionHeight + 3, cell.width() - 16, metrics.height());
    painter->setPen(option.palette.color(QPalette::Text));
    const QString name = Paths::displayText(index.data(Qt::DisplayRole).toString());
    painter->drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter, metrics.elidedText(name, Qt::ElideMiddle, nameRect.width()));

    const QRectF markRect(nameRect.left(), nameRect.bottom() + 1, nameRect.width(), metrics.height());
    painter->setPen(rating > 0 ? QColor(0xf5, 0xc5, 0x42) : Appearance::secondaryText().darker(140));
    painter->drawText(markRect, Qt::AlignLeft | Qt::AlignVCenter, Appearance::stars(rating));
    if (label != SessionLabel::none) {
        const qreal d = 10;
        const QRectF dot(markRect.right() - d, markRect.center().y() - d / 2, d, d);
        painter->setPen(Qt::NoPen);
        painter->setBrush(Appearance::labelColor(label));
        painter->drawEllipse(dot);
    }

    if (current) {
        painter->setPen(QPen(Appearance::accent(), 2.5));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(cell.adjusted(1, 1, -1, -1), 6, 6);
    }
    painter->restore();
}

} // namespace vantelor
