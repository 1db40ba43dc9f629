#pragma once

#include <functional>
#include <optional>

#include <QObject>
#include <QPointer>

#include "Input/InputTrigger.h"

class QEvent;
class QMouseEvent;
class QWidget;

namespace vantelor {

class FocusInputView;

// Key presses and presses of mouse buttons other than left and right, anywhere in the window of
// `view`, turned into triggers and offered to `action`; the event is swallowed only when `action`
// returns true. Events pass on untouched when the window is not the active one, while a modal
// dialog or a sheet is open, and while a text field has the focus (unless capturing), so typing
// in the search field never rates a photo, and while a widget that keeps its navigation keys
// (keepNavigationKeys) has the focus, its arrows, Enter and Esc are its own. Key repeats count as
// presses. One per window: of() finds it from any widget in the window.
//
// It watches the whole application (an event filter on qApp) and takes each press once, where
// the window system delivers it to the window, before any widget sees it. Lives as long as
// `view`. GUI thread only.
class KeyboardInput : public QObject {
    Q_OBJECT

public:
    using Action = std::function<bool(const InputTrigger&)>;

    KeyboardInput(QWidget* view, Action action);
    ~KeyboardInput() override;

    // While capturing, text fields being edited do not keep their keys (the settings screen
    // records shortcuts even from a text field).
    void setCapturing(bool capturing);
    bool capturing() const { return m_capturing; }
    void setAction(Action action);

    // Gives keyboard focus back to the browser a moment later, so that after a click on a control
    // the arrows step photos again.
    void prepareNavigation();
    FocusInputView* focusView() const;

    // The one of the window that holds `widget`, or null.
    static KeyboardInput* of(const QWidget* widget);
    // Lets `widget` have the arrow keys, Enter and Esc while it has the focus: a tree walked with
    // the keyboard, a handle adjusted with the arrows. A click elsewhere gives them back.
    static void keepNavigationKeys(QWidget* widget);
    static bool keepsNavigationKey(const QWidget* widget, int key);

    // The trigger of a key press or of a mouse button press; nothing for other events, for the
    // left and right buttons, for modifier keys alone and for synthetic key events without a
    // scan code.
    static std::optional<InputTrigger> trigger(const QEvent* event);
    // Whether keys typed into this widget belong to it: a text field that can be edited.
    static bool isTextEditing(const QWidget* widget);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool passesOn(QObject* watched, const QEvent* event) const;
    void noteClick(QWidget* target, const QMouseEvent* event);

    QPointer<QWidget> m_view;
    QPointer<FocusInputView> m_focusView;
    Action m_action;
    bool m_capturing = false;
};

} // namespace vantelor
