#include "ContentView.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTabBar>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <QtConcurrent>

#include "Appearance.h"
#include "FilterBar.h"
#include "HeaderBar.h"
#include "HeaderResizeHandle.h"
#include "InspectorView.h"
#include "Model/LaunchOpener.h"
#include "Model/LibraryModel.h"
#include "NavigatorView.h"
#include "PhotoGridView.h"
#include "PhotoListModel.h"
#include "PreviewCanvas.h"
#include "RecoveryBanner.h"
#include "ShortcutSettingsWindow.h"
#include "Support/Paths.h"
#include "TransferSheet.h"

namespace vantelor {

namespace {

QLabel* titleLabel(const QString& text, double scale, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * scale);
    font.setBold(true);
    label->setFont(font);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    return label;
}

QLabel* centredNote(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    Appearance::styleSecondary(label);
    return label;
}

QWidget* darkPage(QWidget* parent)
{
    auto* page = new QWidget(parent);
    Appearance::fillBackground(page, Appearance::canvas());
    return page;
}

// A folder with a gear, drawn rather than taken from an icon theme that may not be installed.
QPixmap preparingSymbol()
{
    const qreal ratio = 2;
    QPixmap pixmap(QSize(72, 60) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor ink = Appearance::secondaryText();
    painter.setPen(QPen(ink, 2.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    QPainterPath folder;
    folder.moveTo(4, 14);
    folder.lineTo(4, 50);
    folder.quadTo(4, 54, 8, 54);
    folder.lineTo(52, 54);
    folder.moveTo(4, 14);
    folder.quadTo(4, 8, 10, 8);
    folder.lineTo(22, 8);
    folder.lineTo(27, 14);
    folder.lineTo(54, 14);
    folder.quadTo(58, 14, 58, 18);
    folder.lineTo(58, 30);
    painter.drawPath(folder);
    QFont font;
    font.setPixelSize(30);
    painter.setFont(font);
    painter.setPen(Appearance::accent());
    painter.drawText(QRectF(40, 28, 32, 32), Qt::AlignCenter, QString(QChar(0x2699)));
    return pixmap;
}

} // namespace

ContentView::ContentView(LibraryModel& library, bool previewOnly, QWidget* parent)
    : QWidget(parent)
    , m_library(library)
    , m_previewOnly(previewOnly)
    , m_dropOpener(new LaunchOpener(library, this))
{
    setMinimumSize(1040, 680);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    if (previewOnly) {
        setMinimumSize(480, 320);
        m_area = new QStackedWidget(this);
        m_area->addWidget(makePreviewPage());
        layout->addWidget(m_area);
        connect(&library, &LibraryModel::previewChanged, this, &ContentView::refreshArea);
        refreshArea();
        return;
    }

    setAcceptDrops(true);
    m_photos = new PhotoListModel(library, this);

    auto* handle = new HeaderResizeHandle(this);
    m_header = new HeaderBar(library, *handle, this);
    layout->addWidget(m_header);
    layout->addWidget(handle);

    m_tabBar = new QTabBar(this);
    m_tabBar->setTabsClosable(true);
    m_tabBar->setExpanding(false);
    m_tabBar->setDocumentMode(true);
    m_tabBar->setElideMode(Qt::ElideMiddle);
    m_tabBar->setFocusPolicy(Qt::NoFocus);
    m_tabBar->setDrawBase(false);
    connect(m_tabBar, &QTabBar::tabBarClicked, this, [this](int index) {
        const QString url = m_tabBar->tabData(index).toString();
        if (index >= 0 && m_library.folder() != url)
            m_library.open(url);
    });
    connect(m_tabBar, &QTabBar::tabCloseRequested, this, [this](int index) { m_library.closeTab(m_tabBar->tabData(index).toString()); });
    layout->addWidget(m_tabBar);

    m_filterBar = new FilterBar(library, this);
    connect(m_filterBar, &FilterBar::settingsRequested, this, [this] { ShortcutSettingsWindow::present(m_library.shortcuts(), window()); });
    layout->addWidget(m_filterBar);
    auto* divider = new QFrame(this);
    divider->setFixedHeight(1);
    divider->setStyleSheet(QStringLiteral("background: #0e0f11;"));
    layout->addWidget(divider);
    m_recoveryBanner = new RecoveryBanner(library, this);
    layout->addWidget(m_recoveryBanner);

    m_columns = new QSplitter(Qt::Horizontal, this);
    m_columns->setChildrenCollapsible(false);
    m_columns->setHandleWidth(1);

    auto* left = new QSplitter(Qt::Vertical, m_columns);
    left->setChildrenCollapsible(false);
    left->setHandleWidth(1);
    m_leftColumn = left;
    m_filmstrip = new PhotoGridView(library, *m_photos, PhotoGridView::Layout::filmstrip, left);
    m_filmstrip->setMinimumHeight(160);
    auto* navigator = new NavigatorView(library, left);
    navigator->setMinimumHeight(120);
    left->addWidget(m_filmstrip);
    left->addWidget(navigator);
    left->setStretchFactor(0, 3);
    left->setStretchFactor(1, 2);
    left->setMinimumWidth(190);
    m_columns->addWidget(left);

    m_area = new QStackedWidget(m_columns);
    m_welcome = makeWelcome();
    m_preparing = makePreparing();
    m_previewPage = makePreviewPage();
    m_sheet = new PhotoGridView(library, *m_photos, PhotoGridView::Layout::sheet, m_area);
    m_empty = makeEmpty();
    for (QWidget* page : {m_welcome, m_preparing, m_previewPage, static_cast<QWidget*>(m_sheet), m_empty})
        m_area->addWidget(page);
    m_columns->addWidget(m_area);

    m_inspector = new InspectorView(library, *m_canvas, m_columns);
    m_inspector->setMinimumWidth(250);
    m_columns->addWidget(m_inspector);
    m_columns->setStretchFactor(0, 0);
    m_columns->setStretchFactor(1, 1);
    m_columns->setStretchFactor(2, 0);
    m_columns->setSizes({210, 870, 290});
    layout->addWidget(m_columns, 1);

    auto* footer = new QLabel(QStringLiteral("← → Navegar   Intro Vista previa   P Enfoque   ⌘S Guardar"), this);
    footer->setContentsMargins(16, 5, 16, 6);
    Appearance::fillBackground(footer, Appearance::panel());
    Appearance::styleSecondary(footer);
    layout->addWidget(footer);

    for (auto signal : {&LibraryModel::folderChanged, &LibraryModel::preparationChanged, &LibraryModel::visiblePhotosChanged,
             &LibraryModel::displayChanged, &LibraryModel::previewChanged, &LibraryModel::photosChanged})
        connect(&library, signal, this, &ContentView::refreshArea);
    connect(&library, &LibraryModel::preparationChanged, this, &ContentView::refreshPreparation);
    connect(&library, &LibraryModel::photosChanged, this, &ContentView::refreshPreparation);
    connect(&library, &LibraryModel::tabsChanged, this, &ContentView::refreshTabs);
    connect(&library, &LibraryModel::folderChanged, this, &ContentView::refreshTabs);
    connect(&library, &LibraryModel::selectionChanged, this, &ContentView::refreshPosition);
    connect(&library, &LibraryModel::visiblePhotosChanged, this, &ContentView::refreshPosition);
    connect(&library, &LibraryModel::metadataChanged, this, &ContentView::showConflict);
    connect(&library, &LibraryModel::transferChanged, this, &ContentView::showTransfer);
    for (auto signal : {&LibraryModel::transferChanged, &LibraryModel::preparationChanged, &LibraryModel::folderChanged})
        connect(&library, signal, this, &ContentView::refreshEnabled);
    refreshArea();
    refreshPreparation();
    refreshTabs();
    refreshEnabled();
    refreshPosition();
}

QWidget* ContentView::makeWelcome()
{
    auto* page = darkPage(this);
    auto* layout = new QVBoxLayout(page);
    layout->setSpacing(10);
    layout->addStretch(3);
    layout->addWidget(titleLabel(QStringLiteral("Tu próxima selección empieza aquí."), 1.7, page));
    layout->addWidget(centredNote(QStringLiteral("Arrastra una carpeta a esta ventana o haz doble clic en una carpeta del panel izquierdo."), page));
    layout->addSpacing(14);
    auto* open = new QPushButton(QStringLiteral("Abrir carpeta de fotos…"), page);
    open->setFocusPolicy(Qt::NoFocus);
    open->setMinimumHeight(34);
    open->setStyleSheet(QStringLiteral("QPushButton { padding: 6px 18px; }"));
    connect(open, &QPushButton::clicked, this, [this] { m_library.chooseFolder(); });
    layout->addWidget(open, 0, Qt::AlignHCenter);
    layout->addSpacing(22);
    for (const QString& hint : {QStringLiteral("Abre una carpeta para empezar. Los originales se conservan intactos."),
             QStringLiteral("Las estrellas y colores de NEF se guardan en XMP. Los de JPEG solo duran esta sesión.")}) {
        auto* label = centredNote(QStringLiteral("•  ") + hint, page);
        layout->addWidget(label);
    }
    layout->addStretch(4);
    return page;
}

QWidget* ContentView::makePreparing()
{
    auto* page = darkPage(this);
    auto* layout = new QVBoxLayout(page);
    layout->setSpacing(12);
    layout->addStretch(3);
    auto* symbol = new QLabel(page);
    symbol->setPixmap(preparingSymbol());
    symbol->setAlignment(Qt::AlignCenter);
    layout->addWidget(symbol);
    m_preparingTitle = titleLabel(QStringLiteral("Preparando carpeta…"), 1.45, page);
    layout->addWidget(m_preparingTitle);
    m_progress = new QProgressBar(page);
    m_progress->setTextVisible(false);
    m_progress->setFixedWidth(360);
    m_progress->setFixedHeight(8);
    layout->addWidget(m_progress, 0, Qt::AlignHCenter);
    m_preparingStatus = centredNote(QString(), page);
    layout->addWidget(m_preparingStatus);
    m_restart = new QPushButton(QStringLiteral("Volver a preparar"), page);
    m_restart->setFocusPolicy(Qt::NoFocus);
    connect(m_restart, &QPushButton::clicked, this, [this] { m_library.restartPreparation(); });
    layout->addWidget(m_restart, 0, Qt::AlignHCenter);
    m_stop = new QPushButton(QStringLiteral("Detener"), page);
    m_stop->setFocusPolicy(Qt::NoFocus);
    connect(m_stop, &QPushButton::clicked, this, [this] { m_library.stopPreparation(); });
    layout->addWidget(m_stop, 0, Qt::AlignHCenter);
    layout->addStretch(4);
    return page;
}

QWidget* ContentView::makePreviewPage()
{
    auto* page = darkPage(this);
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_previewStack = new QStackedWidget(page);
    m_canvas = new PreviewCanvas(m_library, m_previewStack);
    m_failed = darkPage(m_previewStack);
    auto* failedLayout = new QVBoxLayout(m_failed);
    failedLayout->addStretch();
    failedLayout->addWidget(titleLabel(QStringLiteral("Vista previa no disponible"), 1.3, m_failed));
    m_failedText = centredNote(QString(), m_failed);
    m_failedText->setMaximumWidth(520);
    failedLayout->addWidget(m_failedText, 0, Qt::AlignHCenter);
    failedLayout->addStretch();
    m_previewStack->addWidget(m_canvas);
    m_previewStack->addWidget(m_failed);
    layout->addWidget(m_previewStack, 1);
    if (m_previewOnly)
        return page;

    auto* bar = new QWidget(page);
    auto* barLayout = new QHBoxLayout(bar);
    barLayout->setContentsMargins(12, 6, 12, 8);
    m_previous = new QPushButton(QStringLiteral("Foto anterior · ←"), bar);
    m_next = new QPushButton(QStringLiteral("Foto siguiente · →"), bar);
    for (QPushButton* button : {m_previous, m_next}) {
        button->setFocusPolicy(Qt::NoFocus);
        button->setMinimumWidth(150);
    }
    connect(m_previous, &QPushButton::clicked, this, [this] { m_library.move(-1); });
    connect(m_next, &QPushButton::clicked, this, [this] { m_library.move(1); });
    m_position = new QLabel(bar);
    m_position->setAlignment(Qt::AlignCenter);
    Appearance::styleSecondary(m_position);
    barLayout->addWidget(m_previous);
    barLayout->addStretch();
    barLayout->addWidget(m_position);
    barLayout->addStretch();
    barLayout->addWidget(m_next);
    layout->addWidget(bar);
    return page;
}

QWidget* ContentView::makeEmpty()
{
    auto* page = darkPage(this);
    auto* layout = new QVBoxLayout(page);
    layout->addStretch();
    layout->addWidget(titleLabel(QStringLiteral("Selecciona una fotografía"), 1.3, page));
    layout->addWidget(centredNote(QStringLiteral("Abre una carpeta o ajusta los filtros."), page));
    layout->addStretch();
    return page;
}

ContentView::Page ContentView::page() const
{
    QWidget* current = m_area->currentWidget();
    if (current == m_welcome)
        return Page::welcome;
    if (current == m_preparing)
        return Page::preparing;
    if (current == m_sheet)
        return Page::sheet;
    if (current == m_empty)
        return Page::empty;
    return m_previewStack->currentWidget() == m_failed ? Page::previewFailed : Page::preview;
}

void ContentView::refreshArea()
{
    const auto& error = m_library.previewError();
    if (error)
        m_failedText->setText(*error);
    m_previewStack->setCurrentWidget(error ? m_failed : static_cast<QWidget*>(m_canvas));
    if (m_previewOnly)
        return;

    const bool preparing = m_library.isPreparing() || m_library.preparationCancelled();
    QWidget* target = m_previewPage;
    if (!m_library.folder() && m_library.photos().isEmpty() && !preparing)
        target = m_welcome;
    else if (preparing)
        target = m_preparing;
    else if (m_library.visiblePhotos().isEmpty())
        target = m_empty;
    else if (m_library.showSheet())
        target = m_sheet;
    m_area->setCurrentWidget(target);
    // The sheet shows every photo already; the filmstrip would repeat it.
    m_filmstrip->setVisible(!m_library.showSheet());
}

void ContentView::refreshPreparation()
{
    if (m_previewOnly)
        return;
    const bool stopped = m_library.preparationCancelled();
    m_preparingTitle->setText(stopped ? QStringLiteral("Preparación detenida") : QStringLiteral("Preparando carpeta…"));
    const int total = m_library.preparationTotal();
    if (total > 0) {
        m_progress->setRange(0, total);
        m_progress->setValue(std::min(m_library.preparationDone(), total));
    } else {
        // Still reading the folder: the count is not known yet.
        m_progress->setRange(0, m_library.isPreparing() ? 0 : 1);
        m_progress->setValue(0);
    }
    QString status = m_library.preparationStatus();
    if (total > 0)
        status += QStringLiteral("  %1 / %2").arg(m_library.preparationDone()).arg(total);
    m_preparingStatus->setText(status);
    m_restart->setVisible(stopped);
    m_stop->setVisible(!stopped && m_library.isPreparing());
}

void ContentView::refreshTabs()
{
    if (m_previewOnly)
        return;
    const QSignalBlocker blocker(m_tabBar);
    const QStringList& tabs = m_library.tabs();
    while (m_tabBar->count() > tabs.size())
        m_tabBar->removeTab(m_tabBar->count() - 1);
    for (int i = 0; i < tabs.size(); ++i) {
        if (i >= m_tabBar->count()) {
            m_tabBar->addTab(QString());
            // A quiet close mark instead of the style's red icon.
            auto* close = new QToolButton(m_tabBar);
            close->setText(QStringLiteral("×"));
            close->setAutoRaise(true);
            close->setFocusPolicy(Qt::NoFocus);
            close->setFixedSize(18, 18);
            close->setToolTip(QStringLiteral("Cerrar pestaña"));
            close->setAccessibleName(QStringLiteral("Cerrar pestaña"));
            connect(close, &QToolButton::clicked, this, [this, close] {
                for (int t = 0; t < m_tabBar->count(); ++t) {
                    if (m_tabBar->tabButton(t, QTabBar::RightSide) == close)
                        m_library.closeTab(m_tabBar->tabData(t).toString());
                }
            });
            m_tabBar->setTabButton(i, QTabBar::RightSide, close);
        }
        m_tabBar->setTabText(i, Paths::displayText(Paths::fileName(tabs[i])));
        m_tabBar->setTabToolTip(i, Paths::displayText(tabs[i]));
        m_tabBar->setTabData(i, tabs[i]);
        if (m_library.folder() == tabs[i])
            m_tabBar->setCurrentIndex(i);
    }
    m_tabBar->setVisible(!tabs.isEmpty());
}

void ContentView::refreshEnabled()
{
    if (m_previewOnly)
        return;
    const bool busy = m_library.transferBusy() || m_library.isPreparing() || m_library.preparationCancelled();
    m_filterBar->setEnabled(!busy && m_library.folder().has_value());
    m_inspector->setEnabled(!busy);
}

void ContentView::refreshPosition()
{
    if (m_previewOnly)
        return;
    const auto position = m_library.selectedPosition();
    const int count = int(m_library.visiblePhotos().size());
    m_position->setText(position ? QStringLiteral("%1 / %2").arg(*position + 1).arg(count) : QString());
    m_previous->setEnabled(position && *position > 0);
    m_next->setEnabled(position && *position + 1 < count);
}

void ContentView::showConflict()
{
    const auto& url = m_library.conflictURL();
    if (!url || m_conflictAlert)
        return;
    auto* alert = new QMessageBox(window());
    m_conflictAlert = alert;
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::WindowModal);
    alert->setIcon(QMessageBox::Warning);
    alert->setStyleSheet(QStringLiteral("QLabel { min-width: 400px; }"));
    alert->setWindowTitle(QStringLiteral("XMP modificado fuera de Vantelor"));
    alert->setText(QStringLiteral("XMP modificado fuera de Vantelor"));
    alert->setInformativeText(Paths::displayText(Paths::fileName(*url))
        + QStringLiteral("\nCombinar aplica únicamente los campos que editaste. Cargar descarta tus cambios pendientes de esta foto."));
    // One role for both keeps them in this order whatever the platform's button layout.
    auto* load = alert->addButton(QStringLiteral("Cargar XMP externo"), QMessageBox::ActionRole);
    auto* merge = alert->addButton(QStringLiteral("Combinar los campos editados"), QMessageBox::ActionRole);
    alert->setDefaultButton(merge);
    connect(alert, &QMessageBox::buttonClicked, this, [this, load, merge](QAbstractButton* button) {
        if (button == load)
            m_library.resolveConflict(false);
        else if (button == merge)
            m_library.resolveConflict(true);
    });
    alert->open();
}

void ContentView::showTransfer()
{
    const auto& plan = m_library.transferPlan();
    if (!plan) {
        if (m_transferSheet) {
            // Closed by the controller: no answer is owed.
            m_transferSheet->disconnect(this);
            m_transferSheet->close();
        }
        return;
    }
    if (m_transferSheet)
        return;
    auto* sheet = new TransferSheet(*plan, window());
    m_transferSheet = sheet;
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &QDialog::accepted, this, [this] { m_library.confirmTransfer(); });
    connect(sheet, &QDialog::rejected, this, [this] { m_library.cancelTransfer(); });
    sheet->open();
}

void ContentView::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void ContentView::dropEvent(QDropEvent* event)
{
    for (const QUrl& url : event->mimeData()->urls()) {
        if (!url.isLocalFile())
            continue;
        // Whether it names a folder or a photo (which opens its folder, selected) is a question
        // for the disk, and the GUI thread never waits on one.
        const QByteArray argument = url.toString(QUrl::FullyEncoded).toUtf8();
        QtConcurrent::run([argument] { return LaunchTarget::resolve(argument, QString()); })
            .then(this, [this](const LaunchTarget& target) { m_dropOpener->open({target}); });
        event->acceptProposedAction();
        return;
    }
}

} // namespace vantelor
