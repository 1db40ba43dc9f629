#include "PhotoGridView.h"

#include <QMouseEvent>
#include <QPaintEvent>
#include <QScrollBar>
#include <QtMath>

#include "Model/LibraryModel.h"
#include "PhotoListModel.h"
#include "ThumbnailCache.h"
#include "ThumbnailDelegate.h"

namespace vantelor {

namespace {
// Pixels asked of the loader per thumbnail: covers a sheet cell on a 2× screen without asking
// for more than an embedded thumbnail or small preview gives.
constexpr int thumbnailDimension = 320;
// Enough pixmaps for a few screens of the sheet; the loader's own cache keeps more.
constexpr int thumbnailCapacity = 240;
constexpr int sheetCellWidth = 196;
constexpr int sheetCellHeight = 186;
} // namespace

PhotoGridView::PhotoGridView(LibraryModel& library, PhotoListModel& photos, Layout layout, QWidget* parent)
    : QListView(parent)
    , m_library(library)
    , m_photos(photos)
    , m_layout(layout)
{
    m_thumbnails = new ThumbnailCache(library.previewService(), thumbnailDimension, thumbnailCapacity, this);
    m_delegate = new ThumbnailDelegate(photos, *m_thumbnails, this);
    setModel(&photos);
    setItemDelegate(m_delegate);
    setFocusPolicy(Qt::NoFocus);
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setUniformItemSizes(true);
    setMouseTracking(false);
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    if (layout == Layout::sheet) {
        setViewMode(QListView::IconMode);
        setFlow(QListView::LeftToRight);
        setWrapping(true);
        setResizeMode(QListView::Adjust);
        setMovement(QListView::Static);
        setSpacing(0);
        setAccessibleName(QStringLiteral("Hoja de contactos"));
    } else {
        setViewMode(QListView::ListMode);
        setFlow(QListView::TopToBottom);
        setAccessibleName(QStringLiteral("Tira de fotos"));
    }
    verticalScrollBar()->setSingleStep(24);
    QPalette p = palette();
    p.setColor(QPalette::Base, QColor(0x1b, 0x1c, 0x1f));
    setPalette(p);

    connect(m_thumbnails, &ThumbnailCache::ready, this, [this](const QString& url) {
        if (auto row = m_library.visiblePosition(url))
            viewport()->update(visualRect(m_photos.index(*row)));
    });
    connect(&library, &LibraryModel::folderChanged, m_thumbnails, &ThumbnailCache::clear);
    connect(&library, &LibraryModel::selectionChanged, this, &PhotoGridView::followCurrent);
    connect(&photos, &QAbstractItemModel::modelReset, this, &PhotoGridView::followCurrent);
    updateCellSize();
}

QRect PhotoGridView::cellRect(int row) const
{
    return visualRect(m_photos.index(row));
}

void PhotoGridView::updateCellSize()
{
    QSize cell;
    if (m_layout == Layout::sheet) {
        // Stretch the cells so that the columns fill the width without a ragged right edge.
        // The layout wraps a row that fills the width exactly, so a few pixels stay free.
        const int width = viewport()->width() - 4;
        const int columns = qMax(1, width / sheetCellWidth);
        cell = QSize(qMax(120, width / columns), sheetCellHeight);
        setGridSize(cell);
    } else {
        const int width = qMax(80, viewport()->width());
        cell = QSize(width, int(width * 0.72) + ThumbnailDelegate::captionHeight);
    }
    if (cell != m_delegate->cellSize()) {
        m_delegate->setCellSize(cell);
        const QSizeF area = ThumbnailDelegate::thumbnailArea(QRectF(QPointF(), QSizeF(cell))).size() * devicePixelRatioF();
        m_thumbnails->setDisplaySize(QSize(qFloor(area.width()), qFloor(area.height())));
        // Uniform sizes are cached by the view; a new hint needs a relayout, after which the
        // current photo may have moved out of sight.
        doItemsLayout();
        followCurrent();
    }
}

void PhotoGridView::resizeEvent(QResizeEvent* event)
{
    QListView::resizeEvent(event);
    updateCellSize();
}

void PhotoGridView::showEvent(QShowEvent* event)
{
    QListView::showEvent(event);
    // Shown again (the sheet toggled): the current photo may have changed while hidden.
    followCurrent();
}

bool PhotoGridView::viewportEvent(QEvent* event)
{
    // The viewport learns its width after the view's own resize (scroll bars come and go).
    if (event->type() == QEvent::Resize)
        updateCellSize();
    return QListView::viewportEvent(event);
}

void PhotoGridView::followCurrent()
{
    const QModelIndex current = m_photos.currentIndex();
    if (!current.isValid())
        return;
    // The filmstrip keeps the current photo in its middle, with what comes before and after in
    // sight; the sheet only scrolls when the photo leaves the screen.
    if (m_layout == Layout::filmstrip && !viewport()->rect().adjusted(0, 40, 0, -40).contains(visualRect(current)))
        scrollTo(current, QAbstractItemView::PositionAtCenter);
    else
        scrollTo(current, QAbstractItemView::EnsureVisible);
}

void PhotoGridView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    const QModelIndex at = indexAt(event->position().toPoint());
    if (at.isValid())
        m_library.selectClick(at.data(PhotoListModel::urlRole).toString(), event->modifiers());
    event->accept();
}

void PhotoGridView::mouseMoveEvent(QMouseEvent* event)
{
    // No rubber band or drag selection: the selection belongs to the controller.
    event->accept();
}

void PhotoGridView::mouseDoubleClickEvent(QMouseEvent* event)
{
    const QModelIndex at = indexAt(event->position().toPoint());
    if (at.isValid() && m_layout == Layout::sheet)
        m_library.setShowSheet(false);
    event->accept();
}

void PhotoGridView::paintEvent(QPaintEvent* event)
{
    // Only a paint of the whole viewport tells which photos are on screen; a single cell
    // repainted for its arriving thumbnail must not cancel the loads of its neighbours.
    const bool whole = event->rect().contains(viewport()->rect());
    if (whole)
        m_thumbnails->beginFrame();
    QListView::paintEvent(event);
    if (whole)
        m_thumbnails->endFrame();
}

} // namespace vantelor
