#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QTest>
#include <QTimer>
#include <QWidget>
#include <QWindow>

#include "FocusInputView.h"

namespace vantelor::test {

// A key press as X11 and Wayland deliver it: to the window, with the evdev code + 8 as the native
// scan code, then its release.
inline void pressKey(QWidget* window, quint32 evdev, Qt::Key key, const QString& text = {}, Qt::KeyboardModifiers modifiers = Qt::NoModifier, bool repeat = false)
{
    QKeyEvent press(QEvent::KeyPress, key, modifiers, evdev + 8, 0, 0, text, repeat);
    QApplication::sendEvent(window->windowHandle(), &press);
    QKeyEvent release(QEvent::KeyRelease, key, modifiers, evdev + 8, 0, 0, text, repeat);
    QApplication::sendEvent(window->windowHandle(), &release);
}

inline void activate(QWidget& window)
{
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
}

// Proves that something due after the focus keeper's delay did not happen: a timer started now
// with twice that delay fires after any request made before it.
inline void waitPastFocusDelay()
{
    bool passed = false;
    QTimer::singleShot(2 * FocusInputView::delayMs, [&passed] { passed = true; });
    ASSERT_TRUE(QTest::qWaitFor([&passed] { return passed; }));
}

} // namespace vantelor::test
