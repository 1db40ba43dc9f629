#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QKeyEvent>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTest>
#include <QWindow>

#include "ContentView.h"
#include "InspectorView.h"
#include "MainWindow.h"
#include "Model/FolderChooser.h"
#include "Model/LibraryModel.h"
#include "PhotoGridView.h"
#include "PhotoListModel.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"
#include "VantelorCullingApp.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

// A chooser nobody answers: no dialog opens during a test.
class SilentChooser final : public FolderChooser {
public:
    void chooseFolder(const Request&, Done) override {}
};

// The application on a folder of three NEFs (the first with a sidecar rated 1) and a JPEG, with
// the folder read and the first photo shown.
struct Session {
    Sandbox folder;
    SilentChooser chooser;
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
    }

    LibraryModel& library() const { return app->library(); }
    ContentView& content() const { return *app->mainWindow().content(); }

    bool loaded() const
    {
        return QTest::qWaitFor([this] {
            return !library().isPreparing() && library().visiblePhotos().size() == 4 && library().selectedID().has_value()
                && library().snapshots().contains(folder.file(QStringLiteral("DSC_0001.NEF")));
        }, 10000);
    }

    void select(const QString& name) const { library().select(folder.file(name)); }

    // A key as the keyboard sends it: with its physical code (evdev + 8), which the shortcut
    // profile is keyed by.
    void press(Qt::Key key, const QString& text, quint32 evdev) const
    {
        // Delivered to the window, as the window system does.
        QWindow* target = app->mainWindow().windowHandle();
        QKeyEvent down(QEvent::KeyPress, key, Qt::NoModifier, evdev + 8, 0, 0, text);
        QApplication::sendEvent(target, &down);
        QKeyEvent up(QEvent::KeyRelease, key, Qt::NoModifier, evdev + 8, 0, 0, text);
        QApplication::sendEvent(target, &up);
    }

    QMessageBox* waitForQuitAlert() const
    {
        return QTest::qWaitFor([this] { return app->quitAlert() != nullptr; }, 3000) ? app->quitAlert() : nullptr;
    }
};

void click(QMessageBox* box, const QString& text)
{
    for (QAbstractButton* button : box->buttons()) {
        if (button->text() == text) {
            button->click();
            return;
        }
    }
    ADD_FAILURE() << "no button " << text.toStdString();
}

constexpr quint32 evdevKey3 = 4;
constexpr quint32 evdevKeyG = 34;

} // namespace

// The filmstrip and the sheet show the visible photos; a digit rates the current one everywhere
// and G swaps the preview for the sheet, which the filmstrip would repeat.
TEST(MainWindowFlow, KeysDriveTheWindowAndTheFilmstripFollows)
{
    Session session;
    ASSERT_TRUE(session.loaded());
    const auto* strip = qobject_cast<PhotoListModel*>(session.content().filmstrip()->model());
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(session.content().sheet()->model(), strip);
    session.library().setSearch(QStringLiteral("0002"));
    ASSERT_EQ(strip->rowCount(), 1);
    EXPECT_EQ(strip->index(0).data().toString(), QStringLiteral("DSC_0002.NEF"));
    session.library().setSearch(QStringLiteral("nada"));
    EXPECT_EQ(strip->rowCount(), 0);
    EXPECT_EQ(session.content().page(), ContentView::Page::empty);
    session.library().setSearch(QString());
    ASSERT_EQ(strip->rowCount(), 4);

    for (const QString& name : {QStringLiteral("DSC_0002.NEF"), QStringLiteral("IMG_0004.JPG")}) {
        SCOPED_TRACE(name.toStdString());
        session.select(name);
        session.press(Qt::Key_3, QStringLiteral("3"), evdevKey3);
        EXPECT_EQ(session.library().mark(session.folder.file(name)).rating, 3);
        EXPECT_EQ(session.content().inspector()->ratingText(), QStringLiteral("★★★☆☆"));
        const QModelIndex cell = strip->currentIndex();
        EXPECT_EQ(cell.data(PhotoListModel::urlRole).toString(), session.folder.file(name));
        EXPECT_EQ(cell.data(PhotoListModel::ratingRole).toInt(), 3);
    }

    QAction* menu = session.app->mainWindow().sheetAction();
    for (const auto& [page, title] : {std::pair(ContentView::Page::sheet, QStringLiteral("Vista previa individual")),
                                      std::pair(ContentView::Page::preview, QStringLiteral("Hoja de contactos"))}) {
        session.press(Qt::Key_G, QStringLiteral("g"), evdevKeyG);
        EXPECT_EQ(session.content().page(), page);
        EXPECT_EQ(menu->text(), title);
        EXPECT_EQ(session.content().filmstrip()->isVisible(), page != ContentView::Page::sheet);
    }
}

// Another program rewrites the sidecar of a photo with a pending edit: the alert names the file,
// and each button does what it says.
TEST(MainWindowFlow, ConflictAlertLoadsOrMerges)
{
    struct Row {
        QString button;
        int rating;              // shown afterwards
        bool sidecarHasOurRating;
    };
    const Row rows[] = {
        {QStringLiteral("Cargar XMP externo"), 2, false},
        {QStringLiteral("Combinar los campos editados"), 4, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.button.toStdString());
        Session session;
        ASSERT_TRUE(session.loaded());
        LibraryModel& library = session.library();
        const QString url = session.folder.file(QStringLiteral("DSC_0001.NEF"));
        session.select(QStringLiteral("DSC_0001.NEF"));
        library.setAutoSave(false);
        library.setRating(4);
        session.folder.write(QStringLiteral("DSC_0001.xmp"), XmpFixtures::lightroom(2, QStringLiteral("Red")));
        library.savePending();

        ASSERT_TRUE(QTest::qWaitFor([&] { return session.content().conflictAlert() != nullptr; }, 5000));
        QMessageBox* alert = session.content().conflictAlert();
        EXPECT_EQ(alert->windowTitle(), QStringLiteral("XMP modificado fuera de Vantelor"));
        EXPECT_TRUE(alert->informativeText().startsWith(QStringLiteral("DSC_0001.NEF\nCombinar aplica únicamente los campos que editaste.")));
        click(alert, row.button);

        ASSERT_TRUE(QTest::qWaitFor([&] { return !library.conflictURL() && library.dirty().isEmpty() && !library.isSaving(); }, 5000));
        EXPECT_EQ(library.mark(url).rating, row.rating);
        const QByteArray sidecar = session.folder.read(QStringLiteral("DSC_0001.xmp"));
        EXPECT_EQ(sidecar.contains("Rating=\"4\"") || sidecar.contains("Rating>4<"), row.sidecarHasOurRating);
        EXPECT_TRUE(sidecar.contains("Red")) << "the other program's label survives either way";
    }
}

// Only NEF edits are worth asking about: JPEG ratings last the session by design.
TEST(MainWindowFlow, QuittingWithPendingNefEditsAsks)
{
    struct Row {
        QString photo;
        QString button;  // none: no question
        bool quits;
        bool saved;
    };
    const Row rows[] = {
        {QStringLiteral("DSC_0002.NEF"), QStringLiteral("Guardar y salir"), true, true},
        {QStringLiteral("DSC_0002.NEF"), QStringLiteral("Cancelar"), false, false},
        {QStringLiteral("DSC_0002.NEF"), QStringLiteral("Descartar y salir"), true, false},
        {QStringLiteral("IMG_0004.JPG"), QString(), true, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.button.toStdString());
        Session session;
        ASSERT_TRUE(session.loaded());
        QSignalSpy terminated(session.app.get(), &VantelorCullingApp::terminated);
        session.select(row.photo);
        session.library().setAutoSave(false);
        session.library().setRating(5);

        session.app->mainWindow().close();
        if (!row.button.isEmpty()) {
            QMessageBox* alert = session.waitForQuitAlert();
            ASSERT_NE(alert, nullptr);
            EXPECT_EQ(alert->text(), QStringLiteral("¿Guardar los cambios XMP pendientes?"));
            EXPECT_EQ(alert->informativeText(),
                QStringLiteral("Hay 1 fotos NEF con estrellas o colores sin guardar. Las valoraciones JPEG solo duran esta sesión."));
            click(alert, row.button);
        }
        if (row.quits)
            EXPECT_TRUE(QTest::qWaitFor([&] { return terminated.count() == 1; }, 5000));
        else
            EXPECT_FALSE(terminated.wait(300));
        if (!row.button.isEmpty()) {
            EXPECT_EQ(session.app->mainWindow().isVisible(), !row.quits);
        }
        EXPECT_EQ(session.folder.exists(QStringLiteral("DSC_0002.xmp")), row.saved);
    }
}
