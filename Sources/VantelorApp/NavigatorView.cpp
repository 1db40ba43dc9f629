#include "NavigatorView.h"

#include <QAbstractItemDelegate>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QTimer>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

#include "KeyboardInput.h"
#include "Model/LibraryModel.h"
#include "Model/NavigatorModel.h"
#include "NavigatorDelegate.h"

namespace vantelor {

namespace {

QString folderOf(const QModelIndex& index)
{
    if (NavigatorModel::Kind(index.data(NavigatorModel::KindRole).toInt()) != NavigatorModel::Kind::folder)
        return {};
    return index.data(NavigatorModel::PathRole).toString();
}

QString labelTitle(SessionLabel label)
{
    switch (label) {
    case SessionLabel::none: return QStringLiteral("Quitar color");
    case SessionLabel::red: return QStringLiteral("Etiqueta roja");
    case SessionLabel::yellow: return QStringLiteral("Etiqueta amarilla");
    case SessionLabel::green: return QStringLiteral("Etiqueta verde");
    case SessionLabel::blue: return QStringLiteral("Etiqueta azul");
    case SessionLabel::purple: return QStringLiteral("Etiqueta morada");
    }
    return {};
}

QIcon dotIcon(SessionLabel label)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    if (label == SessionLabel::none) {
        painter.setPen(QPen(QColor(0x8a, 0x8f, 0x98), 1.2));
        painter.drawEllipse(QRectF(3.5, 3.5, 9, 9));
    } else {
        painter.setPen(Qt::NoPen);
        painter.setBrush(NavigatorDelegate::labelColor(label));
        painter.drawEllipse(QRectF(3, 3, 10, 10));
    }
    return QIcon(pixmap);
}

} // namespace

NavigatorView::NavigatorView(LibraryModel& library, QWidget* parent)
    : QWidget(parent)
    , m_library(library)
    , m_model(library.navigator())
{
    m_tree = new QTreeView(this);
    m_tree->setModel(&m_model);
    m_tree->setItemDelegate(new NavigatorDelegate(m_tree));
    m_tree->setHeaderHidden(true);
    // Sections stay open: their titles need no expander.
    m_tree->setRootIsDecorated(false);
    m_tree->setIndentation(14);
    m_tree->setExpandsOnDoubleClick(false);
    m_tree->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_tree->setFrameShape(QFrame::NoFrame);
    m_tree->setTextElideMode(Qt::ElideMiddle);
    m_tree->viewport()->installEventFilter(this);
    // Walking the tree takes the arrows and Enter; Esc, a folder opened or a click elsewhere gives
    // them back to the photos.
    KeyboardInput::keepNavigationKeys(m_tree);
    m_tree->installEventFilter(this);

    m_newFolderButton = new QToolButton(this);
    m_newFolderButton->setText(QStringLiteral("Nueva carpeta"));
    m_newFolderButton->setIcon(QIcon::fromTheme(QStringLiteral("folder-new"), style()->standardIcon(QStyle::SP_FileDialogNewFolder)));
    m_newFolderButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_newFolderButton->setAutoRaise(true);
    m_newFolderButton->setToolTip(QStringLiteral("Crea una carpeta dentro de la carpeta elegida"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(m_tree, 1);
    layout->addWidget(m_newFolderButton, 0, Qt::AlignLeft);

    // Enter, and a double click under Fusion, activate a row.
    connect(m_tree, &QTreeView::activated, this, [this](const QModelIndex& index) {
        const QString folder = folderOf(index);
        if (!folder.isEmpty()) {
            openInCurrentTab(folder);
            returnKeys();
        }
    });
    connect(m_tree, &QTreeView::customContextMenuRequested, this, &NavigatorView::showMenu);
    connect(m_newFolderButton, &QToolButton::clicked, this, [this] { newFolder(m_tree->currentIndex()); });

    connect(m_tree->itemDelegate(), &QAbstractItemDelegate::closeEditor, this,
            [this](QWidget*, QAbstractItemDelegate::EndEditHint hint) {
                if (hint == QAbstractItemDelegate::RevertModelCache)
                    m_model.cancelNewFolder();
            });
    // Queued: the failed name may come back while the view is still closing the editor.
    connect(&m_model, &NavigatorModel::newFolderFailed, this, [this](const QModelIndex& failed) {
        QTimer::singleShot(0, this, [this, row = QPersistentModelIndex(failed)] {
            if (!row.isValid())
                return;
            m_tree->setCurrentIndex(row);
            m_tree->edit(row);
        });
    });
    connect(&m_model, &NavigatorModel::folderCreated, this, [this](const QString& folder) { m_created = folder; });
    connect(&m_model, &NavigatorModel::folderLoaded, this, [this] {
        if (m_created.isEmpty())
            return;
        const QModelIndex created = m_model.findFolder(m_created);
        if (!created.isValid())
            return;
        m_created.clear();
        m_tree->setCurrentIndex(created);
        m_tree->scrollTo(created);
    });
    connect(&m_model, &NavigatorModel::placesUpdated, this, &NavigatorView::expandSections);
    expandSections();
    // The home folder starts open: its subfolders are where most shoots are.
    m_tree->expand(m_model.index(0, 0, m_model.sectionIndex(NavigatorModel::Section::home)));
}

void NavigatorView::expandSections()
{
    for (auto section : {NavigatorModel::Section::home, NavigatorModel::Section::volumes,
                         NavigatorModel::Section::recent, NavigatorModel::Section::favorites}) {
        const QModelIndex index = m_model.sectionIndex(section);
        if (!m_tree->isExpanded(index))
            m_tree->expand(index);
    }
}

void NavigatorView::openInCurrentTab(const QString& folder)
{
    const std::optional<QString> leaving = m_library.folder();
    const bool alreadyOpen = m_library.tabs().contains(folder);
    m_library.open(folder);
    if (leaving && *leaving != folder && !alreadyOpen && m_library.folder() != leaving)
        m_library.closeTab(*leaving);
}

void NavigatorView::openInNewTab(const QString& folder)
{
    m_library.open(folder);
}

void NavigatorView::newFolder(const QModelIndex& parent)
{
    QModelIndex target = parent;
    if (folderOf(target).isEmpty() || target.data(NavigatorModel::MissingRole).toBool())
        target = m_model.index(0, 0, m_model.sectionIndex(NavigatorModel::Section::home));
    m_tree->expand(target);
    const QModelIndex row = m_model.beginNewFolder(target);
    if (!row.isValid())
        return;
    m_tree->setCurrentIndex(row);
    m_tree->scrollTo(row);
    m_tree->edit(row);
}

void NavigatorView::returnKeys()
{
    if (KeyboardInput* input = KeyboardInput::of(this))
        input->prepareNavigation();
}

bool NavigatorView::eventFilter(QObject* watched, QEvent* event)
{
    // A folder name being typed has the focus itself: its Esc never comes here.
    if (watched == m_tree && event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
        returnKeys();
        return true;
    }
    if (watched == m_tree->viewport() && event->type() == QEvent::MouseButtonRelease) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::MiddleButton) {
            const QString folder = folderOf(m_tree->indexAt(mouse->position().toPoint()));
            if (!folder.isEmpty())
                openInNewTab(folder);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void NavigatorView::showMenu(const QPoint& position)
{
    const QModelIndex index = m_tree->indexAt(position);
    const QString folder = folderOf(index);
    if (folder.isEmpty())
        return;
    const bool missing = index.data(NavigatorModel::MissingRole).toBool();

    // Shown without a nested event loop; it deletes itself when closed.
    auto* menuWidget = new QMenu(this);
    menuWidget->setAttribute(Qt::WA_DeleteOnClose);
    QMenu& menu = *menuWidget;
    menu.addAction(QStringLiteral("Abrir"), this, [this, folder] { openInCurrentTab(folder); })->setEnabled(!missing);
    menu.addAction(QStringLiteral("Abrir en una pestaña nueva"), this, [this, folder] { openInNewTab(folder); })->setEnabled(!missing);
    menu.addSeparator();
    if (m_model.isFavorite(folder))
        menu.addAction(QStringLiteral("Quitar de favoritas"), this, [this, folder] { m_model.removeFavorite(folder); });
    else
        menu.addAction(QStringLiteral("Añadir a favoritas"), this, [this, folder] { m_model.addFavorite(folder); });

    QMenu* labels = menu.addMenu(QStringLiteral("Etiqueta de color"));
    labels->setEnabled(!missing);
    const SessionLabel current = m_model.label(folder);
    for (SessionLabel label : {SessionLabel::red, SessionLabel::yellow, SessionLabel::green, SessionLabel::blue,
                               SessionLabel::purple, SessionLabel::none}) {
        if (label == SessionLabel::none)
            labels->addSeparator();
        QAction* action = labels->addAction(dotIcon(label), labelTitle(label), this,
                                            [this, folder, label] { m_model.setLabel(folder, label); });
        action->setCheckable(label != SessionLabel::none);
        action->setChecked(label != SessionLabel::none && label == current);
    }
    menu.addSeparator();
    menu.addAction(QStringLiteral("Nueva carpeta…"), this, [this, row = QPersistentModelIndex(index)] {
        newFolder(row);
    })->setEnabled(!missing);
    menu.popup(m_tree->viewport()->mapToGlobal(position));
}

} // namespace vantelor
