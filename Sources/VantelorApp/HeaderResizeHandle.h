#pragma once

#include <optional>

#include <QWidget>

namespace vantelor {

// The thin bar under the header that changes its height: dragging adds the vertical movement to
// the height the drag started from, a double click asks for the default height. The handle
// keeps no height of its own; HeaderBar clamps and stores it.
class HeaderResizeHandle : public QWidget {
    Q_OBJECT

public:
    explicit HeaderResizeHandle(QWidget* parent = nullptr);

signals:
    // Drag: the vertical movement since the press.
    void dragged(double translation);
    void dragStarted();
    void dragEnded();
    void resetRequested();
    // The accessibility increment and decrement (and the arrow keys when it has focus).
    void stepped(int direction);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    std::optional<double> m_pressY;
    bool m_moved = false;
    bool m_hovered = false;
};

} // namespace vantelor
