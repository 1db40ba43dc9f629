#pragma once

#include <QAbstractTableModel>
#include <QList>

#include "Library/PhotoItem.h"

namespace vantelor {

// The scanned photos as rows of name, size and modification date. Each scan snapshot replaces
// the whole list (later photos can land anywhere in it), which costs one implicit-shared copy.
class PhotoListModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { name, size, modified, columnTotal };

    using QAbstractTableModel::QAbstractTableModel;

    void setPhotos(const QList<PhotoItem>& photos);
    const QList<PhotoItem>& photos() const { return m_photos; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    QList<PhotoItem> m_photos;
};

} // namespace vantelor
