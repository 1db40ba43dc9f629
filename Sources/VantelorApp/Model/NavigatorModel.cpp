#include "Model/NavigatorModel.h"

#include <algorithm>
#include <pwd.h>
#include <unistd.h>

#include <QSettings>
#include <QStorageInfo>

#include "Support/BrowserError.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"
#include "Support/SystemError.h"

namespace vantelor {

namespace {

const QString recentKey = QStringLiteral("VantelorRecent");
const QString favoritesKey = QStringLiteral("VantelorFavorites");
const QString labelsKey = QStringLiteral("VantelorFolderLabels");
const QString newFolderName = QStringLiteral("Carpeta nueva");

QSettings preferences()
{
    return QSettings(QStringLiteral("Vantelor"), QStringLiteral("Vantelor"));
}

QStringList loadList(const QString& key)
{
    QStringList folders;
    const QStringList urls = preferences().value(key).toStringList();
    for (const QString& url : urls) {
        const QString folder = Paths::fromFileUrl(url);
        if (!folder.isEmpty() && !folders.contains(folder))
            folders.append(folder);
    }
    return folders;
}

QString userName()
{
    const passwd* entry = ::getpwuid(::getuid());
    return entry ? Paths::decode(QByteArray(entry->pw_name)) : Paths::decode(qgetenv("USER"));
}

QString homeFolder()
{
    const QByteArray home = qgetenv("HOME");
    return home.isEmpty() ? QStringLiteral("/") : Paths::clean(Paths::decode(home));
}

QStringList systemMountRoots()
{
    const QString user = userName();
    return {Paths::join(QStringLiteral("/media"), user), Paths::join(QStringLiteral("/run/media"), user),
            QStringLiteral("/media"), QStringLiteral("/mnt")};
}

// Devices mounted elsewhere than the usual roots (a second disk on /data); the system's own
// mounts are not places a photographer browses.
bool isUserVolume(const QStorageInfo& volume)
{
    static const QStringList systemTops = {
        QStringLiteral("bin"), QStringLiteral("boot"), QStringLiteral("dev"), QStringLiteral("efi"),
        QStringLiteral("etc"), QStringLiteral("home"), QStringLiteral("lib"), QStringLiteral("lib64"),
        QStringLiteral("opt"), QStringLiteral("proc"), QStringLiteral("root"), QStringLiteral("run"),
        QStringLiteral("sbin"), QStringLiteral("snap"), QStringLiteral("srv"), QStringLiteral("sys"),
        QStringLiteral("tmp"), QStringLiteral("usr"), QStringLiteral("var")};
    const QString root = volume.rootPath();
    if (!volume.isValid() || !volume.isReady() || root == QLatin1String("/"))
        return false;
    if (root.startsWith(QLatin1String("/run/media/")))
        return true;
    if (!volume.device().startsWith("/dev/"))
        return false;
    return !systemTops.contains(root.section(QLatin1Char('/'), 1, 1));
}

struct Places {
    QList<std::pair<QString, QString>> volumes;  // path, name
    QSet<QString> missing;
    QStringList existingRoots;
};

Places readPlaces(const QStringList& roots, bool systemVolumes, const QStringList& listed)
{
    Places places;
    QSet<QString> seen(roots.cbegin(), roots.cend());
    for (const QString& root : roots) {
        const Result<QList<DirectoryEntry>> entries = DirectoryService::listChildren(root);
        if (!entries)
            continue;
        places.existingRoots.append(root);
        for (const DirectoryEntry& entry : *entries) {
            if (!seen.contains(entry.url)) {
                seen.insert(entry.url);
                places.volumes.append({entry.url, entry.name});
            }
        }
    }
    if (systemVolumes) {
        for (const QStorageInfo& volume : QStorageInfo::mountedVolumes()) {
            const QString root = volume.rootPath();
            if (!isUserVolume(volume) || seen.contains(root))
                continue;
            seen.insert(root);
            const QString name = volume.name().isEmpty() ? Paths::fileName(root) : volume.name();
            places.volumes.append({root, name});
        }
    }
    for (const QString& folder : listed) {
        const Result<FileStat> stat = FileStat::read(folder, true);
        if (!stat || !stat->isDirectory())
            places.missing.insert(folder);
    }
    return places;
}

QString listingError(const Failure& failure)
{
    // The row already names the folder: its path would only repeat it.
    if (const auto* system = std::get_if<SystemError>(&failure))
        return SystemError::text(system->code());
    return describe(failure);
}

QString sectionTitle(NavigatorModel::Section section)
{
    switch (section) {
    case NavigatorModel::Section::home: return QStringLiteral("Carpeta personal");
    case NavigatorModel::Section::volumes: return QStringLiteral("Volúmenes");
    case NavigatorModel::Section::recent: return QStringLiteral("Recientes");
    case NavigatorModel::Section::favorites: return QStringLiteral("Favoritas");
    }
    return {};
}

QList<std::pair<QString, QString>> named(const QStringList& folders)
{
    QList<std::pair<QString, QString>> rows;
    for (const QString& folder : folders)
        rows.append({folder, Paths::fileName(folder).isEmpty() ? folder : Paths::fileName(folder)});
    return rows;
}

} // namespace

struct NavigatorModel::Node {
    quint64 id = 0;
    Kind kind = Kind::folder;
    Section section = Section::home;
    QString path;
    QString name;
    Node* parent = nullptr;
    std::vector<std::unique_ptr<Node>> children;
    LoadState state = LoadState::unloaded;
    // The latest listing asked for this row; older answers are dropped.
    quint64 request = 0;
    QString error;

    int row() const
    {
        const auto& siblings = parent->children;
        const auto it = std::find_if(siblings.begin(), siblings.end(), [this](const auto& n) { return n.get() == this; });
        return int(it - siblings.begin());
    }
};

NavigatorModel::NavigatorModel(bool persist, QObject* parent)
    : NavigatorModel(persist, FolderLabels::xdgTags(), homeFolder(), systemMountRoots(), true, parent)
{
}

NavigatorModel::NavigatorModel(bool persist, FolderLabels::Attribute attribute, const QString& home,
                               const QStringList& mountRoots, QObject* parent)
    : NavigatorModel(persist, std::move(attribute), home, mountRoots, false, parent)
{
}

NavigatorModel::NavigatorModel(bool persist, FolderLabels::Attribute attribute, const QString& home,
                               const QStringList& mountRoots, bool systemVolumes, QObject* parent)
    : QAbstractItemModel(parent)
    , m_persist(persist)
    , m_home(home)
    , m_mountRoots(mountRoots)
    , m_systemVolumes(systemVolumes)
    , m_root(std::make_unique<Node>())
    , m_folderLabels(std::move(attribute))
    , m_places(QStringLiteral("com.vantelor.navigator"))
{
    if (m_persist) {
        m_recent = loadList(recentKey).mid(0, recentLimit);
        m_favorites = loadList(favoritesKey);
        const QVariantMap labels = preferences().value(labelsKey).toMap();
        for (auto it = labels.cbegin(); it != labels.cend(); ++it) {
            const QString folder = Paths::fromFileUrl(it.key());
            const auto label = SessionLabels::fromRawValue(it.value().toString());
            if (!folder.isEmpty() && label && *label != SessionLabel::none)
                m_fallbackLabels.insert(folder, *label);
        }
    }
    m_labels = m_fallbackLabels;

    for (Section section : {Section::home, Section::volumes, Section::recent, Section::favorites}) {
        Node* node = makeNode(m_root.get(), Kind::section, {}, sectionTitle(section));
        node->section = section;
        node->state = LoadState::loaded;
        m_root->children.emplace_back(node);
    }
    Node* homeSection = m_root->children[0].get();
    homeSection->children.emplace_back(makeNode(homeSection, Kind::folder, m_home, Paths::fileName(m_home)));
    updateList(Section::recent, m_recent);
    updateList(Section::favorites, m_favorites);
    requestLabels({m_home});

    m_watchDelay.setSingleShot(true);
    m_watchDelay.setInterval(watchDelayMs);
    connect(&m_watchDelay, &QTimer::timeout, this, &NavigatorModel::watchedFoldersChanged);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &NavigatorModel::folderChanged);
    updatePlaces();
}

NavigatorModel::~NavigatorModel() = default;

// --- Recent folders and favourites --------------------------------------------------------------

void NavigatorModel::record(const QString& folder)
{
    if (!m_recent.isEmpty() && m_recent.first() == folder)
        return;
    m_recent.removeAll(folder);
    m_recent.prepend(folder);
    while (m_recent.size() > recentLimit)
        m_recent.removeLast();
    saveList(recentKey, m_recent);
    updateList(Section::recent, m_recent);
    updatePlaces();
    emit recentChanged();
}

void NavigatorModel::addFavorite(const QString& folder)
{
    if (m_favorites.contains(folder))
        return;
    m_favorites.append(folder);
    saveList(favoritesKey, m_favorites);
    updateList(Section::favorites, m_favorites);
    updatePlaces();
    emit favoritesChanged();
}

void NavigatorModel::removeFavorite(const QString& folder)
{
    if (m_favorites.removeAll(folder) == 0)
        return;
    saveList(favoritesKey, m_favorites);
    updateList(Section::favorites, m_favorites);
    emit favoritesChanged();
}

void NavigatorModel::refresh()
{
    emit refreshRequested();
    updatePlaces();
    QList<quint64> listed;
    QStringList folders;
    for (Node* node : std::as_const(m_nodes)) {
        if (node->kind != Kind::folder)
            continue;
        folders.append(node->path);
        if (node->state == LoadState::loaded || node->state == LoadState::failed)
            listed.append(node->id);
    }
    loadAll(listed);
    folders.removeDuplicates();
    requestLabels(folders);
}

void NavigatorModel::saveList(const QString& key, const QStringList& folders) const
{
    if (!m_persist)
        return;
    QStringList urls;
    for (const QString& folder : folders)
        urls.append(Paths::fileUrl(folder));
    preferences().setValue(key, urls);
}

void NavigatorModel::updateList(Section section, const QStringList& folders)
{
    Node* node = m_root->children[int(section)].get();
    setChildren(node, named(folders));
}

void NavigatorModel::updatePlaces()
{
    const quint64 request = ++m_placesRequest;
    QStringList listed = m_recent + m_favorites;
    listed.removeDuplicates();
    m_places.run([roots = m_mountRoots, system = m_systemVolumes, listed](const CancelCheck&) {
        return readPlaces(roots, system, listed);
    }).then(this, [this, request](const Places& places) {
        if (request != m_placesRequest)
            return;
        for (const QString& root : places.existingRoots) {
            if (!Paths::hasEscapedBytes(root) && !m_watcher.directories().contains(root))
                m_watcher.addPath(root);
        }
        setChildren(m_root->children[int(Section::volumes)].get(), places.volumes);
        const QSet<QString> before = std::exchange(m_missing, places.missing);
        for (Node* node : std::as_const(m_nodes)) {
            if (node->kind != Kind::folder || before.contains(node->path) == m_missing.contains(node->path))
                continue;
            // A folder that came back is listed afresh when it is next expanded.
            if (!m_missing.contains(node->path) && node->state == LoadState::failed) {
                node->state = LoadState::unloaded;
                node->error.clear();
            }
            rowChanged(node);
        }
        emit placesUpdated();
    });
}

// --- Listing ------------------------------------------------------------------------------------

void NavigatorModel::load(Node* folder)
{
    if (folder->state == LoadState::unloaded || folder->state == LoadState::failed)
        folder->state = LoadState::loading;
    const quint64 request = ++folder->request;
    const quint64 id = folder->id;
    m_directories.children(folder->path).then(this, [this, id, request](const Result<QList<DirectoryEntry>>& listing) {
        Node* listed = m_nodes.value(id);
        if (!listed || listed->request != request)
            return;
        if (listing) {
            QList<std::pair<QString, QString>> rows;
            QStringList paths;
            for (const DirectoryEntry& entry : *listing) {
                rows.append({entry.url, entry.name});
                paths.append(entry.url);
            }
            setChildren(listed, rows);
            listed->state = LoadState::loaded;
            listed->error.clear();
            if (!Paths::hasEscapedBytes(listed->path) && !m_watcher.directories().contains(listed->path))
                m_watcher.addPath(listed->path);
            requestLabels(paths);
        } else {
            setChildren(listed, {});
            listed->state = LoadState::failed;
            listed->error = listingError(listing.failure());
        }
        rowChanged(listed);
        emit folderLoaded(indexOf(listed));
    });
}

// A listing that is already done answers at once, inside load(), and may remove rows: the rows
// are therefore named by id and looked up one at a time.
void NavigatorModel::loadAll(const QList<quint64>& ids)
{
    for (quint64 id : ids) {
        if (Node* node = m_nodes.value(id))
            load(node);
    }
}

// Brings a row's children to `folders` in place: rows that stay keep their own expanded
// children, so a folder read again after a change does not collapse under the user.
void NavigatorModel::setChildren(Node* parent, const QList<std::pair<QString, QString>>& folders)
{
    const QModelIndex parentIndex = indexOf(parent);
    QSet<QString> wanted;
    for (const auto& folder : folders)
        wanted.insert(folder.first);
    for (int row = int(parent->children.size()) - 1; row >= 0; --row) {
        const Node* child = parent->children[row].get();
        if (child->kind == Kind::folder && !wanted.contains(child->path))
            removeRow(parent->children[row].get());
    }
    // The row of a folder being named stays first.
    int row = (!parent->children.empty() && parent->children[0]->kind == Kind::newFolder) ? 1 : 0;
    QStringList added;
    for (const auto& [path, name] : folders) {
        const auto found = std::find_if(parent->children.begin() + row, parent->children.end(),
                                        [&path](const auto& n) { return n->path == path; });
        if (found == parent->children.end()) {
            beginInsertRows(parentIndex, row, row);
            parent->children.emplace(parent->children.begin() + row, makeNode(parent, Kind::folder, path, name));
            endInsertRows();
            added.append(path);
        } else {
            const int from = int(found - parent->children.begin());
            if (from != row) {
                beginMoveRows(parentIndex, from, from, parentIndex, row);
                std::unique_ptr<Node> moved = std::move(parent->children[from]);
                parent->children.erase(parent->children.begin() + from);
                parent->children.insert(parent->children.begin() + row, std::move(moved));
                endMoveRows();
            }
            Node* child = parent->children[row].get();
            if (child->name != name) {
                child->name = name;
                rowChanged(child);
            }
        }
        ++row;
    }
    if (parent->kind == Kind::section && !added.isEmpty())
        requestLabels(added);
}

void NavigatorModel::removeRow(Node* node)
{
    Node* parent = node->parent;
    const int row = node->row();
    beginRemoveRows(indexOf(parent), row, row);
    forget(node);
    parent->children.erase(parent->children.begin() + row);
    endRemoveRows();
}

void NavigatorModel::folderChanged(const QString& path)
{
    m_changed.insert(path);
    m_watchDelay.start();
}

void NavigatorModel::watchedFoldersChanged()
{
    const QSet<QString> changed = std::exchange(m_changed, {});
    bool places = false;
    for (const QString& path : changed) {
        places = places || m_mountRoots.contains(path);
        QList<quint64> listed;
        for (Node* node : std::as_const(m_nodes)) {
            if (node->kind == Kind::folder && node->path == path && node->state != LoadState::unloaded)
                listed.append(node->id);
        }
        loadAll(listed);
        if (listed.isEmpty() && !m_mountRoots.contains(path))
            m_watcher.removePath(path);
    }
    if (places)
        updatePlaces();
}

// --- Labels -------------------------------------------------------------------------------------

void NavigatorModel::requestLabels(const QStringList& folders)
{
    if (folders.isEmpty())
        return;
    m_folderLabels.read(folders).then(this, [this](const QHash<QString, std::optional<SessionLabel>>& read) {
        for (auto it = read.cbegin(); it != read.cend(); ++it) {
            const SessionLabel fromTags = it.value().value_or(SessionLabel::none);
            const SessionLabel label = fromTags != SessionLabel::none ? fromTags
                                                                      : m_fallbackLabels.value(it.key(), SessionLabel::none);
            if (label != m_labels.value(it.key(), SessionLabel::none)) {
                m_labels.insert(it.key(), label);
                foldersChanged(it.key());
            }
        }
        emit labelsUpdated();
    });
}

void NavigatorModel::setLabel(const QString& folder, SessionLabel label)
{
    m_labels.insert(folder, label);
    foldersChanged(folder);
    const quint64 write = ++m_labelWrites;
    m_newestLabelWrite.insert(folder, write);
    m_folderLabels.write(folder, label).then(this, [this, folder, label, write](bool stored) {
        // The newer write settles the label and where it is kept.
        if (m_newestLabelWrite.value(folder) != write)
            return;
        if (stored || label == SessionLabel::none)
            m_fallbackLabels.remove(folder);
        else
            m_fallbackLabels.insert(folder, label);
        saveFallbackLabels();
        // A read queued before this write may have shown the old label meanwhile.
        m_labels.insert(folder, label);
        foldersChanged(folder);
        emit labelsUpdated();
    });
}

void NavigatorModel::saveFallbackLabels() const
{
    if (!m_persist)
        return;
    QVariantMap labels;
    for (auto it = m_fallbackLabels.cbegin(); it != m_fallbackLabels.cend(); ++it)
        labels.insert(Paths::fileUrl(it.key()), SessionLabels::rawValue(it.value()));
    if (labels.isEmpty())
        preferences().remove(labelsKey);
    else
        preferences().setValue(labelsKey, labels);
}

// --- New folder ---------------------------------------------------------------------------------

QModelIndex NavigatorModel::beginNewFolder(const QModelIndex& parentIndex)
{
    Node* parent = nodeOf(parentIndex);
    if (!parent || parent->kind != Kind::folder || m_newFolder || m_missing.contains(parent->path))
        return {};
    if (parent->state == LoadState::unloaded)
        load(parent);
    // A free name to start from, as file managers offer: "Carpeta nueva", "Carpeta nueva 2", …
    QSet<QString> taken;
    for (const auto& child : parent->children)
        taken.insert(child->name);
    QString name = newFolderName;
    for (int n = 2; taken.contains(name); ++n)
        name = newFolderName + QStringLiteral(" %1").arg(n);
    beginInsertRows(parentIndex, 0, 0);
    m_newFolder = makeNode(parent, Kind::newFolder, {}, name);
    parent->children.emplace(parent->children.begin(), m_newFolder);
    endInsertRows();
    return indexOf(m_newFolder);
}

void NavigatorModel::cancelNewFolder()
{
    if (m_newFolder && m_newFolder->state != LoadState::loading)
        removeRow(m_newFolder);
}

void NavigatorModel::commitNewFolder(Node* row, const QString& name)
{
    row->state = LoadState::loading;
    row->name = name;
    row->error.clear();
    rowChanged(row);
    const quint64 id = row->id;
    m_directories.createFolder(row->parent->path, name).then(this, [this, id](const Result<QString>& created) {
        Node* pending = m_nodes.value(id);
        if (!pending)
            return;
        if (created) {
            Node* parent = pending->parent;
            removeRow(pending);
            emit folderCreated(*created);
            load(parent);
        } else {
            pending->state = LoadState::failed;
            pending->error = created.message();
            rowChanged(pending);
            emit newFolderFailed(indexOf(pending));
        }
    });
}

// --- Tree plumbing ------------------------------------------------------------------------------

NavigatorModel::Node* NavigatorModel::makeNode(Node* parent, Kind kind, const QString& path, const QString& name)
{
    auto* node = new Node;
    node->id = m_nextId++;
    node->kind = kind;
    node->path = path;
    node->name = name;
    node->parent = parent;
    m_nodes.insert(node->id, node);
    return node;
}

void NavigatorModel::forget(Node* node)
{
    for (const auto& child : node->children)
        forget(child.get());
    m_nodes.remove(node->id);
    if (node == m_newFolder)
        m_newFolder = nullptr;
}

NavigatorModel::Node* NavigatorModel::nodeOf(const QModelIndex& index) const
{
    return index.isValid() ? static_cast<Node*>(index.internalPointer()) : m_root.get();
}

QModelIndex NavigatorModel::indexOf(const Node* node) const
{
    if (!node || node == m_root.get())
        return {};
    return createIndex(node->row(), 0, const_cast<Node*>(node));
}

void NavigatorModel::rowChanged(Node* node)
{
    const QModelIndex index = indexOf(node);
    emit dataChanged(index, index);
}

void NavigatorModel::foldersChanged(const QString& folder)
{
    for (Node* node : std::as_const(m_nodes)) {
        if (node->kind == Kind::folder && node->path == folder)
            rowChanged(node);
    }
}

QModelIndex NavigatorModel::sectionIndex(Section section) const
{
    return indexOf(m_root->children[int(section)].get());
}

QModelIndex NavigatorModel::findFolder(const QString& folder) const
{
    std::function<const Node*(const Node*)> find = [&](const Node* node) -> const Node* {
        for (const auto& child : node->children) {
            if (child->kind == Kind::folder && child->path == folder)
                return child.get();
            if (const Node* found = find(child.get()))
                return found;
        }
        return nullptr;
    };
    return indexOf(find(m_root.get()));
}

QModelIndex NavigatorModel::index(int row, int column, const QModelIndex& parent) const
{
    const Node* node = nodeOf(parent);
    if (column != 0 || row < 0 || row >= int(node->children.size()))
        return {};
    return createIndex(row, 0, node->children[row].get());
}

QModelIndex NavigatorModel::parent(const QModelIndex& child) const
{
    return child.isValid() ? indexOf(nodeOf(child)->parent) : QModelIndex();
}

int NavigatorModel::rowCount(const QModelIndex& parent) const
{
    return parent.column() > 0 ? 0 : int(nodeOf(parent)->children.size());
}

int NavigatorModel::columnCount(const QModelIndex&) const
{
    return 1;
}

bool NavigatorModel::hasChildren(const QModelIndex& parent) const
{
    const Node* node = nodeOf(parent);
    switch (node->kind) {
    case Kind::newFolder: return false;
    case Kind::section: return !node->children.empty();
    case Kind::folder: break;
    }
    if (m_missing.contains(node->path))
        return false;
    switch (node->state) {
    case LoadState::unloaded:
    case LoadState::loading: return true;
    case LoadState::loaded: return !node->children.empty();
    case LoadState::failed: return false;
    }
    return false;
}

bool NavigatorModel::canFetchMore(const QModelIndex& parent) const
{
    const Node* node = nodeOf(parent);
    return node->kind == Kind::folder && node->state == LoadState::unloaded && !m_missing.contains(node->path);
}

void NavigatorModel::fetchMore(const QModelIndex& parent)
{
    if (canFetchMore(parent))
        load(nodeOf(parent));
}

QVariant NavigatorModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    const Node* node = nodeOf(index);
    const bool missing = node->kind == Kind::folder && m_missing.contains(node->path);
    switch (role) {
    case Qt::DisplayRole:
        return Paths::displayText(node->name);
    case Qt::EditRole:
        return node->name;
    case Qt::ToolTipRole:
        if (node->kind != Kind::folder)
            return node->error.isEmpty() ? QVariant() : QVariant(node->error);
        if (missing)
            return BrowserError::folderUnavailable(Paths::displayText(node->path)).message();
        return node->error.isEmpty() ? Paths::displayText(node->path)
                                     : Paths::displayText(node->path) + QStringLiteral("\n") + node->error;
    case PathRole: return node->path;
    case KindRole: return int(node->kind);
    case LabelRole: return int(node->kind == Kind::folder ? label(node->path) : SessionLabel::none);
    case ErrorRole: return node->error;
    case MissingRole: return missing;
    default: return {};
    }
}

bool NavigatorModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    Node* node = nodeOf(index);
    if (!index.isValid() || role != Qt::EditRole || node->kind != Kind::newFolder || node->state == LoadState::loading)
        return false;
    // Created after the editor has closed: a quick answer would otherwise change the rows while
    // the view is still committing the edit.
    node->state = LoadState::loading;
    node->name = value.toString();
    QMetaObject::invokeMethod(this, [this, id = node->id, name = node->name] {
        if (Node* pending = m_nodes.value(id))
            commitNewFolder(pending, name);
    }, Qt::QueuedConnection);
    return true;
}

Qt::ItemFlags NavigatorModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    switch (nodeOf(index)->kind) {
    case Kind::section: return Qt::ItemIsEnabled;
    case Kind::folder: return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    case Kind::newFolder: return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
    }
    return Qt::NoItemFlags;
}

} // namespace vantelor
