#pragma once

#include <QWidget>

namespace vantelor {

// An invisible widget that holds keyboard focus in a window where no control needs it, so that
// typed keys are not left with a text field the user has finished with. Draws nothing.
class FocusInputView : public QWidget {
    Q_OBJECT

public:
    explicit FocusInputView(QWidget* parent);

    // 0.1 s later, if this window is still the active one and no dialog is open over it, take
    // the focus, unless a text field got it meanwhile. The delay lets a click finish its own focus
    // changes first. A request made while another is pending replaces it.
    void prepareNavigation();
    // Drops a pending request.
    void cancelNavigation() { ++m_request; }

    static constexpr int delayMs = 100;

signals:
    // The focus was taken (for tests and for windows that show where keys go).
    void tookFocus();

private:
    quint64 m_request = 0;
};

} // namespace vantelor
