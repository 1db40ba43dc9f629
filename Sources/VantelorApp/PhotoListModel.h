#pragma once

#include <optional>

#include <QAbstractListModel>
#include <QSet>

#include "Library/PhotoItem.h"

namespace vantelor {

class LibraryModel;

// The visible photos of a LibraryModel as a list for the filmstrip and the contact sheet: one
// row per photo of visiblePhotos, in its order, with the mark and the selection state as roles.
// Views draw only the rows on screen, so 5,000 photos cost 5,000 rows and no widgets.
// GUI thread only; follows the controller's signals.
class PhotoListModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        urlRole = Qt::UserRole + 1,
        ratingRole,
        labelRole,       // SessionLabel as int
        currentRole,     // the photo is selectedID
        selectedRole,    // the photo is in selectedIDs
    };

    explicit PhotoListModel(LibraryModel& library, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    const PhotoItem& photo(int row) const;
    // The row of the current photo, or an invalid index.
    QModelIndex currentIndex() const;

private:
    void reset();
    void marksChanged(const QStringList& urls);
    void selectionChanged();
    // Past this many rows one repaint of the whole view is cheaper than one per row.
    static constexpr qsizetype maxSingleRows = 64;
    void refreshRows(const QStringList& urls, const QList<int>& roles);
    void refreshAll(const QList<int>& roles);

    LibraryModel& m_library;
    QList<PhotoItem> m_photos;
    // The selection the views were last told about.
    std::optional<QString> m_shownCurrent;
    QSet<QString> m_shownSelected;
};

} // namespace vantelor
