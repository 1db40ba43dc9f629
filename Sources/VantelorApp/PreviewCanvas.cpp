#include "PreviewCanvas.h"

#include <cmath>

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <QtConcurrent/QtConcurrentRun>

#include "Appearance.h"
#include "Model/LibraryModel.h"
#include "Previews/Downscale.h"
#include "Previews/FocusPeaking.h"

namespace vantelor {

namespace {

// Room around a fitted photo, so that its edges read against the dark canvas.
constexpr int fitMargin = 12;

struct TintedMask {
    QImage image;
    double share = 0;
};

// A reduction that keeps thin edges: each output pixel takes the most opaque pixel of its block,
// where an averaging filter would thin a one-pixel edge to a faint smear.
QImage maxReduce(const QImage& image, int factor)
{
    if (factor <= 1)
        return image;
    const int width = std::max(1, image.width() / factor);
    const int height = std::max(1, image.height() / factor);
    QImage out(width, height, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < height; ++y) {
        auto* target = reinterpret_cast<QRgb*>(out.scanLine(y));
        for (int x = 0; x < width; ++x) {
            QRgb best = 0;
            for (int dy = 0; dy < factor; ++dy) {
                const auto* source = reinterpret_cast<const QRgb*>(image.constScanLine(y * factor + dy)) + x * factor;
                for (int dx = 0; dx < factor; ++dx) {
                    if (qAlpha(source[dx]) > qAlpha(best))
                        best = source[dx];
                }
            }
            target[x] = best;
        }
    }
    return out;
}

// The mask's light grey multiplied by the colour, as premultiplied ARGB ready to draw, reduced
// to the size it will be drawn at when that is smaller.
TintedMask tint(const FocusMask& mask, QColor colour, QSize drawn)
{
    TintedMask out;
    const QImage& grey = mask.image;
    if (grey.isNull())
        return out;
    out.image = QImage(grey.size(), QImage::Format_ARGB32_Premultiplied);
    out.image.fill(Qt::transparent);
    QPainter painter(&out.image);
    painter.drawImage(0, 0, grey);
    painter.setCompositionMode(QPainter::CompositionMode_Multiply);
    painter.fillRect(out.image.rect(), colour);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
    painter.drawImage(0, 0, grey);
    painter.end();
    const double total = double(grey.width()) * grey.height();
    out.share = total > 0 ? 100.0 * double(mask.highlightedPixels) / total : 0;
    if (drawn.isValid() && drawn.width() > 0 && drawn.width() < out.image.width()) {
        const int factor = out.image.width() / drawn.width();
        out.image = maxReduce(out.image, factor);
        if (out.image.size() != drawn)
            out.image = out.image.scaled(drawn, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    return out;
}

} // namespace

PreviewCanvas::PreviewCanvas(LibraryModel& library, QWidget* parent)
    : QWidget(parent)
    , m_library(library)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(200, 150);
    setAccessibleName(QStringLiteral("Vista previa"));
    connect(&library, &LibraryModel::previewChanged, this, &PreviewCanvas::previewChanged);
    connect(&library, &LibraryModel::displayChanged, this, &PreviewCanvas::displayChanged);
    previewChanged();
    displayChanged();
}

PreviewCanvas::~PreviewCanvas()
{
    m_focusTask.cancel();
}

void PreviewCanvas::previewChanged()
{
    const auto& preview = m_library.preview();
    const QImage image = preview ? preview->image : QImage();
    const bool damaged = preview && preview->damaged;
    if (!image.isNull() && (image.cacheKey() == m_imageKey || image.cacheKey() == m_pendingKey))
        return;
    const quint64 token = ++m_adoptToken;
    m_pendingKey = image.cacheKey();
    const QSize target = fittedDeviceSize(image);
    if (image.isNull() || m_zoom > 0 || !isVisible() || target.isEmpty() || target.width() >= image.width()) {
        adopt(image, QImage(), damaged);
        return;
    }
    // The reduction to the view is the costly part of a step: it runs on the pool while the
    // previous photo stays on screen, and the new one replaces it with its pixels ready.
    QtConcurrent::run([image, target] { return Downscale::fit(image, std::max(target.width(), target.height())); })
        .then(this, [this, token, image, damaged](const QImage& reduced) {
            if (token == m_adoptToken)
                adopt(image, reduced, damaged);
        });
}

void PreviewCanvas::adopt(const QImage& image, const QImage& reduced, bool damaged)
{
    m_pendingKey = 0;
    m_damaged = damaged;
    const bool samePhotoLarger = !m_image.isNull() && !image.isNull()
        && std::abs(double(image.width()) / image.height() - double(m_image.width()) / m_image.height()) < 0.01
        && m_library.zoom() > 0;
    m_image = image;
    m_imageKey = image.cacheKey();
    // A larger decode of the same photo (zooming in fetches one) keeps the place the user
    // looks at; another photo starts at its centre.
    if (!samePhotoLarger)
        m_center = QPointF(0.5, 0.5);
    m_reduced = reduced;
    m_reducedKey = m_imageKey;
    m_reducedSize = reduced.size();
    clearFocus();
    if (m_focusEnabled)
        restartFocus();
    update();
}

void PreviewCanvas::displayChanged()
{
    const double zoom = m_library.zoom();
    const bool zoomChanged = zoom != m_zoom;
    m_zoom = zoom;
    const bool enabled = m_library.focusEnabled();
    const bool blue = m_library.focusBlue();
    const double sensitivity = m_library.focusSensitivity();
    const bool focusChanged = enabled != m_focusEnabled || blue != m_focusBlue || sensitivity != m_focusSensitivity;
    m_focusEnabled = enabled;
    m_focusBlue = blue;
    m_focusSensitivity = sensitivity;
    if (focusChanged) {
        clearFocus();
        if (enabled)
            restartFocus();
    }
    if (zoomChanged) {
        if (zoom == 0)
            m_center = QPointF(0.5, 0.5);
        clampCenter();
    }
    if (zoomChanged || focusChanged)
        update();
}

void PreviewCanvas::clearFocus()
{
    m_focusTask.cancel();
    m_focusTask = {};
    ++m_focusToken;
    m_focusPending = false;
    m_mask = QImage();
    m_maskReduced = QImage();
    if (m_focusShare) {
        m_focusShare.reset();
        emit focusShareChanged();
    }
}

void PreviewCanvas::restartFocus()
{
    const auto& preview = m_library.preview();
    if (!preview || preview->image.isNull())
        return;
    const quint64 token = ++m_focusToken;
    const QColor colour = Appearance::focusColor(m_focusBlue);
    const QRectF target = imageRect();
    const double ratio = devicePixelRatioF();
    const QSize drawn(qRound(target.width() * ratio), qRound(target.height() * ratio));
    m_focusPending = true;
    QFuture<Result<FocusMask>> computing = FocusPeaking::mask(*preview, m_focusSensitivity);
    // Tinting stays on the pool thread that computed the mask.
    m_focusTask = computing
        .then([colour, drawn](const Result<FocusMask>& mask) {
            return mask ? std::optional<TintedMask>(tint(*mask, colour, drawn)) : std::nullopt;
        })
        .then(this, [this, token](const std::optional<TintedMask>& tinted) {
            if (token != m_focusToken)
                return;
            m_focusPending = false;
            if (!tinted)
                return;
            m_mask = tinted->image;
            m_maskReduced = QImage();
            m_focusShare = tinted->share;
            emit focusShareChanged();
            update();
        })
        .onCanceled(this, [this, token] {
            if (token == m_focusToken)
                m_focusPending = false;
        });
}

double PreviewCanvas::fitScale() const
{
    return fitScale(m_image);
}

double PreviewCanvas::fitScale(const QImage& image) const
{
    if (image.isNull() || width() <= 0 || height() <= 0)
        return 1;
    const double ratio = devicePixelRatioF();
    const double w = std::max(1, width() - 2 * fitMargin);
    const double h = std::max(1, height() - 2 * fitMargin);
    const double s = std::min(w * ratio / image.width(), h * ratio / image.height());
    // Small previews are not blown up to fill the view.
    return std::min(s, 1.0) / ratio;
}

QSize PreviewCanvas::fittedDeviceSize(const QImage& image) const
{
    if (image.isNull())
        return {};
    const double s = fitScale(image) * devicePixelRatioF();
    return QSize(qRound(image.width() * s), qRound(image.height() * s));
}

double PreviewCanvas::scale() const
{
    return m_zoom > 0 ? m_zoom / devicePixelRatioF() : fitScale();
}

QRectF PreviewCanvas::imageRect() const
{
    const double s = scale();
    const QSizeF size(m_image.width() * s, m_image.height() * s);
    QPointF topLeft(width() / 2.0 - m_center.x() * size.width(), height() / 2.0 - m_center.y() * size.height());
    // An axis that fits the view is centred on it.
    if (size.width() <= width())
        topLeft.setX((width() - size.width()) / 2);
    if (size.height() <= height())
        topLeft.setY((height() - size.height()) / 2);
    return QRectF(topLeft, size);
}

void PreviewCanvas::clampCenter()
{
    if (m_image.isNull())
        return;
    const double s = scale();
    const double w = m_image.width() * s;
    const double h = m_image.height() * s;
    // Keep the photo's edges from moving inside the view.
    const double hx = w > 0 ? std::min(0.5, width() / (2 * w)) : 0.5;
    const double hy = h > 0 ? std::min(0.5, height() / (2 * h)) : 0.5;
    m_center.setX(std::clamp(m_center.x(), hx, 1 - hx));
    m_center.setY(std::clamp(m_center.y(), hy, 1 - hy));
}

QPointF PreviewCanvas::normalizedAt(QPointF point) const
{
    const QRectF r = imageRect();
    if (r.isEmpty())
        return {0.5, 0.5};
    return QPointF(std::clamp((point.x() - r.left()) / r.width(), 0.0, 1.0),
        std::clamp((point.y() - r.top()) / r.height(), 0.0, 1.0));
}

void PreviewCanvas::zoomAround(double newZoom, QPointF point)
{
    if (m_image.isNull())
        return;
    const QPointF anchor = normalizedAt(point);
    const double ratio = devicePixelRatioF();
    const double fitZoom = fitScale() * ratio;
    if (newZoom > 0 && newZoom <= fitZoom * 1.001)
        newZoom = 0;
    if (newZoom > 0) {
        // The preview point under the pointer stays under it.
        const double s = newZoom / ratio;
        const double w = m_image.width() * s;
        const double h = m_image.height() * s;
        m_center = QPointF(anchor.x() - (point.x() - width() / 2.0) / w, anchor.y() - (point.y() - height() / 2.0) / h);
    }
    m_zoom = newZoom;
    clampCenter();
    m_library.setZoom(newZoom);
    update();
}

const QImage& PreviewCanvas::reduced(QSize size)
{
    // A reduction made on the pool may differ from the painted size by rounding.
    const bool close = std::abs(m_reducedSize.width() - size.width()) <= 1 && std::abs(m_reducedSize.height() - size.height()) <= 1;
    if (m_reducedKey != m_imageKey || !close || m_reduced.isNull()) {
        m_reduced = Downscale::fit(m_image, std::max(size.width(), size.height()));
        m_reducedKey = m_imageKey;
        m_reducedSize = size;
    }
    return m_reduced;
}

void PreviewCanvas::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), Appearance::canvas());
    if (m_image.isNull())
        return;
    const QRectF target = imageRect();
    const double ratio = devicePixelRatioF();
    const QSize devicePixels(qRound(target.width() * ratio), qRound(target.height() * ratio));
    if (devicePixels.width() < m_image.width()) {
        // A reduction: made once for this photo and size, then drawn 1:1.
        const QImage& image = reduced(devicePixels);
        painter.drawImage(target, image, QRectF(image.rect()));
    } else {
        // An enlargement: only the part inside the view is drawn.
        const QRectF visible = target.intersected(QRectF(rect()));
        const double s = target.width() / m_image.width();
        const QRectF source((visible.left() - target.left()) / s, (visible.top() - target.top()) / s,
            visible.width() / s, visible.height() / s);
        painter.setRenderHint(QPainter::SmoothPixmapTransform, s * ratio < 2.5);
        painter.drawImage(visible, m_image, source);
    }
    if (!m_mask.isNull()) {
        // The mask is at analysis size; its reduction follows the photo's.
        // The worker reduced it for the size at the time of the request; a view resized since
        // then reduces it once more here.
        const QSize maskSize(std::min(devicePixels.width(), m_mask.width()), std::min(devicePixels.height(), m_mask.height()));
        if (m_maskReduced.isNull() || m_maskReducedSize != maskSize) {
            m_maskReduced = maskSize == m_mask.size() ? m_mask : m_mask.scaled(maskSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            m_maskReducedSize = maskSize;
        }
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(target, m_maskReduced, QRectF(m_maskReduced.rect()));
    }
    if (m_damaged)
        paintDamageMark(painter);
}

// In the view's corner rather than the photo's: it stays in sight at any zoom and pan, and
// covers no more of the photo than a small label.
void PreviewCanvas::paintDamageMark(QPainter& painter)
{
    const QString text = QStringLiteral("Vista previa dañada");
    QFont font = painter.font();
    font.setBold(true);
    painter.setFont(font);
    const QFontMetrics metrics(font);
    const int margin = 12, padX = 10, padY = 5;
    const QRect badge(margin, margin, metrics.horizontalAdvance(text) + 2 * padX, metrics.height() + 2 * padY);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0xB0, 0x2A, 0x1E, 230));
    painter.drawRoundedRect(badge, 6, 6);
    painter.setPen(Qt::white);
    painter.drawText(badge, Qt::AlignCenter, text);
}

void PreviewCanvas::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    clampCenter();
}

void PreviewCanvas::wheelEvent(QWheelEvent* event)
{
    const double steps = event->angleDelta().y() / 120.0;
    if (steps == 0 || m_image.isNull()) {
        event->ignore();
        return;
    }
    const double ratio = devicePixelRatioF();
    const double current = m_zoom > 0 ? m_zoom : fitScale() * ratio;
    const double next = std::clamp(current * std::pow(1.25, steps), LibraryModel::minimumZoom, LibraryModel::maximumZoom);
    zoomAround(next, event->position());
    event->accept();
}

void PreviewCanvas::mousePressEvent(QMouseEvent* event)
{
    const QRectF r = imageRect();
    if (event->button() == Qt::LeftButton && (r.width() > width() + 0.5 || r.height() > height() + 0.5)) {
        m_dragStart = event->position();
        m_dragCenter = m_center;
        setCursor(Qt::ClosedHandCursor);
        event->accept();
        return;
    }
    event->ignore();
}

void PreviewCanvas::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragStart) {
        event->ignore();
        return;
    }
    const QRectF r = imageRect();
    const QPointF delta = event->position() - *m_dragStart;
    m_center = QPointF(m_dragCenter.x() - delta.x() / r.width(), m_dragCenter.y() - delta.y() / r.height());
    clampCenter();
    update();
}

void PreviewCanvas::mouseReleaseEvent(QMouseEvent* event)
{
    if (m_dragStart) {
        m_dragStart.reset();
        unsetCursor();
    }
    event->accept();
}

void PreviewCanvas::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton)
        return;
    zoomAround(m_zoom > 0 ? 0 : 1.0, event->position());
}

} // namespace vantelor
