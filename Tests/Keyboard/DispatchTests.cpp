#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

#include "../App/LibraryTestSupport.h"
#include "KeyboardInput.h"
#include "KeyboardTestSupport.h"
#include "Model/ShortcutStore.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"

namespace vantelor::test {
namespace {

// A browser window wired to a real controller the way the windows are: the trigger looked up in
// the store's profile, the action run.
struct WiredWindow {
    Sandbox sandbox;
    Harness h;
    QWidget window;
    QLineEdit* search = new QLineEdit(&window);
    QLabel* photo = new QLabel(&window);
    LibraryModel* lib = h.model.get();

    WiredWindow()
    {
        for (const char* name : {"a.jpg", "b.jpg", "c.jpg", "d.jpg"})
            sandbox.write(QString::fromLatin1(name), makeJpeg(16, 12, ExifInfo{}));
        h.openAndPrepare(sandbox.path());
        auto* layout = new QVBoxLayout(&window);
        layout->addWidget(search);
        layout->addWidget(photo);
        new KeyboardInput(&window, [lib = lib](const InputTrigger& t) {
            auto a = lib->shortcuts().profile().action(t);
            return a && lib->run(*a);
        });
    }
    int position() const { return lib->selectedPosition().value_or(-1); }
    int rating() const { return lib->marks().value(*lib->selectedID()).rating; }
};

} // namespace

TEST(Dispatch, KeysAndABoundSideButtonDriveTheControllerButTypingInSearchDoesNot)
{
    WiredWindow w;
    activate(w.window);
    w.photo->setFocus();
    pressKey(&w.window, KEY_RIGHT, Qt::Key_Right);
    ASSERT_TRUE(w.lib->selectedID().has_value());
    const int first = w.position();
    pressKey(&w.window, KEY_RIGHT, Qt::Key_Right);
    EXPECT_EQ(w.position(), first + 1);
    pressKey(&w.window, KEY_4, Qt::Key_4, QStringLiteral("4"));
    EXPECT_EQ(w.rating(), 4);

    w.search->setFocus();
    pressKey(&w.window, KEY_1, Qt::Key_1, QStringLiteral("1"));
    pressKey(&w.window, KEY_RIGHT, Qt::Key_Right);
    EXPECT_EQ(w.search->text(), QStringLiteral("1"));
    EXPECT_EQ(w.rating(), 4);
    EXPECT_EQ(w.position(), first + 1);

    // Unbound, the side button does nothing; once recorded for "Foto siguiente" it steps.
    w.photo->setFocus();
    clickButton(&w.window, Qt::BackButton);
    EXPECT_EQ(w.position(), first + 1);
    w.lib->shortcuts().startRecording(ActionID::next);
    ASSERT_TRUE(w.lib->shortcuts().capture(*InputTrigger::fromMouseButton(3, Qt::NoModifier)));
    clickButton(&w.window, Qt::BackButton);
    EXPECT_EQ(w.position(), first + 2);
}

} // namespace vantelor::test
