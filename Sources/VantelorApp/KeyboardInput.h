#pragma once

#include <functional>

#include <QObject>
#include <QPointer>

#include "Input/InputTrigger.h"

class QWidget;

namespace vantelor {

// Key presses and presses of mouse buttons other than left and right, anywhere in the window of
// `view`, turned into triggers and offered to `action`; the event is swallowed only when `action`
// returns true. Lives as long as `view`. GUI thread only.
class KeyboardInput : public QObject {
    Q_OBJECT

public:
    using Action = std::function<bool(const InputTrigger&)>;

    KeyboardInput(QWidget* view, Action action);

    // While capturing, text fields being edited do not keep their keys (the settings screen
    // records shortcuts even from a text field).
    void setCapturing(bool capturing);
    bool capturing() const { return m_capturing; }
    // Gives keyboard focus back to the browser a moment later, so that after a click on a control
    // the arrows step photos again.
    void prepareNavigation();

private:
    QPointer<QWidget> m_view;
    Action m_action;
    bool m_capturing = false;
};

} // namespace vantelor
