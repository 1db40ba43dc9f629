#include "HeaderResizeHandle.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include "Appearance.h"
#include "KeyboardInput.h"

namespace vantelor {

HeaderResizeHandle::HeaderResizeHandle(QWidget* parent) : QWidget(parent)
{
    setFixedHeight(7);
    setCursor(Qt::SizeVerCursor);
    // Reached with Tab, never by a click: a drag must not take the arrows from the photos.
    setFocusPolicy(Qt::TabFocus);
    KeyboardInput::keepNavigationKeys(this);
    setAccessibleName(QStringLiteral("Altura de cabecera"));
    setAccessibleDescription(QStringLiteral("Arrastra para ajustar la cabecera. Doble clic para restablecer."));
    setToolTip(accessibleDescription());
}

void HeaderResizeHandle::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), Appearance::panel());
    painter.fillRect(QRect(0, height() - 1, width(), 1), QColor(0x0e, 0x0f, 0x11));
    // A grip in the middle, brighter under the pointer.
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_hovered || hasFocus() ? Appearance::secondaryText() : QColor(0x4a, 0x4e, 0x55));
    if (hasFocus()) {
        painter.setPen(QPen(Appearance::accent(), 1.5));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(width() / 2.0 - 24, 0.75, 48, height() - 1.5), 3, 3);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Appearance::secondaryText());
    }
    painter.drawRoundedRect(QRectF(width() / 2.0 - 18, height() / 2.0 - 1.5, 36, 3), 1.5, 1.5);
}

void HeaderResizeHandle::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_pressY = event->globalPosition().y();
        m_moved = false;
    }
}

void HeaderResizeHandle::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_pressY)
        return;
    if (!m_moved) {
        // The start height is taken at the first change of the drag, not at the press.
        m_moved = true;
        emit dragStarted();
    }
    emit dragged(event->globalPosition().y() - *m_pressY);
}

void HeaderResizeHandle::mouseReleaseEvent(QMouseEvent*)
{
    if (m_moved)
        emit dragEnded();
    m_pressY.reset();
    m_moved = false;
}

void HeaderResizeHandle::mouseDoubleClickEvent(QMouseEvent*)
{
    emit resetRequested();
}

void HeaderResizeHandle::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Up)
        emit stepped(-1);
    else if (event->key() == Qt::Key_Down)
        emit stepped(1);
    else if (event->key() == Qt::Key_Escape || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (KeyboardInput* input = KeyboardInput::of(this))
            input->prepareNavigation();
    } else
        QWidget::keyPressEvent(event);
}

void HeaderResizeHandle::enterEvent(QEnterEvent*)
{
    m_hovered = true;
    update();
}

void HeaderResizeHandle::leaveEvent(QEvent*)
{
    m_hovered = false;
    update();
}

} // namespace vantelor
