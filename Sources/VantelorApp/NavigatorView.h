#pragma once

#include <QWidget>

class QModelIndex;
class QToolButton;
class QTreeView;

namespace vantelor {

class LibraryModel;
class NavigatorModel;

// The folder tree on the left of the main window: home, volumes, recent folders, favourites.
//
// A double click or Enter opens the folder in the current tab: the tab being left is closed
// (after its edits are saved) unless the folder was already open in a tab, so browsing with the
// tree does not pile up tabs. A middle click or "Abrir en una pestaña nueva" keeps the current tab
// and adds one. The context menu also adds and removes favourites, sets the folder's colour label
// and starts a new folder, named in place; so does the button under the tree.
class NavigatorView : public QWidget {
    Q_OBJECT

public:
    explicit NavigatorView(LibraryModel& library, QWidget* parent = nullptr);

    QTreeView* tree() const { return m_tree; }

    void openInCurrentTab(const QString& folder);
    void openInNewTab(const QString& folder);
    // Starts naming a new folder inside the row's folder (the home folder when it is not one).
    void newFolder(const QModelIndex& parent);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showMenu(const QPoint& position);
    void expandSections();
    // Gives the arrows back to the photos.
    void returnKeys();

    LibraryModel& m_library;
    NavigatorModel& m_model;
    QTreeView* m_tree = nullptr;
    QToolButton* m_newFolderButton = nullptr;
    // The folder just created, selected once its parent was read again.
    QString m_created;
};

} // namespace vantelor
