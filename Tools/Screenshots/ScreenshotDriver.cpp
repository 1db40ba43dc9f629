// Drives the real windows through their main states and saves a PNG of each, for
// scripts/screenshots.sh (run under Xvfb). Windows are rendered with QWidget::grab, and a sheet
// or alert is drawn over the window it belongs to, where the desktop would show it.
//
//   vantelor-screenshots DEMO_FOLDER OUTPUT_DIR

#include <cstdio>

#include <QApplication>
#include <QDir>
#include <QPainter>
#include <QTest>
#include <QTimer>

#include "ContentView.h"
#include "FilterBar.h"
#include "Files/FileWorkflow.h"
#include "Files/TransferExecution.h"
#include "MainWindow.h"
#include "Model/FolderChooser.h"
#include "Model/LibraryModel.h"
#include "PhotoGridView.h"
#include "PreviewCanvas.h"
#include "PreviewWindow.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"
#include "ThumbnailCache.h"
#include "VantelorCullingApp.h"

using namespace vantelor;

namespace {

// Answers every folder question with one folder, as a user who always picks it would.
class FixedChooser final : public FolderChooser {
public:
    QString answer;
    void chooseFolder(const Request&, Done done) override
    {
        QTimer::singleShot(0, [done, folder = answer] { done(folder); });
    }
};

QString g_output;
int g_failures = 0;

void save(const QImage& image, const QString& name)
{
    const QString path = g_output + QLatin1Char('/') + name + QStringLiteral(".png");
    if (!image.save(path)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        ++g_failures;
        return;
    }
    std::printf("%s\n", qPrintable(path));
}

void shoot(QWidget& window, const QString& name)
{
    QApplication::processEvents();
    save(window.grab().toImage(), name);
}

// The window with a dialog over it: dimmed behind, the dialog near the top as a sheet.
void shootWithDialog(QWidget& window, QWidget& dialog, const QString& name)
{
    QApplication::processEvents();
    QImage base = window.grab().toImage();
    const QImage top = dialog.grab().toImage();
    QPainter painter(&base);
    painter.fillRect(base.rect(), QColor(0, 0, 0, 90));
    const qreal ratio = base.devicePixelRatio();
    const QPointF at((base.width() / ratio - top.width() / top.devicePixelRatio()) / 2, 90);
    painter.setPen(Qt::NoPen);
    for (int i = 8; i > 0; --i) {
        painter.setBrush(QColor(0, 0, 0, 10));
        painter.drawRoundedRect(QRectF(at, top.size() / top.devicePixelRatio()).adjusted(-i, -i + 4, i, i + 4), 8, 8);
    }
    painter.drawImage(at, top);
    painter.end();
    save(base, name);
}

bool waitFor(const char* what, const std::function<bool()>& condition, int timeoutMs = 20000)
{
    if (QTest::qWaitFor(condition, timeoutMs))
        return true;
    std::fprintf(stderr, "timed out waiting for %s\n", what);
    ++g_failures;
    return false;
}

bool thumbnailsSettled(PhotoGridView* view)
{
    return view->thumbnails().pendingCount() == 0;
}

int indexOf(const LibraryModel& library, const QString& suffix)
{
    const auto& photos = library.visiblePhotos();
    for (int i = 0; i < photos.size(); ++i) {
        if (photos[i].url.endsWith(suffix, Qt::CaseInsensitive))
            return i;
    }
    return -1;
}

// What a copy of `photos` into `destination` leaves when it is killed after staging them: the
// staging folder with its journal and the copies, nothing placed yet.
bool leaveInterruptedCopy(const QStringList& photos, const QString& destination)
{
    FileWorkflow files;
    const Result<TransferPlan> plan = files.plan(photos, destination, TransferKind::copy).result();
    if (!plan)
        return false;
    TransferFileSystem disk;
    const QString staging = Paths::join(destination, TransferExecution::stagingPrefix() + plan->idText());
    if (!disk.createFolder(staging) || !disk.writeNewFile(Paths::join(staging, TransferExecution::journalName()), plan->journal()))
        return false;
    for (qsizetype n = 0; n < plan->items.size(); ++n)
        if (!disk.copyFile(plan->items[n].source, Paths::join(staging, QStringLiteral("item-%1").arg(n))))
            return false;
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vantelor"));
    QApplication::setOrganizationName(QStringLiteral("Vantelor"));
    VantelorCullingApp::applyAppearance();
    if (argc < 3) {
        std::fprintf(stderr, "usage: vantelor-screenshots DEMO_FOLDER OUTPUT_DIR\n");
        return 2;
    }
    const QString folder = Paths::clean(Paths::decode(QByteArray(argv[1])));
    g_output = QString::fromLocal8Bit(argv[2]);
    QDir().mkpath(g_output);
    test::Sandbox destination;

    FixedChooser chooser;
    chooser.answer = destination.path();
    VantelorCullingApp::Options options;
    options.persistPreferences = false;
    options.chooser = &chooser;
    VantelorCullingApp culling(options);
    LibraryModel& library = culling.library();
    MainWindow& window = culling.mainWindow();
    ContentView& content = *window.content();
    window.move(0, 0);
    culling.show();
    if (!QTest::qWaitForWindowExposed(&window))
        std::fprintf(stderr, "the main window was not shown\n");

    shoot(window, QStringLiteral("01-welcome"));

    library.open(folder);
    // The first moment of a folder: the scan or the preparation is under way.
    shoot(window, QStringLiteral("02-preparing"));

    waitFor("the first preview", [&] { return !library.isPreparing() && library.preview().has_value() && !library.previewLoading(); });
    const int third = std::min(3, int(library.visiblePhotos().size()) - 1);
    if (third >= 0)
        library.select(library.visiblePhotos()[third].url);
    waitFor("the selected preview", [&] { return library.displayedID() == library.selectedID() && !library.previewLoading(); });
    waitFor("filmstrip thumbnails", [&] { return thumbnailsSettled(content.filmstrip()); });
    QTest::qWait(200);
    shoot(window, QStringLiteral("03-preview"));

    library.setShowSheet(true);
    waitFor("contact sheet thumbnails", [&] { QApplication::processEvents(); return thumbnailsSettled(content.sheet()); });
    QTest::qWait(300);
    waitFor("contact sheet thumbnails", [&] { return thumbnailsSettled(content.sheet()); });
    shoot(window, QStringLiteral("04-contact-sheet"));
    library.setShowSheet(false);

    // A photo with fine detail in focus: the ladybird's stem.
    const int sharp = indexOf(library, QStringLiteral("DSC_4216.NEF"));
    if (sharp >= 0)
        library.select(library.visiblePhotos()[sharp].url);
    waitFor("the sharp preview", [&] { return library.displayedID() == library.selectedID() && !library.previewLoading(); });
    library.setFocusSensitivity(0.9);
    library.setFocusEnabled(true);
    waitFor("the focus mask", [&] { return content.canvas()->focusShare().has_value(); });
    shoot(window, QStringLiteral("05-focus-peaking"));
    library.setFocusEnabled(false);

    const int jpeg = indexOf(library, QStringLiteral(".JPG"));
    if (jpeg >= 0) {
        library.select(library.visiblePhotos()[jpeg].url);
        library.setRating(4);
        library.setLabel(SessionLabel::yellow);
        waitFor("the JPEG preview", [&] { return library.displayedID() == library.selectedID() && !library.previewLoading(); });
        QTest::qWait(200);
        shoot(window, QStringLiteral("06-jpeg-inspector"));
    }

    // Three photos for a copy.
    if (library.visiblePhotos().size() >= 3) {
        library.select(library.visiblePhotos()[0].url);
        library.selectClick(library.visiblePhotos()[2].url, Qt::ShiftModifier);
        library.chooseTransfer(TransferKind::copy);
        if (waitFor("the transfer sheet", [&] { return content.transferSheet() != nullptr; })) {
            shootWithDialog(window, *content.transferSheet(), QStringLiteral("07-transfer-sheet"));
            // Carried out, so that the destination holds photos for the recovery banner below.
            content.transferSheet()->accept();
            waitFor("the copy", [&] { return !library.transferBusy() && !library.isPreparing(); });
        }
    }

    // A sidecar changed by another program under a pending edit.
    const int nef = indexOf(library, QStringLiteral("3.NEF"));
    if (nef >= 0) {
        const QString url = library.visiblePhotos()[nef].url;
        library.select(url);
        library.setAutoSave(false);
        library.setRating(5);
        const QString sidecar = Paths::join(Paths::parent(url), Paths::baseName(url) + QStringLiteral(".xmp"));
        test::writeFile(sidecar, test::XmpFixtures::lightroom(2, QStringLiteral("Red")));
        library.savePending();
        if (waitFor("the conflict alert", [&] { return content.conflictAlert() != nullptr; })) {
            shootWithDialog(window, *content.conflictAlert(), QStringLiteral("08-conflict-alert"));
            content.conflictAlert()->close();
        }
    }

    library.run(ActionID::preview);
    if (waitFor("the large preview window", [&] { return culling.previewWindow() && culling.previewWindow()->isVisible(); })) {
        waitFor("the large preview", [&] { return !library.previewLoading(); });
        QTest::qWait(300);
        shoot(*culling.previewWindow(), QStringLiteral("09-large-preview"));
    }

    // Another copy into the same destination, stopped half-way: opening it shows the banner.
    if (library.visiblePhotos().size() >= 5 && culling.previewWindow())
        culling.previewWindow()->close();
    if (library.visiblePhotos().size() >= 5
        && leaveInterruptedCopy({library.visiblePhotos()[3].url, library.visiblePhotos()[4].url}, destination.path())) {
        library.open(destination.path());
        if (waitFor("the recovery banner", [&] { return !library.recoveryFinding().isEmpty() && !library.isPreparing() && !library.previewLoading(); })) {
            QTest::qWait(300);
            shoot(window, QStringLiteral("10-recovery-banner"));
            library.recoverTransfers();
            waitFor("the recovery", [&] { return !library.recoveryOutcome().isEmpty() && !library.isPreparing() && !library.previewLoading(); });
            QTest::qWait(300);
            shoot(window, QStringLiteral("11-recovery-done"));
        }
    } else {
        std::fprintf(stderr, "could not leave an interrupted copy\n");
        ++g_failures;
    }

    return g_failures == 0 ? 0 : 1;
}
