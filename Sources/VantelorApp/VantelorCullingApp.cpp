#include "VantelorCullingApp.h"

#include <QApplication>
#include <QLocale>
#include <QMessageBox>
#include <QPalette>
#include <QPushButton>
#include <QSessionManager>
#include <QStyleFactory>

#include "MainWindow.h"
#include "Model/LibraryModel.h"
#include "PreviewWindow.h"
#include "Previews/PreviewService.h"
#include "QFileDialogChooser.h"

namespace vantelor {

namespace {

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x1f, 0x21, 0x24);
    const QColor base(0x17, 0x18, 0x1a);
    const QColor text(0xe6, 0xe6, 0xe6);
    const QColor accent(0x3d, 0x8b, 0xfd);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x2f, 0x32, 0x37));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, accent);
    p.setColor(QPalette::PlaceholderText, QColor(0x8a, 0x8f, 0x98));
    p.setColor(QPalette::Light, QColor(0x3a, 0x3d, 0x42));
    p.setColor(QPalette::Midlight, QColor(0x33, 0x36, 0x3b));
    p.setColor(QPalette::Mid, QColor(0x26, 0x28, 0x2c));
    p.setColor(QPalette::Dark, QColor(0x12, 0x13, 0x15));
    p.setColor(QPalette::Shadow, Qt::black);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, QColor(0x6b, 0x6f, 0x76));
    return p;
}

} // namespace

VantelorCullingApp::VantelorCullingApp() : VantelorCullingApp(Options{}) {}

VantelorCullingApp::VantelorCullingApp(Options options)
    : m_options(options)
    , m_previews(std::make_unique<PreviewService>(PreviewService::sharedCacheBytes))
{
    LibraryModel::Dependencies dependencies;
    dependencies.previews = m_previews.get();
    if (options.chooser) {
        dependencies.chooser = options.chooser;
    } else {
        m_chooser = std::make_unique<QFileDialogChooser>(nullptr);
        dependencies.chooser = m_chooser.get();
    }
    dependencies.persistPreferences = options.persistPreferences;
    dependencies.autosaveDelayMs = options.autosaveDelayMs;
    m_library = std::make_unique<LibraryModel>(std::move(dependencies));
    m_mainWindow = std::make_unique<MainWindow>(*m_library, [this] { requestQuit(); });
    if (m_chooser)
        m_chooser->setParentWidget(m_mainWindow.get());

    connect(m_library.get(), &LibraryModel::previewRequestChanged, this, &VantelorCullingApp::showPreviewWindow);
    if (auto* gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        connect(gui, &QGuiApplication::commitDataRequest, this, &VantelorCullingApp::commitData, Qt::DirectConnection);
}

VantelorCullingApp::~VantelorCullingApp()
{
    // Windows before the controller they observe; the controller before the preview service.
    m_previewWindow.reset();
    m_mainWindow.reset();
    m_library.reset();
    m_chooser.reset();
}

void VantelorCullingApp::applyAppearance()
{
    QLocale::setDefault(QLocale(QLocale::Spanish, QLocale::Spain));
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(darkPalette());
}

void VantelorCullingApp::show()
{
    m_mainWindow->show();
}

void VantelorCullingApp::showPreviewWindow()
{
    if (!m_previewWindow)
        m_previewWindow = std::make_unique<PreviewWindow>(*m_library);
    m_previewWindow->show();
    m_previewWindow->raise();
    m_previewWindow->activateWindow();
}

void VantelorCullingApp::requestQuit()
{
    if (m_terminated || m_quitAlert)
        return;
    const LibraryModel& library = *m_library;
    if (library.transferBusy() || library.isSaving()) {
        auto* alert = new QMessageBox(QMessageBox::Information, QStringLiteral("Vantelor"),
            QStringLiteral("Espera a que termine la operación de archivos."), QMessageBox::Ok, m_mainWindow.get());
        alert->setAttribute(Qt::WA_DeleteOnClose);
        alert->setWindowModality(Qt::WindowModal);
        m_quitAlert = alert;
        alert->open();
        return;
    }
    if (library.dirty().isEmpty()) {
        finishQuit();
        return;
    }
    auto* alert = new QMessageBox(m_mainWindow.get());
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::WindowModal);
    alert->setIcon(QMessageBox::Question);
    alert->setWindowTitle(QStringLiteral("Vantelor"));
    alert->setText(QStringLiteral("¿Guardar los cambios XMP pendientes?"));
    alert->setInformativeText(QStringLiteral("Hay %1 fotos NEF con estrellas o colores sin guardar. Las valoraciones JPEG solo duran esta sesión.")
                                  .arg(library.dirty().size()));
    // One role for all three keeps them in this order on every platform layout.
    auto* save = alert->addButton(QStringLiteral("Guardar y salir"), QMessageBox::ActionRole);
    auto* cancel = alert->addButton(QStringLiteral("Cancelar"), QMessageBox::ActionRole);
    auto* discard = alert->addButton(QStringLiteral("Descartar y salir"), QMessageBox::ActionRole);
    alert->setDefaultButton(save);
    alert->setEscapeButton(cancel);
    connect(alert, &QMessageBox::buttonClicked, this, [this, save, discard](QAbstractButton* button) {
        if (button == discard) {
            finishQuit();
        } else if (button == save) {
            m_quitting = true;
            m_library->savePending().then(this, [this] {
                m_quitting = false;
                // A failed save keeps the application open; the window shows why.
                if (m_library->dirty().isEmpty())
                    finishQuit();
            });
        }
    });
    m_quitAlert = alert;
    alert->open();
}

void VantelorCullingApp::finishQuit()
{
    if (m_terminated)
        return;
    m_terminated = true;
    m_mainWindow->approveClose();
    if (m_previewWindow)
        m_previewWindow->close();
    m_mainWindow->close();
    emit terminated();
}

void VantelorCullingApp::commitData(QSessionManager& manager)
{
    if (m_terminated)
        return;
    const LibraryModel& library = *m_library;
    const bool mustAsk = library.transferBusy() || library.isSaving() || !library.dirty().isEmpty() || m_quitting;
    if (!mustAsk) {
        finishQuit();
        return;
    }
    // The session waits for the user: the alert answers later, as for any other quit.
    if (manager.allowsInteraction()) {
        manager.cancel();
        requestQuit();
    }
}

} // namespace vantelor
