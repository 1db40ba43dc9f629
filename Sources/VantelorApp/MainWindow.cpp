#include "MainWindow.h"

#include <QCloseEvent>
#include <QMenuBar>

#include "ContentView.h"
#include "KeyboardInput.h"
#include "Model/LibraryModel.h"
#include "Model/ShortcutStore.h"
#include "ShortcutSettingsWindow.h"
#include "Support/Paths.h"

namespace vantelor {

MainWindow::MainWindow(LibraryModel& library, std::function<void()> requestQuit, QWidget* parent)
    : QMainWindow(parent)
    , m_library(library)
    , m_requestQuit(std::move(requestQuit))
{
    setObjectName(QStringLiteral("main"));
    resize(1380, 880);
    m_content = new ContentView(library, false, this);
    setCentralWidget(m_content);
    setMinimumSize(1040, 680);

    auto* file = menuBar()->addMenu(QStringLiteral("Archivo"));
    file->addAction(QStringLiteral("Abrir carpeta de fotos…"), this, [this] { m_library.chooseFolder(); });
    file->addAction(QStringLiteral("Actualizar carpeta"), this, [this] { m_library.reload(); });
    file->addAction(QStringLiteral("Guardar XMP"), this, [this] { m_library.savePending(); });
    file->addSeparator();
    m_autoSaveAction = file->addAction(QStringLiteral("Guardar automáticamente estrellas y colores en XMP junto a NEF"));
    m_autoSaveAction->setCheckable(true);
    connect(m_autoSaveAction, &QAction::triggered, this, [this](bool on) { m_library.setAutoSave(on); });
    file->addSeparator();
    file->addAction(QStringLiteral("Salir"), this, [this] { m_requestQuit(); });

    // Where desktop users look for settings: the keyboard and mouse shortcuts.
    menuBar()->addMenu(QStringLiteral("Editar"))->addAction(ShortcutSettingsWindow::preferencesAction(library.shortcuts(), this));

    auto* photos = menuBar()->addMenu(QStringLiteral("Fotografías"));
    m_sheetAction = photos->addAction(QString(), this, [this] { m_library.setShowSheet(!m_library.showSheet()); });
    photos->addAction(QStringLiteral("Abrir vista previa grande"), this, [this] { m_library.run(ActionID::preview); });
    photos->addAction(QStringLiteral("Foto siguiente"), this, [this] { m_library.move(1); });
    photos->addAction(QStringLiteral("Foto anterior"), this, [this] { m_library.move(-1); });

    new KeyboardInput(this, [lib = &library](const InputTrigger& trigger) {
        const auto action = lib->shortcuts().profile().action(trigger);
        return action && lib->run(*action);
    });

    connect(&library, &LibraryModel::displayChanged, this, &MainWindow::refreshTitle);
    connect(&library, &LibraryModel::folderChanged, this, &MainWindow::refreshTitle);
    connect(&library, &LibraryModel::metadataChanged, this, [this] { m_autoSaveAction->setChecked(m_library.autoSave()); });
    m_autoSaveAction->setChecked(library.autoSave());
    refreshTitle();
}

void MainWindow::refreshTitle()
{
    m_sheetAction->setText(m_library.showSheet() ? QStringLiteral("Vista previa individual") : QStringLiteral("Hoja de contactos"));
    const auto& folder = m_library.folder();
    setWindowTitle(folder ? Paths::displayText(Paths::fileName(*folder)) + QStringLiteral(" — Vantelor") : QStringLiteral("Vantelor"));
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_closeApproved) {
        event->accept();
        return;
    }
    event->ignore();
    m_requestQuit();
}

} // namespace vantelor
