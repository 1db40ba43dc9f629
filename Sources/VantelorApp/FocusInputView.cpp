#include "FocusInputView.h"

#include <QApplication>
#include <QPointer>
#include <QTimer>

#include "KeyboardInput.h"

namespace vantelor {

FocusInputView::FocusInputView(QWidget* parent)
    : QWidget(parent)
{
    // Click focus keeps it out of the Tab chain; setFocus() still gives it focus.
    setFocusPolicy(Qt::ClickFocus);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFixedSize(0, 0);
    // A child added to a window already on screen stays hidden unless shown, and a hidden widget
    // cannot take the focus.
    show();
}

void FocusInputView::prepareNavigation()
{
    const quint64 request = ++m_request;
    QPointer<QWidget> focusBefore = QApplication::focusWidget();
    QTimer::singleShot(delayMs, this, [this, request, focusBefore] {
        if (request != m_request || !isVisible())
            return;
        QWidget* top = window();
        if (top != QApplication::activeWindow() || QApplication::activeModalWidget() || QApplication::activePopupWidget())
            return;
        // A text field entered meanwhile (by Tab, or by the program) is where the user types now.
        QWidget* focus = QApplication::focusWidget();
        if (focus != focusBefore && KeyboardInput::isTextEditing(focus))
            return;
        setFocus(Qt::OtherFocusReason);
        emit tookFocus();
    });
}

} // namespace vantelor
