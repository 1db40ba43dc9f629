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

const char* const navigationKeysProperty = "vantelorKeepsNavigationKeys";

} // namespace

KeyboardInput::KeyboardInput(QWidget* view, Action action)
    : QObject(view)
    , m_view(view)
    , m_focusView(new FocusInputView(view))
    , m_action(std::move(action))
{
    // Two would each act on every press of the window.
    Q_ASSERT(of(view) == this);
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

KeyboardInput* KeyboardInput::of(const QWidget* widget)
{
    if (!widget)
        return nullptr;
    const QWidget* window = widget->window();
    KeyboardInput* found = nullptr;
    for (KeyboardInput* input : window->findChildren<KeyboardInput*>()) {
        if (input->m_view && input->m_view->window() == window) {
            Q_ASSERT(!found);
            found = input;
        }
    }
    return found;
}

void KeyboardInput::keepNavigationKeys(QWidget* widget)
{
    widget->setProperty(navigationKeysProperty, true);
}

bool KeyboardInput::keepsNavigationKey(const QWidget* widget, int key)
{
    if (!widget || !widget->property(navigationKeysProperty).toBool())
        return false;
    switch (key) {
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Home:
    case Qt::Key_End:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Escape:
        return true;
    default:
        return false;
    }
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

bool KeyboardInput::passesOn(QObject* watched, const QEvent* event) const
{
    if (!m_view)
        return true;
    QWidget* window = m_view->window();
    if (window != QApplication::activeWindow() || watched != window->windowHandle())
        return true;
    if (blockedByModal(window))
        return true;
    if (event->type() == QEvent::KeyPress
        && keepsNavigationKey(QApplication::focusWidget(), static_cast<const QKeyEvent*>(event)->key()))
        return true;
    return !m_capturing && isTextEditing(QApplication::focusWidget());
}

void KeyboardInput::noteClick(QWidget* target, const QMouseEvent* event)
{
    if (!m_view || !m_focusView || m_capturing || event->button() != Qt::LeftButton || target->window() != m_view->window())
        return;
    // A click into a text field starts typing there: a return of the focus still pending from an
    // earlier click must not take it away. A click anywhere else ends typing in the field that
    // has the focus, or walking the tree that has it: the browser takes the keys back once the
    // click has settled.
    QWidget* focus = QApplication::focusWidget();
    if (isTextEditing(target))
        m_focusView->cancelNavigation();
    else if (isTextEditing(focus))
        m_focusView->prepareNavigation();
    else if (focus && keepsNavigationKey(focus, Qt::Key_Up) && focus != target && !focus->isAncestorOf(target))
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
    if (passesOn(watched, event))
        return false;
    const std::optional<InputTrigger> pressed = trigger(event);
    if (!pressed || !m_action)
        return false;
    return m_action(*pressed);
}

} // namespace vantelor
