#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <QAbstractItemModel>
#include <QFileSystemWatcher>
#include <QHash>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include "Files/DirectoryService.h"
#include "Library/SessionLabel.h"
#include "Model/FolderLabels.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// The folder navigator's tree and the state that outlives a window.
//
// Four sections: the home folder, the volumes where cards and disks appear (/media/$USER,
// /run/media/$USER, /mnt and other mounted devices), the recent folders (newest first, at most 20,
// under "VantelorRecent") and the favourites ("VantelorFavorites", in the user's order). Folders
// are kept in the preferences as "file:///…" URLs, so names that are not UTF-8 survive.
// A recent or favourite folder that has vanished (an unplugged card) stays in its list, greyed,
// and comes back to life when its volume returns.
//
// Every folder row expands lazily: its subfolders come from DirectoryService off the GUI thread,
// and a listing that fails leaves its message on that row. Expanded folders are watched and read
// again shortly after they change; refresh() reads every listed folder again.
//
// Colour labels of folders live in the file manager's tags (FolderLabels); where a file system
// refuses them the label is kept in the preferences ("VantelorFolderLabels") instead, silently.
//
// GUI thread only; answers from the workers are dropped when a newer request for the same row
// superseded them or the row is gone. With `persist` false nothing is read from or written to the
// preferences.
class NavigatorModel : public QAbstractItemModel {
    Q_OBJECT

public:
    static constexpr int recentLimit = 20;
    // Changes in a watched folder often come in bursts (a copy, an unpacking): one read after them.
    static constexpr int watchDelayMs = 300;

    enum class Section { home, volumes, recent, favorites };
    enum class Kind { section, folder, newFolder };
    enum Role {
        PathRole = Qt::UserRole + 1,  // QString: the folder's path
        KindRole,                     // int: Kind
        LabelRole,                    // int: SessionLabel
        ErrorRole,                    // QString: why the folder could not be listed or created
        MissingRole,                  // bool: the folder does not exist (now)
    };

    explicit NavigatorModel(bool persist = true, QObject* parent = nullptr);
    // Tests: other attribute calls for the labels, and other places than the real home and mounts.
    NavigatorModel(bool persist, FolderLabels::Attribute attribute, const QString& home,
                   const QStringList& mountRoots, QObject* parent = nullptr);
    ~NavigatorModel() override;

    const QStringList& recentFolders() const { return m_recent; }
    const QStringList& favoriteFolders() const { return m_favorites; }

    // Moves the folder to the top of the recent folders, dropping the oldest past the limit.
    void record(const QString& folder);
    void addFavorite(const QString& folder);
    void removeFavorite(const QString& folder);
    bool isFavorite(const QString& folder) const { return m_favorites.contains(folder); }

    // Reads every listed folder, the volumes and the labels again (after a transfer changed them).
    void refresh();

    // The label shown for a folder (none until its tags were read).
    SessionLabel label(const QString& folder) const { return m_labels.value(folder, SessionLabel::none); }
    void setLabel(const QString& folder, SessionLabel label);

    // Adds an editable row for a new folder under a folder row and returns it; an invalid index
    // when the parent is not a folder or another new folder is being named.
    QModelIndex beginNewFolder(const QModelIndex& parent);
    // The name editor was left without a name: the row goes.
    void cancelNewFolder();

    QModelIndex sectionIndex(Section section) const;
    // The first row showing this folder, looking into loaded rows only.
    QModelIndex findFolder(const QString& folder) const;

    // QAbstractItemModel
    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    bool canFetchMore(const QModelIndex& parent) const override;
    void fetchMore(const QModelIndex& parent) override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

signals:
    void recentChanged();
    void favoritesChanged();
    void refreshRequested();
    // A folder's children finished loading (listed or failed); tests and the view wait on it.
    void folderLoaded(const QModelIndex& folder);
    // The new folder exists; its row appears once its parent was read again.
    void folderCreated(const QString& folder);
    // Creating the new folder failed; the message is on the new-folder row, which stays for
    // another name.
    void newFolderFailed(const QModelIndex& row);
    // The volumes, recent and favourite rows and their vanished marks are up to date.
    void placesUpdated();
    // Folder labels were read from disk.
    void labelsUpdated();

private:
    NavigatorModel(bool persist, FolderLabels::Attribute attribute, const QString& home,
                   const QStringList& mountRoots, bool systemVolumes, QObject* parent);

    struct Node;
    enum class LoadState { unloaded, loading, loaded, failed };

    Node* nodeOf(const QModelIndex& index) const;
    QModelIndex indexOf(const Node* node) const;
    Node* makeNode(Node* parent, Kind kind, const QString& path, const QString& name);
    void forget(Node* node);

    void load(Node* folder);
    void loadAll(const QList<quint64>& ids);
    void setChildren(Node* parent, const QList<std::pair<QString, QString>>& folders);
    void removeRow(Node* node);
    void folderChanged(const QString& path);
    void watchedFoldersChanged();
    void updateList(Section section, const QStringList& folders);
    void updatePlaces();
    void requestLabels(const QStringList& folders);
    void commitNewFolder(Node* row, const QString& name);
    void rowChanged(Node* node);
    void foldersChanged(const QString& folder);
    void saveList(const QString& key, const QStringList& folders) const;
    void saveFallbackLabels() const;

    bool m_persist;
    QString m_home;
    QStringList m_mountRoots;
    // Whether mounted devices outside the mount roots are listed too (not in tests).
    bool m_systemVolumes;
    QStringList m_recent;
    QStringList m_favorites;
    QHash<QString, SessionLabel> m_labels;
    // The newest label write asked for each folder: an older write that ends later must not
    // bring back a colour the user has already replaced.
    QHash<QString, quint64> m_newestLabelWrite;
    quint64 m_labelWrites = 0;
    // Labels of folders whose file system refused the tags attribute.
    QHash<QString, SessionLabel> m_fallbackLabels;
    QSet<QString> m_missing;

    std::unique_ptr<Node> m_root;
    QHash<quint64, Node*> m_nodes;
    quint64 m_nextId = 1;
    Node* m_newFolder = nullptr;
    quint64 m_placesRequest = 0;

    QFileSystemWatcher m_watcher;
    QSet<QString> m_changed;
    QTimer m_watchDelay;

    // Services last: destroyed first, they wait for their running operation while the rest lives.
    FolderLabels m_folderLabels;
    DirectoryService m_directories;
    SerialExecutor m_places;
};

} // namespace vantelor
