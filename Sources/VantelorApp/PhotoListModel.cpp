#include "PhotoListModel.h"

#include "Model/LibraryModel.h"

namespace vantelor {

PhotoListModel::PhotoListModel(LibraryModel& library, QObject* parent)
    : QAbstractListModel(parent)
    , m_library(library)
{
    connect(&library, &LibraryModel::visiblePhotosChanged, this, &PhotoListModel::reset);
    connect(&library, &LibraryModel::marksChanged, this, &PhotoListModel::marksChanged);
    connect(&library, &LibraryModel::selectionChanged, this, &PhotoListModel::selectionChanged);
    reset();
}

void PhotoListModel::reset()
{
    beginResetModel();
    // An implicitly shared copy: the list stays stable while the views read it.
    m_photos = m_library.visiblePhotos();
    m_shownCurrent = m_library.selectedID();
    m_shownSelected = m_library.selectedIDs();
    endResetModel();
}

void PhotoListModel::marksChanged(const QStringList& urls)
{
    if (urls.isEmpty())
        refreshAll({ratingRole, labelRole});
    else
        refreshRows(urls, {ratingRole, labelRole});
}

// A step changes two cells; repainting only those keeps the whole filmstrip out of each step.
void PhotoListModel::selectionChanged()
{
    const std::optional<QString>& current = m_library.selectedID();
    const QSet<QString>& selected = m_library.selectedIDs();
    QStringList changed;
    if (current != m_shownCurrent)
        for (const auto& url : {m_shownCurrent, current})
            if (url)
                changed.append(*url);
    const bool many = selected.size() + m_shownSelected.size() > maxSingleRows;
    if (!many) {
        for (const QString& url : selected)
            if (!m_shownSelected.contains(url))
                changed.append(url);
        for (const QString& url : std::as_const(m_shownSelected))
            if (!selected.contains(url))
                changed.append(url);
    }
    m_shownCurrent = current;
    m_shownSelected = selected;
    if (many)
        refreshAll({currentRole, selectedRole});
    else
        refreshRows(changed, {currentRole, selectedRole});
}

void PhotoListModel::refreshRows(const QStringList& urls, const QList<int>& roles)
{
    if (urls.size() > maxSingleRows) {
        refreshAll(roles);
        return;
    }
    for (const QString& url : urls) {
        if (auto row = m_library.visiblePosition(url); row && *row < m_photos.size()) {
            const QModelIndex at = index(*row);
            emit dataChanged(at, at, roles);
        }
    }
}

void PhotoListModel::refreshAll(const QList<int>& roles)
{
    if (!m_photos.isEmpty())
        emit dataChanged(index(0), index(int(m_photos.size()) - 1), roles);
}

int PhotoListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_photos.size());
}

const PhotoItem& PhotoListModel::photo(int row) const
{
    return m_photos.at(row);
}

QModelIndex PhotoListModel::currentIndex() const
{
    const auto& selected = m_library.selectedID();
    if (!selected)
        return {};
    const auto row = m_library.visiblePosition(*selected);
    if (!row || *row >= m_photos.size() || m_photos.at(*row).url != *selected)
        return {};
    return index(*row);
}

QVariant PhotoListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_photos.size())
        return {};
    const PhotoItem& item = m_photos.at(index.row());
    switch (role) {
    case Qt::DisplayRole: return item.name();
    case urlRole: return item.url;
    case ratingRole: return m_library.mark(item.url).rating;
    case labelRole: return int(m_library.mark(item.url).label);
    case currentRole: return m_library.selectedID() == item.url;
    case selectedRole: return m_library.selectedIDs().contains(item.url);
    default: return {};
    }
}

} // namespace vantelor
