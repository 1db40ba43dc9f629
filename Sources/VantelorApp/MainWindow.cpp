#include "MainWindow.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QLabel>
#include <QHeaderView>
#include <QTreeView>
#include <QMenuBar>
#include <QMimeData>
#include <QStatusBar>
#include <QUrl>

#include "Library/FolderIndexer.h"
#include "PhotoListModel.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {
constexpr int scanBatchSize = 256;
}

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("Vantelor"));
    resize(1380, 880);
    setAcceptDrops(true);

    auto* fileMenu = menuBar()->addMenu(QStringLiteral("Archivo"));
    auto* open = fileMenu->addAction(QStringLiteral("Abrir carpeta de fotos…"), this, &MainWindow::chooseFolder);
    open->setShortcut(QKeySequence::Open);
    fileMenu->addSeparator();
    auto* quit = fileMenu->addAction(QStringLiteral("Salir"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);

    m_model = new PhotoListModel(this);
    m_list = new QTreeView(this);
    m_list->setModel(m_model);
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setAlternatingRowColors(true);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->header()->setStretchLastSection(false);
    m_list->header()->setSectionResizeMode(PhotoListModel::name, QHeaderView::Stretch);
    m_list->header()->resizeSection(PhotoListModel::size, 120);
    m_list->header()->resizeSection(PhotoListModel::modified, 200);
    setCentralWidget(m_list);

    m_status = new QLabel(this);
    statusBar()->addWidget(m_status, 1);
    setStatus(QStringLiteral("Abre una carpeta de fotos para empezar"));
}

MainWindow::~MainWindow()
{
    if (m_indexer)
        m_indexer->cancel();
}

void MainWindow::chooseFolder()
{
    // Non-modal, so the window keeps painting while the user browses.
    auto* dialog = new QFileDialog(this, QStringLiteral("Abrir carpeta de fotos…"));
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QFileDialog::fileSelected, this, &MainWindow::openFolder);
    dialog->show();
}

void MainWindow::openFolder(const QString& path)
{
    if (m_indexer)
        m_indexer->cancel();
    m_generation = QUuid::createUuid();
    const QString folder = Paths::clean(path);
    m_indexer = std::make_unique<FolderIndexer>(folder, scanBatchSize);
    m_model->setPhotos({});
    setWindowTitle(QStringLiteral("%1 — Vantelor").arg(Paths::displayText(Paths::fileName(folder))));
    setStatus(QStringLiteral("Leyendo archivos: 0…"));
    requestBatch();
}

void MainWindow::requestBatch()
{
    const QUuid generation = m_generation;
    m_indexer->nextBatch().then(this, [this, generation](const Result<ScanSnapshot>& result) {
        if (generation != m_generation)
            return; // a newer folder superseded this scan
        if (!result) {
            if (!isCancelled(result.failure()))
                setStatus(result.message());
            return;
        }
        const ScanSnapshot& snapshot = *result;
        // The snapshot is the whole sorted list: later photos can land anywhere in it.
        m_model->setPhotos(snapshot.photos);
        if (snapshot.finished) {
            setStatus(QStringLiteral("%1 fotos • RAW sin modificar").arg(snapshot.photos.size()));
            return;
        }
        setStatus(QStringLiteral("Leyendo archivos: %1…").arg(snapshot.photos.size()));
        requestBatch();
    });
}

void MainWindow::setStatus(const QString& text)
{
    m_status->setText(text);
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event)
{
    const auto urls = event->mimeData()->urls();
    for (const QUrl& url : urls) {
        if (url.isLocalFile()) {
            openFolder(Paths::fromFileUrl(url.toString(QUrl::FullyEncoded)));
            event->acceptProposedAction();
            return;
        }
    }
}

} // namespace vantelor
