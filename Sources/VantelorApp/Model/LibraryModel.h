#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QDateTime>
#include <QFuture>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPromise>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QUuid>

#include "Files/FileWorkflow.h"
#include "Files/TransferKind.h"
#include "Files/TransferPlan.h"
#include "Input/ActionID.h"
#include "Library/CaptureTimeReader.h"
#include "Library/FolderIndexing.h"
#include "Library/PhotoItem.h"
#include "Library/ScanSnapshot.h"
#include "Library/SessionLabel.h"
#include "Library/SessionMark.h"
#include "Metadata/MetadataReadResult.h"
#include "Metadata/XMPPatch.h"
#include "Metadata/XMPSaveSeam.h"
#include "Metadata/XMPService.h"
#include "Metadata/XMPSnapshot.h"
#include "Model/FolderAccessService.h"
#include "Model/FolderChooser.h"
#include "Model/FolderTabState.h"
#include "Model/PhotoOrder.h"
#include "Previews/PreviewLoading.h"
#include "Previews/PreviewResult.h"

namespace vantelor {

class NavigatorModel;
class ShortcutStore;

// The controller of one main window. Every screen observes its state and calls its operations;
// every bound key or mouse button arrives at run(). It opens and prepares folders, filters and
// orders the photos, keeps the selection, shows and prefetches previews, edits marks and saves
// NEF marks to their XMP sidecars, keeps folder tabs and runs transfers.
//
// Threads: GUI thread only, and it never blocks it. Work that touches files runs on the
// services it owns (scanner, capture times, sidecars, transfers) and on the preview loader; each
// answer comes back as a QFuture continued on this object's thread and is applied only when its
// generation (folder load or preview load) is still current and it was not cancelled. Late
// answers change nothing and say nothing.
//
// Observers: state is grouped; each group has one signal, emitted after the group changed.
// Screens re-read the accessors they show. Widgets are never touched here.
class LibraryModel : public QObject {
    Q_OBJECT

public:
    // The services a window's controller works with. Tests replace the preview loader, the
    // scanner factory, the folder chooser and the transfer file system; everything else is real.
    struct Dependencies {
        // Not owned; must outlive the controller. The application passes the shared
        // PreviewService.
        PreviewLoading* previews = nullptr;
        // Not owned; the application passes its QFileDialog chooser. May be null (no chooser:
        // chooseFolder and chooseTransfer do nothing).
        FolderChooser* chooser = nullptr;
        // A scanner for one folder, delivering batches of `batchSize`. Empty: FolderIndexer.
        std::function<std::unique_ptr<FolderIndexing>(const QString& folder, int batchSize)> makeIndexer;
        // Where transfers change files. Empty: the real file system.
        std::shared_ptr<TransferFileSystem> transferFileSystem;
        // Whether the shortcut store and the navigator read and write the preferences.
        bool persistPreferences = true;
        // The pause after the last edit before marks are saved; 0.35 s in the app.
        int autosaveDelayMs = 350;
        // For tests: a step of every sidecar save at which they act as another program would.
        XMPSaveSeam xmpSaveSeam;
    };

    static constexpr int scanBatchSize = 256;
    // Photos per step of the folder preparation: small enough that progress moves smoothly and
    // applying one step never holds the GUI thread long, large enough to keep the readers busy.
    static constexpr int preparationBatchSize = 200;
    static constexpr int fitDimension = 2560;
    static constexpr int zoomedDimension = 8192;
    static constexpr double maximumZoom = 4.0;
    static constexpr double minimumZoom = 0.1;
    static constexpr double defaultFocusSensitivity = 0.65;

    explicit LibraryModel(Dependencies dependencies, QObject* parent = nullptr);
    ~LibraryModel() override;

    // --- Observable state, by group ------------------------------------------------------------

    // Folder and its loading: folderChanged().
    const std::optional<QString>& folder() const { return m_folder; }
    bool isScanning() const { return m_isScanning; }
    const QString& status() const { return m_status; }
    const std::optional<QString>& folderError() const { return m_folderError; }

    // Folder preparation (capture dates and sidecars): preparationChanged().
    bool isPreparing() const { return m_isPreparing; }
    bool preparationCancelled() const { return m_preparationCancelled; }
    int preparationDone() const { return m_preparationDone; }
    int preparationTotal() const { return m_preparationTotal; }
    const QString& preparationStatus() const { return m_preparationStatus; }
    bool metadataLoading() const { return m_metadataLoading; }

    // Every photo of the folder, in scan order; grows by batches while scanning: photosChanged().
    const QList<PhotoItem>& photos() const { return m_photos; }
    // Capture times, filled by the preparation: captureDatesChanged().
    const QHash<QString, QDateTime>& captureDates() const { return m_captureDates; }

    // The filtered and ordered list: visiblePhotosChanged().
    const QList<PhotoItem>& visiblePhotos() const { return m_visiblePhotos; }

    // Filters and order: filterChanged(). Each setter runs applyFilter().
    int minimumRating() const { return m_minimumRating; }
    const std::optional<SessionLabel>& labelFilter() const { return m_labelFilter; }
    const QString& search() const { return m_search; }
    bool timeEnabled() const { return m_timeEnabled; }
    const QDateTime& timeFrom() const { return m_timeFrom; }
    const QDateTime& timeTo() const { return m_timeTo; }
    PhotoOrder photoOrder() const { return m_photoOrder; }
    bool descending() const { return m_descending; }
    void setMinimumRating(int rating);
    void setLabelFilter(std::optional<SessionLabel> label);
    void setSearch(const QString& text);
    void setTimeEnabled(bool enabled);
    void setTimeFrom(const QDateTime& from);
    void setTimeTo(const QDateTime& to);
    void setPhotoOrder(PhotoOrder order);
    void setDescending(bool descending);

    // Selection: selectionChanged().
    const std::optional<QString>& selectedID() const { return m_selectedID; }
    const QSet<QString>& selectedIDs() const { return m_selectedIDs; }

    // The preview on screen: previewChanged().
    const std::optional<PreviewResult>& preview() const { return m_preview; }
    const std::optional<QString>& previewError() const { return m_previewError; }
    bool previewLoading() const { return m_previewLoading; }
    const std::optional<QString>& displayedID() const { return m_displayedID; }

    // Display settings of the window: displayChanged().
    bool showSheet() const { return m_showSheet; }
    double zoom() const { return m_zoom; }
    bool focusEnabled() const { return m_focusEnabled; }
    bool focusBlue() const { return m_focusBlue; }
    double focusSensitivity() const { return m_focusSensitivity; }
    void setShowSheet(bool show);
    void setFocusEnabled(bool enabled);
    void setFocusBlue(bool blue);
    void setFocusSensitivity(double sensitivity);
    // Sets the zoom (0 is fit) and fetches the large preview when the shown one is too small.
    void setZoom(double zoom);

    // Incremented to ask the window to open or raise the large preview window:
    // previewRequestChanged().
    int previewRequest() const { return m_previewRequest; }

    // Marks: marksChanged(urls) names the photos whose mark changed (all of them when empty).
    const QHash<QString, SessionMark>& marks() const { return m_marks; }
    SessionMark mark(const QString& url) const { return m_marks.value(url); }

    // Sidecars and saving: metadataChanged().
    bool isSaving() const { return m_isSaving; }
    bool autoSave() const { return m_autoSave; }
    // Turning autosave on saves the pending edits at once.
    void setAutoSave(bool enabled);
    const QHash<QString, XMPPatch>& dirty() const { return m_dirty; }
    const QHash<QString, XMPSnapshot>& snapshots() const { return m_snapshots; }
    const QHash<QString, QString>& metadataErrors() const { return m_metadataErrors; }
    const std::optional<QString>& conflictURL() const { return m_conflictURL; }
    const QString& metadataStatus() const { return m_metadataStatus; }

    // Transfers: transferChanged().
    const std::optional<TransferPlan>& transferPlan() const { return m_transferPlan; }
    bool transferBusy() const { return m_transferBusy; }

    // Folder tabs, in tab order: tabsChanged().
    const QStringList& tabs() const { return m_tabs; }

    // Interrupted transfers in the open folder: recoveryChanged(). The finding is what a look at
    // its transfer journals found that needs putting right (empty when nothing does); the outcome
    // says what the last recoverTransfers() did (empty until one ran in this folder).
    const QString& recoveryFinding() const { return m_recoveryFinding; }
    const QString& recoveryOutcome() const { return m_recoveryOutcome; }
    bool isRecovering() const { return m_recovering; }

    // Conveniences for screens.
    std::optional<PhotoItem> selectedPhoto() const;
    std::optional<int> selectedPosition() const;
    // Position of a photo in visiblePhotos, or nothing when it is hidden.
    std::optional<int> visiblePosition(const QString& url) const;

    // The services the screens share through the controller.
    ShortcutStore& shortcuts() const { return *m_shortcuts; }
    NavigatorModel& navigator() const { return *m_navigator; }
    PreviewLoading& previewService() const { return *m_previewService; }

    // --- Operations -------------------------------------------------------------------------------

    // Folder loading.
    void open(const QString& folder);
    void chooseFolder();
    void reload();
    void cancelScan();
    // Starts the preparation again after the user stopped it ("Volver a preparar").
    void restartPreparation();
    // Stops a running preparation ("Preparación detenida"); the photos found stay.
    void stopPreparation();

    // The single dispatcher of every bindable action. Returns whether the action was taken up
    // (the event capture swallows the event then).
    bool run(ActionID action);

    // Filtering and selection.
    void applyFilter();
    void select(const std::optional<QString>& url);
    void selectClick(const QString& url, Qt::KeyboardModifiers modifiers);
    void move(int step);
    void selectAll();

    // Tabs.
    void rememberTab();
    // Closes a tab, saving its pending edits first; asynchronous.
    void closeTab(const QString& url);

    // Previews.
    void loadPreview();
    void prefetchNeighbors();

    // Marks and XMP.
    void setRating(int rating);
    void setLabel(SessionLabel label);
    void clearSelectedMarks();
    void scheduleSave();
    // One save pass over `dirty`; the future finishes when the pass ends (at once when no pass
    // could start).
    QFuture<void> performSave();
    // "Guardar XMP": a save pass now; the quit and tab-closing paths await it.
    QFuture<void> savePending();
    // Answers the conflict alert: false "Cargar XMP externo", true "Combinar los campos editados".
    void resolveConflict(bool merge);

    // Transfers.
    void chooseTransfer(TransferKind kind);
    // Executes the plan waiting for confirmation.
    void confirmTransfer();
    // The confirmation sheet was dismissed: the plan is dropped.
    void cancelTransfer();
    // Completes or rolls back the interrupted transfers of the open folder, then reads it again.
    void recoverTransfers();
    void dismissRecoveryOutcome();

signals:
    void folderChanged();
    void preparationChanged();
    void photosChanged();
    void captureDatesChanged();
    void visiblePhotosChanged();
    void filterChanged();
    void selectionChanged();
    void previewChanged();
    void displayChanged();
    void previewRequestChanged();
    void marksChanged(const QStringList& urls);
    void metadataChanged();
    void transferChanged();
    void tabsChanged();
    void recoveryChanged();

private:
    // Implementation state follows; see LibraryModel.cpp for what each road does with it.
    enum Group : unsigned {
        folderGroup = 1u << 0,
        preparationGroup = 1u << 1,
        photosGroup = 1u << 2,
        captureDatesGroup = 1u << 3,
        visibleGroup = 1u << 4,
        filterGroup = 1u << 5,
        selectionGroup = 1u << 6,
        previewGroup = 1u << 7,
        displayGroup = 1u << 8,
        previewRequestGroup = 1u << 9,
        marksGroup = 1u << 10,
        metadataGroup = 1u << 11,
        transferGroup = 1u << 12,
        tabsGroup = 1u << 13,
        recoveryGroup = 1u << 14,
    };
    class Batch;
    struct SavePass;
    struct Preparation;

    template <typename T, typename U>
    void assign(T& field, U&& value, Group group)
    {
        if (field == value)
            return;
        field = std::forward<U>(value);
        m_changed |= group;
    }
    void touch(Group group) { m_changed |= group; }
    void touchMarks(const QString& url);
    void emitChanges();

    void beginScan(const QString& folder);
    void requestBatch(const QUuid& generation);
    void takeSnapshot(const QUuid& generation, const Result<ScanSnapshot>& snapshot);
    void startPreparation();
    void finishPreparation();
    void applyDates(const QList<PhotoItem>& batch, const CaptureTimeReader::Table& dates);
    void applySidecars(const QList<MetadataReadResult>& results);
    void applySnapshotMark(const QString& url, const XMPSnapshot& snapshot);
    void batchPartDone(const std::shared_ptr<Preparation>& preparation, int photos);
    void stopBackgroundWork();
    void retireIndexer();
    void cancelPreview();
    void cancelNeighbors();
    void restoreTab(const FolderTabState& state);
    void setPhotos(QList<PhotoItem> photos);
    void editMarks(const std::function<void(SessionMark&, XMPPatch&)>& edit);
    void saveNext(const std::shared_ptr<SavePass>& pass);
    void finishPass(const std::shared_ptr<SavePass>& pass);
    void finishCloseTab(const QString& url);
    void checkRecovery(const QString& folder);
    bool lessThan(const PhotoItem& a, const PhotoItem& b) const;
    int requestedDimension() const;

    Dependencies m_deps;

    std::optional<QString> m_folder;
    bool m_isScanning = false;
    QString m_status;
    std::optional<QString> m_folderError;

    bool m_isPreparing = false;
    bool m_preparationCancelled = false;
    int m_preparationDone = 0;
    int m_preparationTotal = 0;
    QString m_preparationStatus;
    bool m_metadataLoading = false;

    QList<PhotoItem> m_photos;
    QHash<QString, QDateTime> m_captureDates;
    QList<PhotoItem> m_visiblePhotos;

    int m_minimumRating = 0;
    std::optional<SessionLabel> m_labelFilter;
    QString m_search;
    bool m_timeEnabled = false;
    QDateTime m_timeFrom;
    QDateTime m_timeTo;
    PhotoOrder m_photoOrder = PhotoOrder::captured;
    bool m_descending = false;

    std::optional<QString> m_selectedID;
    QSet<QString> m_selectedIDs;

    std::optional<PreviewResult> m_preview;
    std::optional<QString> m_previewError;
    bool m_previewLoading = false;
    std::optional<QString> m_displayedID;

    bool m_showSheet = false;
    double m_zoom = 0;
    bool m_focusEnabled = false;
    bool m_focusBlue = false;
    double m_focusSensitivity = defaultFocusSensitivity;
    int m_previewRequest = 0;

    QHash<QString, SessionMark> m_marks;

    bool m_isSaving = false;
    bool m_autoSave = true;
    QHash<QString, XMPPatch> m_dirty;
    QHash<QString, XMPSnapshot> m_snapshots;
    QHash<QString, QString> m_metadataErrors;
    std::optional<QString> m_conflictURL;
    QString m_metadataStatus;

    std::optional<TransferPlan> m_transferPlan;
    bool m_transferBusy = false;

    QStringList m_tabs;

    QString m_recoveryFinding;
    QString m_recoveryOutcome;
    bool m_recovering = false;

    // Plain bookkeeping.
    QHash<QString, FolderTabState> m_tabStates;
    bool m_restoringTab = false;
    QHash<QString, PhotoItem> m_items;
    QHash<QString, int> m_indices;
    std::optional<QString> m_selectionAnchor;
    int m_direction = 1;
    QHash<QString, QUuid> m_editVersions;
    QUuid m_generation;
    QUuid m_previewGeneration;
    // Changes with each look at a folder's journals: an answer about another folder is dropped.
    QUuid m_recoveryGeneration;
    // Each cancellable task is kept with the continuation that applies its answer.
    QFuture<Result<ScanSnapshot>> m_scanTask;
    QFuture<void> m_scanAnswer;
    QFuture<Result<PreviewResult>> m_previewTask;
    QFuture<void> m_previewAnswer;
    QHash<QString, QFuture<Result<PreviewResult>>> m_neighbors;
    QList<QFuture<CaptureTimeReader::Table>> m_dateTasks;
    QList<QFuture<QList<MetadataReadResult>>> m_sidecarTasks;
    QList<QFuture<void>> m_preparationAnswers;
    QTimer m_autosaveTimer;
    // The photos come from a finished scan: preparation can start again without rescanning.
    bool m_scanComplete = false;
    // The requested size of the preview on screen, to know whether zooming needs a larger one.
    int m_displayedDimension = 0;
    std::shared_ptr<SavePass> m_savePass;
    QList<std::shared_ptr<QPromise<void>>> m_saveWaiters;
    // Scanners replaced while their last batch may still run: kept until their cancel has gone
    // through, so that dropping one never waits on the GUI thread.
    QList<std::shared_ptr<FolderIndexing>> m_retiredIndexers;
    unsigned m_changed = 0;
    QStringList m_changedMarks;
    bool m_allMarksChanged = false;
    int m_batchDepth = 0;

    FolderAccessService m_access;
    PreviewLoading* m_previewService = nullptr;
    std::unique_ptr<FolderIndexing> m_indexer;
    std::unique_ptr<ShortcutStore> m_shortcuts;
    std::unique_ptr<NavigatorModel> m_navigator;
    CaptureTimeReader m_captureReader;
    XMPService m_xmp;
    FileWorkflow m_files;
};

} // namespace vantelor
