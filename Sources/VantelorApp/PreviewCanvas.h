#pragma once

#include <optional>

#include <QFuture>
#include <QImage>
#include <QPixmap>
#include <QPointF>
#include <QWidget>

class QPainter;

namespace vantelor {

class LibraryModel;

// The photo of the preview area: fitted to the view, or at the controller's zoom (1.0 is one
// preview pixel per screen pixel), zoomed around the pointer with the wheel, panned by dragging
// when larger than the view; a double click toggles fit and 100 %. With focus peaking on, the
// highlighted edges are laid over it in the chosen colour.
//
// The previous preview stays on screen until the controller has the next one, so stepping never
// shows an empty area. Reductions are done once per photo and view size (not per paint);
// enlargements draw only the visible part. The focus mask is computed and tinted on the thread
// pool, and a mask for a superseded photo or setting is dropped. GUI thread only.
class PreviewCanvas : public QWidget {
    Q_OBJECT

public:
    explicit PreviewCanvas(LibraryModel& library, QWidget* parent = nullptr);
    ~PreviewCanvas() override;

    // The share of highlighted pixels of the current mask, 0…100; nothing while none is shown.
    std::optional<double> focusShare() const { return m_focusShare; }
    // Screen pixels per preview pixel as drawn now.
    double scale() const;
    // The preview on screen (the previous one while the next is being reduced).
    QImage shownImage() const { return m_image; }
    bool focusPending() const { return m_focusPending; }
    // Whether the preview on screen carries the mark of a partly decoded file.
    bool showsDamageMark() const { return m_damaged && !m_image.isNull(); }

signals:
    void focusShareChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void previewChanged();
    void adopt(const QImage& image, const QImage& reduced, bool damaged);
    void paintDamageMark(QPainter& painter);
    void displayChanged();
    void restartFocus();
    void clearFocus();
    double fitScale() const;
    double fitScale(const QImage& image) const;
    // The device pixels a photo covers when fitted to this view.
    QSize fittedDeviceSize(const QImage& image) const;
    // Where the whole preview lands in widget coordinates at the current scale and centre.
    QRectF imageRect() const;
    void clampCenter();
    // The preview point (0…1 on both axes) under a widget point.
    QPointF normalizedAt(QPointF widgetPoint) const;
    void zoomAround(double newZoom, QPointF widgetPoint);
    const QImage& reduced(QSize size);

    LibraryModel& m_library;
    QImage m_image;
    qint64 m_imageKey = 0;
    bool m_damaged = false;
    // The preview being reduced for display, and the count that drops an outrun reduction.
    qint64 m_pendingKey = 0;
    quint64 m_adoptToken = 0;
    // The preview point at the view's centre, 0…1 on both axes.
    QPointF m_center{0.5, 0.5};

    // Images, not pixmaps: the window paints in memory, where a pixmap would only be a copy
    // of the same pixels made on every step.
    QImage m_reduced;
    qint64 m_reducedKey = 0;
    QSize m_reducedSize;

    std::optional<QPointF> m_dragStart;
    QPointF m_dragCenter;

    // Focus overlay.
    QImage m_mask;
    QImage m_maskReduced;
    QSize m_maskReducedSize;
    std::optional<double> m_focusShare;
    QFuture<void> m_focusTask;
    quint64 m_focusToken = 0;
    bool m_focusPending = false;
    double m_focusSensitivity = -1;
    bool m_focusBlue = false;
    bool m_focusEnabled = false;
    double m_zoom = 0;
};

} // namespace vantelor
