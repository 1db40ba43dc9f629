#include "FocusInputView.h"

#include <QApplication>
#include <QTimer>

namespace vantelor {

FocusInputView::FocusInputView(QWidget* parent)
    : QWidget(parent)
{
    // Click focus keeps it out of the Tab chain; setFocus() still gives it focus.
    setFocusPolicy(Qt::ClickFocus);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFixedSize(0, 0);
}

void FocusInputView::prepareNavigation()
{
    const quint64 request = ++m_request;
    QTimer::singleShot(delayMs, this, [this, request] {
        if (request != m_request || !isVisible())
            return;
        QWidget* top = window();
        if (top != QApplication::activeWindow() || QApplication::activeModalWidget() || QApplication::activePopupWidget())
            return;
        setFocus(Qt::OtherFocusReason);
        emit tookFocus();
    });
}

} // namespace vantelor
