#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <QAbstractButton>
#include <QDropEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QSignalSpy>
#include <QTreeView>

#include "ContentView.h"
#include "FilterBar.h"
#include "HeaderBar.h"
#include "HeaderResizeHandle.h"
#include "InspectorView.h"
#include "Keyboard/KeyboardTestSupport.h"
#include "KeyboardInput.h"
#include "LibraryTestSupport.h"
#include "MainWindow.h"
#include "Model/ShortcutStore.h"
#include "NavigatorView.h"
#include "PhotoGridView.h"
#include "PhotoListModel.h"
#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"
#include "VantelorCullingApp.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

// The application on a folder of three NEFs (the first with a sidecar rated 1) and a JPEG, with
// the folder read and the first photo shown.
struct Session {
    Sandbox folder;
    FakeChooser chooser;  // never answered: no dialog opens during a test
    std::unique_ptr<VantelorCullingApp> app;

    Session()
    {
        for (int i = 1; i <= 3; ++i)
            folder.write(QStringLiteral("DSC_000%1.NEF").arg(i), makeNef(640, 427, QByteArray("2024:05:0") + QByteArray::number(i) + " 10:00:00"));
        folder.write(QStringLiteral("DSC_0001.xmp"), XmpFixtures::lightroom(1, std::nullopt));
        folder.write(QStringLiteral("IMG_0004.JPG"), makeJpeg(640, 427));
        VantelorCullingApp::Options options;
        options.persistPreferences = false;
        options.chooser = &chooser;
        app = std::make_unique<VantelorCullingApp>(options);
        app->show();
        app->mainWindow().activateWindow();
        (void)QTest::qWaitForWindowActive(&app->mainWindow());
        library().open(folder.path());
        EXPECT_TRUE(eventually([this] {
            return !library().isPreparing() && library().visiblePhotos().size() == 4 && library().selectedID().has_value()
                && library().snapshots().contains(folder.file(QStringLiteral("DSC_0001.NEF")));
        })) << "the folder is read and its first photo chosen";
    }

    LibraryModel& library() const { return app->library(); }
    ContentView& content() const { return *app->mainWindow().content(); }
    QString url(int visible) const { return library().visiblePhotos().at(visible).url; }

    void select(const QString& name) const { library().select(folder.file(name)); }

    void press(Qt::Key key, quint32 evdev, const QString& text = {}) const { pressKey(&app->mainWindow(), evdev, key, text); }
};

void click(QMessageBox* box, const QString& text)
{
    const QList<QAbstractButton*> buttons = box->buttons();
    const auto button = std::find_if(buttons.begin(), buttons.end(), [&](QAbstractButton* b) { return b->text() == text; });
    ASSERT_NE(button, buttons.end()) << text.toStdString();
    (*button)->click();
}

} // namespace

// The filmstrip and the sheet show the visible photos; a digit rates the current one everywhere
// and G swaps the preview for the sheet, which the filmstrip would repeat; a drop opens a folder.
TEST(MainWindowFlow, KeysAndDropsDriveTheWindowAndTheFilmstripFollows)
{
    Session session;
    const auto* strip = qobject_cast<PhotoListModel*>(session.content().filmstrip()->model());
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(session.content().sheet()->model(), strip);
    // Which photos a search keeps is the controller's; the window shows them, or says none is left.
    session.library().setSearch(QStringLiteral("nada"));
    EXPECT_EQ(strip->rowCount(), 0);
    EXPECT_EQ(session.content().page(), ContentView::Page::empty);
    session.library().setSearch(QString());
    ASSERT_EQ(strip->rowCount(), 4);
    EXPECT_EQ(strip->index(1).data().toString(), QStringLiteral("DSC_0002.NEF"));

    // Only the cells a selection change touched are repainted, so each of them must be told.
    QSignalSpy told(strip, &QAbstractItemModel::dataChanged);
    const auto rowsTold = [&told] {
        QSet<int> rows;
        for (const QList<QVariant>& range : std::as_const(told))
            for (int row = range[0].toModelIndex().row(); row <= range[1].toModelIndex().row(); ++row)
                rows.insert(row);
        told.clear();
        return rows;
    };
    session.library().selectAll();
    EXPECT_EQ(rowsTold(), QSet<int>({1, 2, 3}));  // the first was selected already
    for (const QString& name : {QStringLiteral("DSC_0002.NEF"), QStringLiteral("IMG_0004.JPG")}) {
        SCOPED_TRACE(name.toStdString());
        const int left = strip->currentIndex().row();
        session.select(name);
        EXPECT_TRUE(rowsTold().contains({left, strip->currentIndex().row()}));
        session.press(Qt::Key_3, KEY_3, QStringLiteral("3"));
        EXPECT_EQ(session.content().inspector()->ratingText(), QStringLiteral("★★★☆☆"));
        const QModelIndex cell = strip->currentIndex();
        EXPECT_EQ(cell.data(PhotoListModel::urlRole).toString(), session.folder.file(name));
        EXPECT_EQ(cell.data(PhotoListModel::ratingRole).toInt(), 3);
    }

    for (const ContentView::Page page : {ContentView::Page::sheet, ContentView::Page::preview}) {
        session.press(Qt::Key_G, KEY_G, QStringLiteral("g"));
        EXPECT_EQ(session.content().page(), page);
        EXPECT_EQ(session.content().filmstrip()->isVisible(), page != ContentView::Page::sheet);
    }

    // A photo dropped on the window opens its folder with that photo selected, not the first one.
    Sandbox other;
    other.write(QStringLiteral("a.JPG"), makeJpeg(320, 200));
    const QString photo = other.write(QStringLiteral("b.JPG"), makeJpeg(320, 200));
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(photo)});
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    // Straight to the widget: the application routes a drop only while a drag is in progress.
    static_cast<QObject&>(session.content()).event(&drop);
    EXPECT_TRUE(drop.isAccepted());
    EXPECT_TRUE(eventually([&] {
        return session.library().folder() == other.path() && !session.library().isPreparing() && session.library().selectedID() == photo;
    })) << session.library().folder().value_or("-").toStdString() << " " << session.library().selectedID().value_or("-").toStdString();
}

// With Up and Down bound to stepping, as a user may bind them: the navigator tree and the
// header's handle keep the arrows while they have the focus; Enter or Esc in the name search
// hands them back to the photos.
TEST(MainWindowFlow, ArrowsBelongToTheFocusedControlOrGoBackToThePhotos)
{
    Session session;
    ShortcutStore& shortcuts = session.library().shortcuts();
    for (const auto& [action, key, evdev] : {std::tuple(ActionID::previous, Qt::Key_Up, KEY_UP), std::tuple(ActionID::next, Qt::Key_Down, KEY_DOWN)}) {
        const QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, evdev + 8, 0, 0, {});
        shortcuts.startRecording(action);
        ASSERT_TRUE(shortcuts.capture(*KeyboardInput::trigger(&event)));
    }
    MainWindow& window = session.app->mainWindow();
    QLineEdit* search = session.content().filterBar()->searchField();
    QTreeView* tree = window.findChild<NavigatorView*>()->tree();
    tree->setCurrentIndex(tree->model()->index(0, 0));
    const QModelIndex treeRow = tree->currentIndex();
    HeaderBar* header = session.content().header();
    const double height = header->headerHeight();
    // done: what the key did there; handsBack: Right steps photos afterwards.
    struct Row { const char* what; QWidget* focus; Qt::Key key; quint32 evdev; std::function<bool()> done; bool handsBack; };
    const Row rows[] = {
        {"Enter in the search", search, Qt::Key_Return, KEY_ENTER, [&] { return QApplication::focusWidget() != search; }, true},
        {"Esc in the search", search, Qt::Key_Escape, KEY_ESC, [&] { return QApplication::focusWidget() != search; }, true},
        {"Down in the tree", tree, Qt::Key_Down, KEY_DOWN, [&] { return tree->currentIndex() != treeRow; }, false},
        {"Up on the header's handle", window.findChild<HeaderResizeHandle*>(), Qt::Key_Up, KEY_UP,
         [&] { return header->headerHeight() == height - HeaderBar::accessibilityStep; }, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        session.library().select(session.url(0));
        row.focus->setFocus();
        ASSERT_EQ(QApplication::focusWidget(), row.focus);
        session.press(row.key, row.evdev);
        EXPECT_TRUE(QTest::qWaitFor(row.done, 2000));
        EXPECT_EQ(session.library().selectedID(), session.url(0)) << "no photo stepped";
        if (row.handsBack) {
            session.press(Qt::Key_Right, KEY_RIGHT);
            EXPECT_EQ(session.library().selectedID(), session.url(1));
        }
    }
}

// Another program rewrites the sidecar of a photo with a pending edit: the alert names the file,
// and each button does what it says.
TEST(MainWindowFlow, ConflictAlertLoadsOrMerges)
{
    for (const bool merge : {false, true}) {
        SCOPED_TRACE(merge);
        Session session;
        LibraryModel& library = session.library();
        const QString url = session.folder.file(QStringLiteral("DSC_0001.NEF"));
        library.select(url);
        library.setAutoSave(false);
        library.setRating(4);
        session.folder.write(QStringLiteral("DSC_0001.xmp"), XmpFixtures::lightroom(2, QStringLiteral("Red")));
        library.savePending();

        ASSERT_TRUE(eventually([&] { return session.content().conflictAlert() != nullptr; }));
        QMessageBox* alert = session.content().conflictAlert();
        EXPECT_TRUE(alert->informativeText().startsWith(QStringLiteral("DSC_0001.NEF\n")));
        library.savePending();
        EXPECT_FALSE(library.isSaving()) << "nothing is written while the user has not chosen";
        click(alert, merge ? QStringLiteral("Combinar los campos editados") : QStringLiteral("Cargar XMP externo"));

        ASSERT_TRUE(eventually([&] { return !library.conflictURL() && library.dirty().isEmpty() && !library.isSaving(); }));
        EXPECT_EQ(library.mark(url).rating, merge ? 4 : 2);
        const QByteArray sidecar = session.folder.read(QStringLiteral("DSC_0001.xmp"));
        EXPECT_EQ(sidecar.contains("Rating=\"4\"") || sidecar.contains("Rating>4<"), merge);
        EXPECT_TRUE(sidecar.contains("Red")) << "the other program's label survives either way";
    }
}

// Only NEF edits are worth asking about: JPEG ratings last the session by design.
TEST(MainWindowFlow, QuittingWithPendingNefEditsAsks)
{
    struct Row { QString photo; QString button; bool quits; bool saved; };  // no button: no question
    const Row rows[] = {
        {QStringLiteral("DSC_0002.NEF"), QStringLiteral("Guardar y salir"), true, true},
        {QStringLiteral("DSC_0002.NEF"), QStringLiteral("Cancelar"), false, false},
        {QStringLiteral("DSC_0002.NEF"), QStringLiteral("Descartar y salir"), true, false},
        {QStringLiteral("IMG_0004.JPG"), QString(), true, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.button.toStdString());
        Session session;
        QSignalSpy terminated(session.app.get(), &VantelorCullingApp::terminated);
        session.select(row.photo);
        session.library().setAutoSave(false);
        session.library().setRating(5);

        session.app->mainWindow().close();
        if (!row.button.isEmpty()) {
            ASSERT_TRUE(eventually([&] { return session.app->quitAlert() != nullptr; }));
            EXPECT_TRUE(session.app->quitAlert()->informativeText().startsWith(QStringLiteral("Hay 1 fotos NEF")));
            click(session.app->quitAlert(), row.button);
        }
        EXPECT_EQ(row.quits ? eventually([&] { return terminated.count() == 1; }) : terminated.wait(300), row.quits);
        EXPECT_TRUE(row.button.isEmpty() || session.app->mainWindow().isVisible() != row.quits) << "the window stays only when the user stays";
        EXPECT_EQ(session.folder.exists(QStringLiteral("DSC_0002.xmp")), row.saved);
    }
}
