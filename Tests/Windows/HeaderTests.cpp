#include <gtest/gtest.h>

#include <QMouseEvent>
#include <QSettings>
#include <QTest>

#include "HeaderBar.h"
#include "HeaderResizeHandle.h"
#include "LibraryTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

void drag(QWidget& handle, const QList<int>& moves)
{
    const QPointF start(20, 3);
    const QPointF global = handle.mapToGlobal(start);
    QMouseEvent press(QEvent::MouseButtonPress, start, global, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&handle, &press);
    for (int dy : moves) {
        QMouseEvent move(QEvent::MouseMove, start + QPointF(0, dy), global + QPointF(0, dy), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&handle, &move);
    }
    QMouseEvent release(QEvent::MouseButtonRelease, start, global, Qt::LeftButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&handle, &release);
}

} // namespace

// The header's height follows the drag from where it started, stays within 60…150, is kept in
// the preferences, and a double click brings back 68.
TEST(HeaderBar, ResizeHandleClampsStoresAndResets)
{
    QSettings().remove(HeaderBar::preferencesKey);
    Harness harness;
    LibraryModel& library = *harness.model;
    QWidget window;
    HeaderResizeHandle handle(&window);
    HeaderBar header(library, handle, &window);
    EXPECT_EQ(header.headerHeight(), 68);

    struct Row { const char* what; QList<int> moves; double expected; };
    const Row rows[] = {
        // Each drag starts from the height the previous one left.
        {"down by 30", {10, 30}, 98},
        {"back up within the drag", {400, 40}, 138},
        {"far up stops at 60", {-500}, 60},
    };
    for (const Row& row : rows) {
        drag(handle, row.moves);
        EXPECT_EQ(header.headerHeight(), row.expected) << row.what;
        EXPECT_EQ(header.height(), qRound(row.expected)) << row.what;
        EXPECT_EQ(QSettings().value(HeaderBar::preferencesKey).toDouble(), row.expected) << row.what;
    }

    QTest::mouseDClick(&handle, Qt::LeftButton);
    EXPECT_EQ(header.headerHeight(), 68);
    QSettings().remove(HeaderBar::preferencesKey);
}
