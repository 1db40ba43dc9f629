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

TEST(MainWindowFlow, FilmstripAndSheetHoldTheVisiblePhotos)
{
    Session session;
    ASSERT_TRUE(session.loaded());
    const auto* strip = qobject_cast<PhotoListModel*>(session.content().filmstrip()->model());
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(session.content().sheet()->model(), strip);

    struct Row {
        QString search;
        QStringList names;
    };
    const Row rows[] = {
        {QString(), {QStringLiteral("DSC_0001.NEF"), QStringLiteral("DSC_0002.NEF"), QStringLiteral("DSC_0003.NEF"), QStringLiteral("IMG_0004.JPG")}},
        {QStringLiteral("0002"), {QStringLiteral("DSC_0002.NEF")}},
        {QStringLiteral("nada"), {}},
    };
    for (const Row& row : rows) {
        session.library().setSearch(row.search);
        QStringList shown;
        for (int i = 0; i < strip->rowCount(); ++i)
            shown << strip->index(i).data().toString();
        EXPECT_EQ(shown, row.names) << row.search.toStdString();
    }
    EXPECT_EQ(session.content().page(), ContentView::Page::empty);
}

TEST(MainWindowFlow, DigitKeyRatesTheCurrentPhotoEverywhere)
{
    Session session;
    ASSERT_TRUE(session.loaded());
    for (const QString& name : {QStringLiteral("DSC_0002.NEF"), QStringLiteral("IMG_0004.JPG")}) {
        session.select(name);
        const QString url = session.folder.file(name);
        session.press(Qt::Key_3, QStringLiteral("3"), evdevKey3);
        EXPECT_EQ(session.library().mark(url).rating, 3) << name.toStdString();
        EXPECT_EQ(session.content().inspector()->ratingText(), QStringLiteral("★★★☆☆")) << name.toStdString();
        const auto* strip = qobject_cast<PhotoListModel*>(session.content().filmstrip()->model());
        const QModelIndex cell = strip->currentIndex();
        ASSERT_TRUE(cell.isValid());
        EXPECT_EQ(cell.data(PhotoListModel::urlRole).toString(), url);
        EXPECT_EQ(cell.data(PhotoListModel::ratingRole).toInt(), 3) << name.toStdString();
    }
}

TEST(MainWindowFlow, GSwapsPreviewAndContactSheet)
{
    Session session;
    ASSERT_TRUE(session.loaded());
    QAction* menu = session.app->mainWindow().sheetAction();
    struct Row {
        ContentView::Page page;
        QString menuTitle;
    };
    const Row rows[] = {
        {ContentView::Page::sheet, QStringLiteral("Vista previa individual")},
        {ContentView::Page::preview, QStringLiteral("Hoja de contactos")},
    };
    EXPECT_EQ(session.content().page(), ContentView::Page::preview);
    for (const Row& row : rows) {
        session.press(Qt::Key_G, QStringLiteral("g"), evdevKeyG);
        EXPECT_EQ(session.content().page(), row.page);
        EXPECT_EQ(menu->text(), row.menuTitle);
        // The filmstrip would repeat the sheet.
        EXPECT_EQ(session.content().filmstrip()->isVisible(), row.page != ContentView::Page::sheet);
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
        Session session;
        ASSERT_TRUE(session.loaded());
        LibraryModel& library = session.library();
        const QString url = session.folder.file(QStringLiteral("DSC_0001.NEF"));
        session.select(QStringLiteral("DSC_0001.NEF"));
        library.setAutoSave(false);
        library.setRating(4);
        session.folder.write(QStringLiteral("DSC_0001.xmp"), XmpFixtures::lightroom(2, QStringLiteral("Red")));
        library.savePending();

        ASSERT_TRUE(QTest::qWaitFor([&] { return session.content().conflictAlert() != nullptr; }, 5000)) << row.button.toStdString();
        QMessageBox* alert = session.content().conflictAlert();
        EXPECT_EQ(alert->windowTitle(), QStringLiteral("XMP modificado fuera de Vantelor"));
        EXPECT_TRUE(alert->informativeText().startsWith(QStringLiteral("DSC_0001.NEF\nCombinar aplica únicamente los campos que editaste.")));
        click(alert, row.button);

        ASSERT_TRUE(QTest::qWaitFor([&] { return !library.conflictURL() && library.dirty().isEmpty() && !library.isSaving(); }, 5000))
            << row.button.toStdString();
        EXPECT_EQ(library.mark(url).rating, row.rating) << row.button.toStdString();
        const QByteArray sidecar = session.folder.read(QStringLiteral("DSC_0001.xmp"));
        EXPECT_EQ(sidecar.contains("Rating=\"4\"") || sidecar.contains("Rating>4<"), row.sidecarHasOurRating) << row.button.toStdString();
        // The other program's label survives either way.
        EXPECT_TRUE(sidecar.contains("Red")) << row.button.toStdString();
    }
}

TEST(MainWindowFlow, QuittingWithPendingNefEditsAsks)
{
    struct Row {
        QString button;
        bool quits;
        bool saved;
    };
    const Row rows[] = {
        {QStringLiteral("Guardar y salir"), true, true},
        {QStringLiteral("Cancelar"), false, false},
        {QStringLiteral("Descartar y salir"), true, false},
    };
    for (const Row& row : rows) {
        Session session;
        ASSERT_TRUE(session.loaded());
        LibraryModel& library = session.library();
        QSignalSpy terminated(session.app.get(), &VantelorCullingApp::terminated);
        session.select(QStringLiteral("DSC_0002.NEF"));
        library.setAutoSave(false);
        library.setRating(5);
        ASSERT_EQ(library.dirty().size(), 1);

        session.app->mainWindow().close();
        QMessageBox* alert = session.waitForQuitAlert();
        ASSERT_NE(alert, nullptr) << row.button.toStdString();
        EXPECT_EQ(alert->text(), QStringLiteral("¿Guardar los cambios XMP pendientes?"));
        EXPECT_EQ(alert->informativeText(),
            QStringLiteral("Hay 1 fotos NEF con estrellas o colores sin guardar. Las valoraciones JPEG solo duran esta sesión."));
        QStringList buttons;
        for (QAbstractButton* button : alert->buttons())
            buttons << button->text();
        EXPECT_EQ(buttons, (QStringList{QStringLiteral("Guardar y salir"), QStringLiteral("Cancelar"), QStringLiteral("Descartar y salir")}));
        click(alert, row.button);

        if (row.quits)
            EXPECT_TRUE(QTest::qWaitFor([&] { return terminated.count() == 1; }, 5000)) << row.button.toStdString();
        else
            EXPECT_FALSE(terminated.wait(300)) << row.button.toStdString();
        EXPECT_EQ(session.app->mainWindow().isVisible(), !row.quits) << row.button.toStdString();
        EXPECT_EQ(session.folder.exists(QStringLiteral("DSC_0002.xmp")), row.saved) << row.button.toStdString();
    }
}

TEST(MainWindowFlow, JpegRatingsAloneQuitWithoutAsking)
{
    Session session;
    ASSERT_TRUE(session.loaded());
    QSignalSpy terminated(session.app.get(), &VantelorCullingApp::terminated);
    session.select(QStringLiteral("IMG_0004.JPG"));
    session.library().setRating(2);
    session.app->mainWindow().close();
    EXPECT_EQ(terminated.count(), 1);
    EXPECT_EQ(session.app->quitAlert(), nullptr);
}
