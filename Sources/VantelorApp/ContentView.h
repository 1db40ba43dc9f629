#pragma once

#include <QMessageBox>
#include <QPointer>
#include <QWidget>

#include "TransferSheet.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTabBar;

namespace vantelor {

class FilterBar;
class HeaderBar;
class InspectorView;
class LaunchOpener;
class LibraryModel;
class PhotoGridView;
class PhotoListModel;
class PreviewCanvas;
class RecoveryBanner;

// The one screen of the application. In the main window: header and its handle, folder tabs,
// the filter bar, the left column (filmstrip and folder navigator), the photo area (welcome,
// preparation, the preview with its step buttons, the contact sheet, or the empty and failed
// texts), the inspector and the footer; it also raises the XMP conflict alert and the transfer
// confirmation sheet, and opens folders dropped on it. In the large preview window only the
// preview canvas. Every element reads the controller and calls its operations.
class ContentView : public QWidget {
    Q_OBJECT

public:
    ContentView(LibraryModel& library, bool previewOnly, QWidget* parent = nullptr);

    // The photo area's pages.
    enum class Page { welcome, preparing, preview, previewFailed, sheet, empty };
    Page page() const;

    PreviewCanvas* canvas() const { return m_canvas; }
    PhotoGridView* filmstrip() const { return m_filmstrip; }
    PhotoGridView* sheet() const { return m_sheet; }
    InspectorView* inspector() const { return m_inspector; }
    FilterBar* filterBar() const { return m_filterBar; }
    HeaderBar* header() const { return m_header; }
    QTabBar* tabBar() const { return m_tabBar; }
    QMessageBox* conflictAlert() const { return m_conflictAlert; }
    TransferSheet* transferSheet() const { return m_transferSheet; }
    RecoveryBanner* recoveryBanner() const { return m_recoveryBanner; }

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QWidget* makeWelcome();
    QWidget* makePreparing();
    QWidget* makePreviewPage();
    QWidget* makeEmpty();
    void refreshArea();
    void refreshPreparation();
    void refreshTabs();
    void refreshEnabled();
    void refreshPosition();
    void showConflict();
    void showTransfer();

    LibraryModel& m_library;
    bool m_previewOnly;
    // Drops open like a launch: a photo opens its folder and is selected there.
    LaunchOpener* m_dropOpener = nullptr;
    PhotoListModel* m_photos = nullptr;
    HeaderBar* m_header = nullptr;
    QTabBar* m_tabBar = nullptr;
    FilterBar* m_filterBar = nullptr;
    RecoveryBanner* m_recoveryBanner = nullptr;
    QSplitter* m_columns = nullptr;
    QWidget* m_leftColumn = nullptr;
    PhotoGridView* m_filmstrip = nullptr;
    QStackedWidget* m_area = nullptr;
    QWidget* m_welcome = nullptr;
    QWidget* m_preparing = nullptr;
    QWidget* m_previewPage = nullptr;
    QWidget* m_empty = nullptr;
    QStackedWidget* m_previewStack = nullptr;
    QWidget* m_failed = nullptr;
    QLabel* m_failedText = nullptr;
    PreviewCanvas* m_canvas = nullptr;
    QLabel* m_position = nullptr;
    QPushButton* m_previous = nullptr;
    QPushButton* m_next = nullptr;
    PhotoGridView* m_sheet = nullptr;
    InspectorView* m_inspector = nullptr;
    QLabel* m_preparingTitle = nullptr;
    QProgressBar* m_progress = nullptr;
    QLabel* m_preparingStatus = nullptr;
    QPushButton* m_restart = nullptr;
    QPushButton* m_stop = nullptr;
    QPointer<QMessageBox> m_conflictAlert;
    QPointer<TransferSheet> m_transferSheet;
};

} // namespace vantelor
