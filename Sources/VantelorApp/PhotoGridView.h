#pragma once

#include <QListView>

namespace vantelor {

class LibraryModel;
class PhotoListModel;
class ThumbnailCache;
class ThumbnailDelegate;

// The filmstrip (one column) and the contact sheet (a wrapping grid) over the visible photos.
// A click calls selectClick with the event's modifiers; the view keeps the current photo in
// sight. It takes no keyboard focus: keys belong to the shortcut profile.
class PhotoGridView : public QListView {
    Q_OBJECT

public:
    enum class Layout { filmstrip, sheet };

    PhotoGridView(LibraryModel& library, PhotoListModel& photos, Layout layout, QWidget* parent = nullptr);

    ThumbnailCache& thumbnails() const { return *m_thumbnails; }
    QRect cellRect(int row) const;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void updateCellSize();
    void followCurrent();

    LibraryModel& m_library;
    PhotoListModel& m_photos;
    Layout m_layout;
    ThumbnailCache* m_thumbnails = nullptr;
    ThumbnailDelegate* m_delegate = nullptr;
};

} // namespace vantelor
