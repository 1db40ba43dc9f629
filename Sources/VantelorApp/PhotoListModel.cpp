#include "PhotoListModel.h"

#include <QLocale>

#include "Support/Paths.h"

namespace vantelor {

void PhotoListModel::setPhotos(const QList<PhotoItem>& photos)
{
    beginResetModel();
    m_photos = photos;
    endResetModel();
}

int PhotoListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_photos.size());
}

int PhotoListModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : Column::columnTotal;
}

QVariant PhotoListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_photos.size())
        return {};
    const PhotoItem& photo = m_photos.at(index.row());
    if (role == Qt::DisplayRole) {
        switch (index.column()) {
        case Column::name: return Paths::displayText(photo.name());
        case Column::size: return QLocale().formattedDataSize(photo.byteSize, 1, QLocale::DataSizeSIFormat);
        // Shown in UTC, like capture times, so that the two can be compared at a glance.
        case Column::modified: return photo.modified.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        }
    }
    if (role == Qt::TextAlignmentRole && index.column() == Column::size)
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    if (role == Qt::ToolTipRole)
        return Paths::displayText(photo.url);
    return {};
}

QVariant PhotoListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case Column::name: return QStringLiteral("Nombre");
    case Column::size: return QStringLiteral("Tamaño");
    case Column::modified: return QStringLiteral("Modificado (UTC)");
    }
    return {};
}

} // namespace vantelor
