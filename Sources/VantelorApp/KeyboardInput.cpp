#include "KeyboardInput.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QTextEdit>
#include <QThread>
#include <QWidget>
#include <QWindow>

#include "FocusInputView.h"
#include "KeyboardLayout.h"

namespace vantelor {

namespace {

// Visible modal widgets that keep shortcuts from `window`: any application-modal one, and the
// window-modal sheets opened over it.
bool blockedByModal(const QWidget* window)
{
    for (QWidget* top : QApplication::topLevelWidgets()) {
        if (!top->isVisible() || !top->isModal())
            continue;
        if (top->windowModality() == Qt::ApplicationModal)
            return true;
        if (top->parentWidget() && top->parentWidget()->window() == window)
            return true;
    }
    return false;
}

} // namespace

KeyboardInput::KeyboardInput(QWidget* view, Action action)
    : QObject(view)
    , m_view(view)
    , m_focusView(new FocusInputView(view))
    , m_action(std::move(action))
{
    qApp->installEventFilter(this);
    m_focusView->prepareNavigation();
}

KeyboardInput::~KeyboardInput()
{
    qApp->removeEventFilter(this);
}

void KeyboardInput::setCapturing(bool capturing)
{
    m_capturing = capturing;
}

void KeyboardInput::setAction(Action action)
{
    m_action = std::move(action);
}

void KeyboardInput::prepareNavigation()
{
    if (m_focusView)
        m_focusView->prepareNavigation();
}

FocusInputView* KeyboardInput::focusView() const
{
    return m_focusView.data();
}

std::optional<InputTrigger> KeyboardInput::trigger(const QEvent* event)
{
    switch (event->type()) {
    case QEvent::KeyPress: {
        const auto* key = static_cast<const QKeyEvent*>(event);
        const quint32 scanCode = key->nativeScanCode();
        if (scanCode == 0)
            return std::nullopt;
        return InputTrigger::fromKeyPress(scanCode, KeyboardLayout::unshiftedText(scanCode), key->modifiers());
    }
    case QEvent::MouseButtonPress: {
        const auto* mouse = static_cast<const QMouseEvent*>(event);
        const std::optional<int> button = InputTrigger::mouseButtonNumber(mouse->button());
        if (!button)
            return std::nullopt;
        return InputTrigger::fromMouseButton(*button, mouse->modifiers());
    }
    default:
        return std::nullopt;
    }
}

bool KeyboardInput::isTextEditing(const QWidget* widget)
{
    if (const auto* line = qobject_cast<const QLineEdit*>(widget))
        return !line->isReadOnly();
    if (const auto* text = qobject_cast<const QTextEdit*>(widget))
        return !text->isReadOnly();
    if (const auto* plain = qobject_cast<const QPlainTextEdit*>(widget))
        return !plain->isReadOnly();
    // QDateTimeEdit is one of these.
    if (const auto* spin = qobject_cast<const QAbstractSpinBox*>(widget))
        return !spin->isReadOnly();
    return false;
}

bool KeyboardInput::passesOn(QObject* watched) const
{
    if (!m_view)
        return true;
    QWidget* window = m_view->window();
    if (window != QApplication::activeWindow() || watched != window->windowHandle())
        return true;
    if (blockedByModal(window))
        return true;
    return !m_capturing && isTextEditing(QApplication::focusWidget());
}

void KeyboardInput::noteClick(QWidget* target, const QMouseEvent* event)
{
    if (!m_view || !m_focusView || m_capturing || event->button() != Qt::LeftButton || target->window() != m_view->window())
        return;
    // A click into a text field starts typing there: a return of the focus still pending from an
    // earlier click must not take it away. A click anywhere else ends typing in the field that
    // has the focus: the browser takes the keys back once the click has settled.
    if (isTextEditing(target))
        m_focusView->cancelNavigation();
    else if (isTextEditing(QApplication::focusWidget()))
        m_focusView->prepareNavigation();
}

bool KeyboardInput::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::KeyboardLayoutChange:
        KeyboardLayout::layoutChanged();
        return false;
    case QEvent::Show:
        if (watched == m_view)
            prepareNavigation();
        return false;
    case QEvent::MouseButtonPress:
        if (watched->isWidgetType())
            noteClick(static_cast<QWidget*>(watched), static_cast<QMouseEvent*>(event));
        [[fallthrough]];
    case QEvent::KeyPress:
        break;
    default:
        return false;
    }
    // Qt hands a press to every application filter again for each widget it is passed on to;
    // only the delivery to the window itself counts, so a press acts once.
    if (!watched->isWindowType())
        return false;
    Q_ASSERT(QThread::currentThread() == thread());
    if (passesOn(watched))
        return false;
    const std::optional<InputTrigger> pressed = trigger(event);
    if (!pressed || !m_action)
        return false;
    return m_action(*pressed);
}

} // namespace vantelor
