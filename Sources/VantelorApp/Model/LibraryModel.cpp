#include "LibraryModel.h"

#include <algorithm>
#include <cstdlib>

#include <QPointer>

#include "Library/FolderIndexer.h"
#include "Library/PhotoFilter.h"
#include "Model/Continuations.h"
#include "Model/NavigatorModel.h"
#include "Model/ShortcutStore.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

const QString loadedSuffix = QStringLiteral(" fotos • RAW sin modificar");
const QString directPreviewLine = QStringLiteral("Vista previa directa • caché temporal");

QString loadedStatus(qsizetype count)
{
    return QString::number(count) + loadedSuffix;
}

// The folder as the file system knows it: symbolic links resolved, so that a folder reached by
// two roads is one tab. A folder that cannot be resolved (gone already) keeps its cleaned path,
// and the scan reports it.
QString standardized(const QString& folder)
{
    const QString cleaned = Paths::clean(folder);
    char* resolved = ::realpath(Paths::encode(cleaned).constData(), nullptr);
    if (!resolved)
        return cleaned;
    const QString result = Paths::decode(QByteArray(resolved));
    ::free(resolved);
    return result;
}

SessionLabel labelFromText(const std::optional<QString>& text)
{
    // Other programs write "Red"; only the five colours count, anything else shows no colour.
    if (!text)
        return SessionLabel::none;
    return SessionLabels::fromRawValue(text->toLower()).value_or(SessionLabel::none);
}

QString labelText(SessionLabel label)
{
    return label == SessionLabel::none ? QString() : SessionLabels::rawValue(label);
}

} // namespace

// Collects the group signals of one operation, including the operations it calls, and emits
// each changed group once when the outermost operation ends, when the state is whole again.
class LibraryModel::Batch {
public:
    explicit Batch(LibraryModel* model) : m_model(model) { ++m_model->m_batchDepth; }
    ~Batch()
    {
        if (--m_model->m_batchDepth == 0)
            m_model->emitChanges();
    }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

private:
    LibraryModel* m_model;
};

// One pass of performSave over the photos that were dirty when it began.
struct LibraryModel::SavePass {
    QStringList urls;
    qsizetype next = 0;
    QPromise<void> promise;
};

// One run of the folder preparation; batches count down to its end.
struct LibraryModel::Preparation {
    QUuid generation;
    int remainingBatches = 0;
};

LibraryModel::LibraryModel(Dependencies dependencies, QObject* parent)
    : QObject(parent)
    , m_deps(std::move(dependencies))
    , m_previewService(m_deps.previews)
    , m_shortcuts(std::make_unique<ShortcutStore>(m_deps.persistPreferences))
    , m_navigator(std::make_unique<NavigatorModel>(m_deps.persistPreferences))
    , m_files(m_deps.transferFileSystem)
{
    m_generation = QUuid::createUuid();
    m_previewGeneration = QUuid::createUuid();
    m_xmp.setSaveSeam(m_deps.xmpSaveSeam);
    m_autosaveTimer.setSingleShot(true);
    m_autosaveTimer.setInterval(m_deps.autosaveDelayMs);
    connect(&m_autosaveTimer, &QTimer::timeout, this, [this] { performSave(); });
}

LibraryModel::~LibraryModel()
{
    // Nothing is applied any more; the services below end their cancelled work as they go.
    m_batchDepth = 1;
    m_generation = QUuid::createUuid();
    m_previewGeneration = QUuid::createUuid();
    stopBackgroundWork();
    cancelPreview();
    cancelNeighbors();
    cancelRunning(m_scanTask);
    if (m_indexer)
        m_indexer->cancel();
    // Whoever awaits a save (the quit path) must not wait for ever on a window that is gone.
    if (m_savePass)
        m_savePass->promise.finish();
    for (const auto& waiter : std::as_const(m_saveWaiters))
        waiter->finish();
}

// --- Change notification -------------------------------------------------------------------------

void LibraryModel::touchMarks(const QString& url)
{
    m_changed |= marksGroup;
    if (!m_allMarksChanged && !m_changedMarks.contains(url))
        m_changedMarks.append(url);
}

void LibraryModel::emitChanges()
{
    while (m_changed != 0) {
        const unsigned changed = std::exchange(m_changed, 0);
        const QStringList marks = m_allMarksChanged ? QStringList() : std::exchange(m_changedMarks, {});
        m_allMarksChanged = false;
        m_changedMarks.clear();
        // A slot that calls back into the controller opens its own batch and emits by itself.
        if (changed & folderGroup) emit folderChanged();
        if (changed & preparationGroup) emit preparationChanged();
        if (changed & photosGroup) emit photosChanged();
        if (changed & captureDatesGroup) emit captureDatesChanged();
        if (changed & visibleGroup) emit visiblePhotosChanged();
        if (changed & filterGroup) emit filterChanged();
        if (changed & selectionGroup) emit selectionChanged();
        if (changed & previewGroup) emit previewChanged();
        if (changed & displayGroup) emit displayChanged();
        if (changed & previewRequestGroup) emit previewRequestChanged();
        if (changed & marksGroup) emit marksChanged(marks);
        if (changed & metadataGroup) emit metadataChanged();
        if (changed & transferGroup) emit transferChanged();
        if (changed & tabsGroup) emit tabsChanged();
        if (changed & recoveryGroup) emit recoveryChanged();
    }
}

// --- Setters ---------------------------------------------------------------------------------------

void LibraryModel::setMinimumRating(int rating)
{
    Batch batch(this);
    assign(m_minimumRating, rating, filterGroup);
    applyFilter();
}

void LibraryModel::setLabelFilter(std::optional<SessionLabel> label)
{
    Batch batch(this);
    assign(m_labelFilter, label, filterGroup);
    applyFilter();
}

void LibraryModel::setSearch(const QString& text)
{
    Batch batch(this);
    assign(m_search, text, filterGroup);
    applyFilter();
}

void LibraryModel::setTimeEnabled(bool enabled)
{
    Batch batch(this);
    assign(m_timeEnabled, enabled, filterGroup);
    applyFilter();
}

void LibraryModel::setTimeFrom(const QDateTime& from)
{
    Batch batch(this);
    assign(m_timeFrom, from, filterGroup);
    applyFilter();
}

void LibraryModel::setTimeTo(const QDateTime& to)
{
    Batch batch(this);
    assign(m_timeTo, to, filterGroup);
    applyFilter();
}

void LibraryModel::setPhotoOrder(PhotoOrder order)
{
    Batch batch(this);
    assign(m_photoOrder, order, filterGroup);
    applyFilter();
}

void LibraryModel::setDescending(bool descending)
{
    Batch batch(this);
    assign(m_descending, descending, filterGroup);
    applyFilter();
}

void LibraryModel::setShowSheet(bool show)
{
    Batch batch(this);
    assign(m_showSheet, show, displayGroup);
}

void LibraryModel::setFocusEnabled(bool enabled)
{
    Batch batch(this);
    assign(m_focusEnabled, enabled, displayGroup);
}

void LibraryModel::setFocusBlue(bool blue)
{
    Batch batch(this);
    assign(m_focusBlue, blue, displayGroup);
}

void LibraryModel::setFocusSensitivity(double sensitivity)
{
    Batch batch(this);
    assign(m_focusSensitivity, sensitivity, displayGroup);
}

void LibraryModel::setZoom(double zoom)
{
    Batch batch(this);
    assign(m_zoom, zoom, displayGroup);
    if (zoom <= 0 || !m_preview || m_displayedDimension >= zoomedDimension)
        return;
    // A preview smaller than it was asked for is already the whole image: nothing larger exists.
    const QSize size = m_preview->image.size();
    if (std::max(size.width(), size.height()) >= m_displayedDimension)
        loadPreview();
}

void LibraryModel::setAutoSave(bool enabled)
{
    Batch batch(this);
    const bool wasOn = m_autoSave;
    assign(m_autoSave, enabled, metadataGroup);
    if (enabled && !wasOn)
        performSave();
}

// --- Conveniences ----------------------------------------------------------------------------------

std::optional<PhotoItem> LibraryModel::selectedPhoto() const
{
    if (!m_selectedID || !m_items.contains(*m_selectedID))
        return std::nullopt;
    return m_items.value(*m_selectedID);
}

std::optional<int> LibraryModel::selectedPosition() const
{
    return m_selectedID ? visiblePosition(*m_selectedID) : std::nullopt;
}

std::optional<int> LibraryModel::visiblePosition(const QString& url) const
{
    const auto it = m_indices.constFind(url);
    if (it == m_indices.constEnd())
        return std::nullopt;
    return *it;
}

// --- Folder loading --------------------------------------------------------------------------------

void LibraryModel::open(const QString& folder)
{
    if (m_transferBusy)
        return;
    Batch batch(this);
    const QString url = standardized(folder);
    rememberTab();
    if (m_previewService)
        m_previewService->clearCache();
    cancelScan();
    m_access.start(url);
    if (m_folder != url) {
        assign(m_recoveryFinding, QString(), recoveryGroup);
        assign(m_recoveryOutcome, QString(), recoveryGroup);
    }
    checkRecovery(url);
    assign(m_folder, std::optional<QString>(url), folderGroup);
    assign(m_folderError, std::optional<QString>(), folderGroup);
    if (!m_tabs.contains(url)) {
        m_tabs.append(url);
        touch(tabsGroup);
    }
    const auto state = m_tabStates.constFind(url);
    if (state != m_tabStates.constEnd() && state->complete) {
        m_navigator->record(url);
        restoreTab(*state);
        return;
    }
    if (state != m_tabStates.constEnd()) {
        // An incomplete tab keeps its filters and selection and is read again from the start.
        const FolderTabState remembered = *state;
        m_restoringTab = true;
        setPhotos(remembered.photos);
        assign(m_selectedID, remembered.selected, selectionGroup);
        assign(m_selectedIDs, remembered.selection, selectionGroup);
        m_selectionAnchor = remembered.selected;
        assign(m_minimumRating, remembered.rating, filterGroup);
        assign(m_labelFilter, remembered.label, filterGroup);
        assign(m_search, remembered.search, filterGroup);
        assign(m_photoOrder, remembered.order, filterGroup);
        assign(m_descending, remembered.descending, filterGroup);
        assign(m_timeEnabled, remembered.timeEnabled, filterGroup);
        assign(m_timeFrom, remembered.timeFrom, filterGroup);
        assign(m_timeTo, remembered.timeTo, filterGroup);
        m_restoringTab = false;
    } else {
        // Another folder's photos and selection mean nothing here.
        setPhotos({});
        assign(m_selectedID, std::optional<QString>(), selectionGroup);
        assign(m_selectedIDs, QSet<QString>(), selectionGroup);
        m_selectionAnchor.reset();
    }
    beginScan(url);
}

void LibraryModel::restoreTab(const FolderTabState& state)
{
    m_restoringTab = true;
    setPhotos(state.photos);
    assign(m_selectedID, state.selected, selectionGroup);
    assign(m_selectedIDs, state.selection, selectionGroup);
    m_selectionAnchor = state.selected;
    assign(m_minimumRating, state.rating, filterGroup);
    assign(m_labelFilter, state.label, filterGroup);
    assign(m_search, state.search, filterGroup);
    assign(m_photoOrder, state.order, filterGroup);
    assign(m_descending, state.descending, filterGroup);
    assign(m_timeEnabled, state.timeEnabled, filterGroup);
    assign(m_timeFrom, state.timeFrom, filterGroup);
    assign(m_timeTo, state.timeTo, filterGroup);
    m_restoringTab = false;

    m_scanComplete = true;
    assign(m_status, loadedStatus(m_photos.size()), folderGroup);
    assign(m_preparationCancelled, false, preparationGroup);
    assign(m_preparationStatus, directPreviewLine, preparationGroup);
    stopBackgroundWork();

    const QUuid before = m_previewGeneration;
    applyFilter();
    if (m_previewGeneration == before)
        loadPreview();
}

void LibraryModel::setPhotos(QList<PhotoItem> photos)
{
    if (photos == m_photos)
        return;
    m_photos = std::move(photos);
    m_items.clear();
    m_items.reserve(m_photos.size());
    for (const PhotoItem& photo : std::as_const(m_photos))
        m_items.insert(photo.url, photo);
    touch(photosGroup);
}

void LibraryModel::chooseFolder()
{
    if (!m_deps.chooser)
        return;
    FolderChooser::Request request;
    request.prompt = QStringLiteral("Abrir carpeta");
    request.message = QStringLiteral("Abre una carpeta de fotos. Editar los metadatos no modifica los originales NEF.");
    QPointer<LibraryModel> self(this);
    m_deps.chooser->chooseFolder(request, [self](std::optional<QString> folder) {
        if (self && folder && !folder->isEmpty())
            self->open(*folder);
    });
}

void LibraryModel::reload()
{
    if (!m_folder)
        return;
    Batch batch(this);
    cancelScan();
    if (m_previewService)
        m_previewService->clearCache();
    checkRecovery(*m_folder);
    beginScan(*m_folder);
}

void LibraryModel::beginScan(const QString& folder)
{
    Batch batch(this);
    m_generation = QUuid::createUuid();
    m_scanComplete = false;
    assign(m_isPreparing, true, preparationGroup);
    assign(m_preparationCancelled, false, preparationGroup);
    assign(m_isScanning, true, folderGroup);
    assign(m_metadataLoading, true, preparationGroup);
    assign(m_preparationDone, 0, preparationGroup);
    assign(m_preparationTotal, 0, preparationGroup);
    assign(m_preparationStatus, QStringLiteral("Leyendo archivos…"), preparationGroup);
    assign(m_folderError, std::optional<QString>(), folderGroup);
    touch(metadataGroup);

    cancelPreview();
    cancelNeighbors();
    stopBackgroundWork();
    assign(m_visiblePhotos, QList<PhotoItem>(), visibleGroup);
    m_indices.clear();
    if (std::exchange(m_preview, std::nullopt))
        touch(previewGroup);
    assign(m_displayedID, std::optional<QString>(), previewGroup);
    assign(m_previewLoading, false, previewGroup);
    assign(m_previewError, std::optional<QString>(), previewGroup);

    retireIndexer();
    m_indexer = m_deps.makeIndexer ? m_deps.makeIndexer(folder, scanBatchSize)
                                   : std::make_unique<FolderIndexer>(folder, scanBatchSize);
    requestBatch(m_generation);
}

void LibraryModel::requestBatch(const QUuid& generation)
{
    m_scanTask = m_indexer->nextBatch();
    m_scanAnswer = whenReady(m_scanTask, this, [this, generation](const Result<ScanSnapshot>& snapshot) {
        takeSnapshot(generation, snapshot);
    });
}

void LibraryModel::takeSnapshot(const QUuid& generation, const Result<ScanSnapshot>& snapshot)
{
    if (generation != m_generation || m_scanTask.isCanceled())
        return;
    Batch batch(this);
    if (!snapshot.ok()) {
        if (isCancelled(snapshot.failure()))
            return;
        assign(m_isPreparing, false, preparationGroup);
        assign(m_isScanning, false, folderGroup);
        assign(m_metadataLoading, false, preparationGroup);
        assign(m_preparationCancelled, false, preparationGroup);
        // Nothing is being read any more; the error says why.
        assign(m_preparationStatus, QString(), preparationGroup);
        assign(m_status, QString(), folderGroup);
        assign(m_folderError, std::optional<QString>(snapshot.message()), folderGroup);
        touch(metadataGroup);
        return;
    }
    setPhotos(snapshot->photos);
    if (!snapshot->finished) {
        assign(m_preparationStatus, QStringLiteral("Leyendo archivos: %1…").arg(m_photos.size()), preparationGroup);
        requestBatch(generation);
        return;
    }
    m_scanComplete = true;
    // Only a folder that could be read joins the recent ones.
    if (m_folder)
        m_navigator->record(*m_folder);
    startPreparation();
}

// --- Folder preparation ----------------------------------------------------------------------------
//
// After the scan, the capture dates and the NEF sidecars are read in steps of
// preparationBatchSize photos. Every step goes to both readers at once (each a serialised
// service with its own worker, so dates and sidecars are read side by side), and each answer is
// applied when it arrives, only while the generation that asked for it is current. A step counts
// as prepared when both of its answers are in. Stopping cancels the steps not yet read and
// changes the generation, so an answer on its way changes nothing.

void LibraryModel::startPreparation()
{
    Batch batch(this);
    auto preparation = std::make_shared<Preparation>();
    preparation->generation = m_generation;
    assign(m_isPreparing, true, preparationGroup);
    assign(m_preparationCancelled, false, preparationGroup);
    assign(m_metadataLoading, true, preparationGroup);
    assign(m_preparationDone, 0, preparationGroup);
    assign(m_preparationTotal, int(m_photos.size()), preparationGroup);
    assign(m_preparationStatus, QStringLiteral("Leyendo fechas y preparando XMP…"), preparationGroup);
    touch(metadataGroup);

    for (qsizetype start = 0; start < m_photos.size(); start += preparationBatchSize)
        ++preparation->remainingBatches;
    if (preparation->remainingBatches == 0) {
        finishPreparation();
        return;
    }
    for (qsizetype start = 0; start < m_photos.size(); start += preparationBatchSize) {
        const QList<PhotoItem> photos = m_photos.mid(start, preparationBatchSize);
        QList<QString> nefs;
        for (const PhotoItem& photo : photos)
            if (XMPService::supports(photo.url))
                nefs.append(photo.url);
        const int photoCount = int(photos.size());
        // Parts of this step still to come: the dates, and the sidecars when it has NEFs.
        auto parts = std::make_shared<int>(nefs.isEmpty() ? 1 : 2);
        const QUuid generation = m_generation;

        auto dates = m_captureReader.read(photos);
        m_dateTasks.append(dates);
        m_preparationAnswers.append(whenReady(dates, this, [this, generation, photos, parts, preparation, photoCount](const CaptureTimeReader::Table& table) {
            if (generation != m_generation)
                return;
            Batch answer(this);
            applyDates(photos, table);
            if (--*parts == 0)
                batchPartDone(preparation, photoCount);
        }));
        if (nefs.isEmpty())
            continue;
        auto sidecars = m_xmp.readMany(nefs);
        m_sidecarTasks.append(sidecars);
        m_preparationAnswers.append(whenReady(sidecars, this, [this, generation, parts, preparation, photoCount](const QList<MetadataReadResult>& results) {
            if (generation != m_generation)
                return;
            Batch answer(this);
            applySidecars(results);
            if (--*parts == 0)
                batchPartDone(preparation, photoCount);
        }));
    }
}

void LibraryModel::applyDates(const QList<PhotoItem>& photos, const CaptureTimeReader::Table& dates)
{
    for (const PhotoItem& photo : photos) {
        const auto it = dates.constFind(photo.url);
        if (it != dates.constEnd())
            m_captureDates.insert(photo.url, *it);
        else
            m_captureDates.remove(photo.url);
    }
    touch(captureDatesGroup);
}

void LibraryModel::applySidecars(const QList<MetadataReadResult>& results)
{
    for (const MetadataReadResult& result : results) {
        if (result.error) {
            m_metadataErrors.insert(result.url, *result.error);
            // A photo with pending edits keeps the snapshot they were made against.
            if (!m_dirty.contains(result.url))
                m_snapshots.remove(result.url);
            continue;
        }
        m_metadataErrors.remove(result.url);
        if (!m_dirty.contains(result.url))
            m_snapshots.insert(result.url, *result.snapshot);
        applySnapshotMark(result.url, *result.snapshot);
    }
    touch(metadataGroup);
}

void LibraryModel::applySnapshotMark(const QString& url, const XMPSnapshot& snapshot)
{
    SessionMark mark{std::max(snapshot.rating, 0), labelFromText(snapshot.label)};
    // Edits not yet written stay what the user sees.
    const auto pending = m_dirty.constFind(url);
    if (pending != m_dirty.constEnd()) {
        if (pending->rating)
            mark.rating = *pending->rating;
        if (pending->label)
            mark.label = labelFromText(pending->label);
    }
    if (m_marks.value(url) == mark && m_marks.contains(url))
        return;
    m_marks.insert(url, mark);
    touchMarks(url);
}

void LibraryModel::batchPartDone(const std::shared_ptr<Preparation>& preparation, int photos)
{
    assign(m_preparationDone, m_preparationDone + photos, preparationGroup);
    if (--preparation->remainingBatches == 0)
        finishPreparation();
}

void LibraryModel::finishPreparation()
{
    Batch batch(this);
    m_dateTasks.clear();
    m_sidecarTasks.clear();
    m_preparationAnswers.clear();
    assign(m_isPreparing, false, preparationGroup);
    assign(m_isScanning, false, folderGroup);
    assign(m_metadataLoading, false, preparationGroup);
    assign(m_preparationDone, m_preparationTotal, preparationGroup);
    assign(m_preparationStatus, directPreviewLine, preparationGroup);
    assign(m_status, loadedStatus(m_photos.size()), folderGroup);
    touch(metadataGroup);
    const QUuid before = m_previewGeneration;
    applyFilter();
    if (m_selectedID && !m_preview && m_previewGeneration == before)
        loadPreview();
    if (!m_dirty.isEmpty())
        scheduleSave();
}

void LibraryModel::stopPreparation()
{
    if (!m_isPreparing)
        return;
    Batch batch(this);
    const bool wasScanning = m_isScanning && !m_scanComplete;
    m_generation = QUuid::createUuid();
    stopBackgroundWork();
    cancelRunning(m_scanTask);
    cancelNeighbors();
    retireIndexer();
    assign(m_isPreparing, false, preparationGroup);
    assign(m_preparationCancelled, true, preparationGroup);
    assign(m_isScanning, false, folderGroup);
    assign(m_metadataLoading, false, preparationGroup);
    assign(m_preparationStatus, QStringLiteral("Preparación detenida"), preparationGroup);
    assign(m_status, wasScanning ? QStringLiteral("Lectura detenida • %1 fotos encontradas").arg(m_photos.size()) : loadedStatus(m_photos.size()), folderGroup);
    touch(metadataGroup);
}

void LibraryModel::restartPreparation()
{
    if (!m_folder || m_isPreparing)
        return;
    Batch batch(this);
    if (!m_scanComplete) {
        beginScan(*m_folder);
        return;
    }
    m_generation = QUuid::createUuid();
    startPreparation();
}

void LibraryModel::stopBackgroundWork()
{
    for (auto& task : m_dateTasks)
        cancelRunning(task);
    for (auto& task : m_sidecarTasks)
        cancelRunning(task);
    m_dateTasks.clear();
    m_sidecarTasks.clear();
    m_preparationAnswers.clear();
}

void LibraryModel::retireIndexer()
{
    if (!m_indexer)
        return;
    cancelRunning(m_scanTask);
    std::shared_ptr<FolderIndexing> old(std::move(m_indexer));
    m_retiredIndexers.append(old);
    whenReady(old->cancel(), this, [this, raw = old.get()] {
        m_retiredIndexers.removeIf([raw](const auto& indexer) { return indexer.get() == raw; });
    });
}

void LibraryModel::cancelScan()
{
    Batch batch(this);
    assign(m_isPreparing, false, preparationGroup);
    cancelNeighbors();
    stopBackgroundWork();
    assign(m_preparationStatus, QString(), preparationGroup);
    m_generation = QUuid::createUuid();
    cancelRunning(m_scanTask);
    if (m_isScanning)
        assign(m_status, QStringLiteral("Lectura detenida • %1 fotos encontradas").arg(m_photos.size()), folderGroup);
    assign(m_isScanning, false, folderGroup);
    assign(m_metadataLoading, false, preparationGroup);
    touch(metadataGroup);
}

// --- Actions ---------------------------------------------------------------------------------------

bool LibraryModel::run(ActionID action)
{
    const QString raw = ActionIDs::rawValue(action);
    if (raw.startsWith(QLatin1String("rating"))) {
        setRating(raw.mid(6).toInt());
        return true;
    }
    if (raw.startsWith(QLatin1String("label"))) {
        if (const auto label = SessionLabels::fromRawValue(raw.mid(5).toLower()))
            setLabel(*label);
        return true;
    }
    switch (action) {
    case ActionID::next: move(1); return true;
    case ActionID::previous: move(-1); return true;
    case ActionID::openFolder: chooseFolder(); return true;
    case ActionID::reload: reload(); return true;
    case ActionID::save: savePending(); return true;
    case ActionID::sheet: setShowSheet(!m_showSheet); return true;
    case ActionID::preview: {
        Batch batch(this);
        ++m_previewRequest;
        touch(previewRequestGroup);
        return true;
    }
    case ActionID::selectAll: selectAll(); return true;
    case ActionID::copy: chooseTransfer(TransferKind::copy); return true;
    case ActionID::move: chooseTransfer(TransferKind::move); return true;
    case ActionID::clearMarks: clearSelectedMarks(); return true;
    case ActionID::focus: setFocusEnabled(!m_focusEnabled); return true;
    case ActionID::fit: setZoom(0); return true;
    case ActionID::actual: setZoom(1.0); return true;
    case ActionID::zoomIn: setZoom(m_zoom <= 0 ? 1.0 : std::min(m_zoom * 1.5, maximumZoom)); return true;
    case ActionID::zoomOut: setZoom(m_zoom <= 0 ? 0.5 : std::max(m_zoom / 1.5, minimumZoom)); return true;
    default: return false;
    }
}

// --- Filtering and selection -----------------------------------------------------------------------

bool LibraryModel::lessThan(const PhotoItem& a, const PhotoItem& b) const
{
    const auto byName = [&] { return m_descending ? PhotoItem::ordered(b, a) : PhotoItem::ordered(a, b); };
    switch (m_photoOrder) {
    case PhotoOrder::captured: {
        const auto da = m_captureDates.constFind(a.url);
        const auto db = m_captureDates.constFind(b.url);
        const bool hasA = da != m_captureDates.constEnd();
        const bool hasB = db != m_captureDates.constEnd();
        // Photos without a capture time stay last in both directions.
        if (hasA != hasB)
            return hasA;
        if (hasA && *da != *db)
            return m_descending ? *db < *da : *da < *db;
        return byName();
    }
    case PhotoOrder::name:
        return byName();
    case PhotoOrder::created:
        if (a.created != b.created)
            return m_descending ? b.created < a.created : a.created < b.created;
        return byName();
    case PhotoOrder::size:
        if (a.byteSize != b.byteSize)
            return m_descending ? b.byteSize < a.byteSize : a.byteSize < b.byteSize;
        return byName();
    }
    return byName();
}

void LibraryModel::applyFilter()
{
    if (m_restoringTab)
        return;
    Batch batch(this);
    const PhotoFilter filter{m_minimumRating, m_labelFilter, m_search};
    QList<PhotoItem> visible;
    visible.reserve(m_photos.size());
    for (const PhotoItem& photo : std::as_const(m_photos)) {
        if (!filter.includes(photo, m_marks.value(photo.url)))
            continue;
        if (m_timeEnabled) {
            const auto date = m_captureDates.constFind(photo.url);
            if (date == m_captureDates.constEnd() || *date < m_timeFrom || m_timeTo < *date)
                continue;
        }
        visible.append(photo);
    }
    std::stable_sort(visible.begin(), visible.end(), [this](const PhotoItem& a, const PhotoItem& b) { return lessThan(a, b); });

    m_indices.clear();
    m_indices.reserve(visible.size());
    for (qsizetype i = 0; i < visible.size(); ++i)
        m_indices.insert(visible.at(i).url, int(i));
    assign(m_visiblePhotos, std::move(visible), visibleGroup);

    QSet<QString> kept;
    for (const QString& url : std::as_const(m_selectedIDs))
        if (m_indices.contains(url))
            kept.insert(url);
    assign(m_selectedIDs, std::move(kept), selectionGroup);

    std::optional<QString> target;
    if (m_selectedID && m_indices.contains(*m_selectedID))
        target = m_selectedID;
    else if (!m_visiblePhotos.isEmpty())
        target = m_visiblePhotos.first().url;
    if (target != m_selectedID)
        select(target);
}

void LibraryModel::select(const std::optional<QString>& url)
{
    Batch batch(this);
    assign(m_selectedIDs, url ? QSet<QString>{*url} : QSet<QString>(), selectionGroup);
    m_selectionAnchor = url;
    assign(m_selectedID, url, selectionGroup);
    loadPreview();
}

void LibraryModel::selectClick(const QString& url, Qt::KeyboardModifiers modifiers)
{
    Batch batch(this);
    const bool visible = m_indices.contains(url);
    if (visible && (modifiers & Qt::ShiftModifier) && m_selectionAnchor && m_indices.contains(*m_selectionAnchor)) {
        const int from = std::min(m_indices.value(*m_selectionAnchor), m_indices.value(url));
        const int to = std::max(m_indices.value(*m_selectionAnchor), m_indices.value(url));
        QSet<QString> selection = m_selectedIDs;
        for (int i = from; i <= to; ++i)
            selection.insert(m_visiblePhotos.at(i).url);
        assign(m_selectedIDs, std::move(selection), selectionGroup);
        assign(m_selectedID, std::optional<QString>(url), selectionGroup);
        loadPreview();
        return;
    }
    if (visible && (modifiers & Qt::ControlModifier)) {
        QSet<QString> selection = m_selectedIDs;
        if (!selection.remove(url))
            selection.insert(url);
        assign(m_selectedIDs, std::move(selection), selectionGroup);
        m_selectionAnchor = url;
        assign(m_selectedID, std::optional<QString>(url), selectionGroup);
        loadPreview();
        return;
    }
    select(url);
}

void LibraryModel::move(int step)
{
    if (m_isPreparing || m_preparationCancelled || m_visiblePhotos.isEmpty())
        return;
    const int current = selectedPosition().value_or(0);
    const int target = std::clamp(current + step, 0, int(m_visiblePhotos.size()) - 1);
    select(m_visiblePhotos.at(target).url);
}

void LibraryModel::selectAll()
{
    Batch batch(this);
    QSet<QString> all;
    all.reserve(m_visiblePhotos.size());
    for (const PhotoItem& photo : std::as_const(m_visiblePhotos))
        all.insert(photo.url);
    assign(m_selectedIDs, std::move(all), selectionGroup);
}

// --- Tabs ------------------------------------------------------------------------------------------

void LibraryModel::rememberTab()
{
    if (!m_folder)
        return;
    FolderTabState state;
    state.photos = m_photos;
    state.selected = m_selectedID;
    state.selection = m_selectedIDs;
    state.rating = m_minimumRating;
    state.label = m_labelFilter;
    state.search = m_search;
    state.order = m_photoOrder;
    state.descending = m_descending;
    state.timeEnabled = m_timeEnabled;
    state.timeFrom = m_timeFrom;
    state.timeTo = m_timeTo;
    state.complete = !m_isPreparing && !m_preparationCancelled && !m_isScanning && !m_metadataLoading && !m_folderError;
    m_tabStates.insert(*m_folder, std::move(state));
}

void LibraryModel::closeTab(const QString& url)
{
    const auto pendingIn = [this](const QString& folder) {
        for (auto it = m_dirty.constBegin(); it != m_dirty.constEnd(); ++it)
            if (Paths::parent(it.key()) == folder)
                return true;
        return false;
    };
    if (!m_tabs.contains(url))
        return;
    if (!pendingIn(url)) {
        finishCloseTab(url);
        return;
    }
    whenReady(savePending(), this, [this, url, pendingIn] {
        if (!m_tabs.contains(url))
            return;
        Batch batch(this);
        if (pendingIn(url)) {
            assign(m_folderError, std::optional<QString>(QStringLiteral("Guarda o resuelve los cambios XMP pendientes antes de cerrar la pestaña.")), folderGroup);
            return;
        }
        finishCloseTab(url);
    });
}

void LibraryModel::finishCloseTab(const QString& url)
{
    Batch batch(this);
    const qsizetype position = m_tabs.indexOf(url);
    m_tabs.removeAt(position);
    m_tabStates.remove(url);
    touch(tabsGroup);
    if (m_folder != url)
        return;
    cancelScan();
    retireIndexer();
    cancelPreview();
    cancelNeighbors();
    if (!m_tabs.isEmpty()) {
        // The folder being closed must not be remembered again by open.
        m_folder.reset();
        open(m_tabs.at(std::min(position, m_tabs.size() - 1)));
        return;
    }
    assign(m_folder, std::optional<QString>(), folderGroup);
    assign(m_status, QString(), folderGroup);
    setPhotos({});
    assign(m_visiblePhotos, QList<PhotoItem>(), visibleGroup);
    m_indices.clear();
    m_scanComplete = false;
    select(std::nullopt);
    if (m_previewService)
        m_previewService->clearCache();
}

// --- Previews --------------------------------------------------------------------------------------

int LibraryModel::requestedDimension() const
{
    return m_zoom > 0 ? zoomedDimension : fitDimension;
}

void LibraryModel::cancelPreview()
{
    cancelRunning(m_previewTask);
    m_previewTask = {};
    m_previewAnswer = {};
}

void LibraryModel::cancelNeighbors()
{
    for (auto& task : m_neighbors)
        cancelRunning(task);
    m_neighbors.clear();
}

void LibraryModel::loadPreview()
{
    Batch batch(this);
    cancelPreview();
    m_previewGeneration = QUuid::createUuid();
    if (m_isPreparing || m_preparationCancelled)
        return;
    if (m_displayedID && m_selectedID && m_indices.contains(*m_displayedID) && m_indices.contains(*m_selectedID)) {
        const int from = m_indices.value(*m_displayedID);
        const int to = m_indices.value(*m_selectedID);
        if (from != to)
            m_direction = to > from ? 1 : -1;
    }
    const auto item = selectedPhoto();
    if (!item || !m_previewService) {
        if (std::exchange(m_preview, std::nullopt))
            touch(previewGroup);
        assign(m_displayedID, std::optional<QString>(), previewGroup);
        assign(m_previewError, std::optional<QString>(), previewGroup);
        assign(m_previewLoading, false, previewGroup);
        return;
    }
    assign(m_previewError, std::optional<QString>(), previewGroup);
    assign(m_previewLoading, true, previewGroup);
    const QUuid generation = m_previewGeneration;
    const int dimension = requestedDimension();
    m_previewTask = m_previewService->load(*item, dimension);
    m_previewAnswer = whenReady(m_previewTask, this, [this, generation, url = item->url, dimension](const Result<PreviewResult>& result) {
        if (generation != m_previewGeneration)
            return;
        if (!result.ok() && isCancelled(result.failure()))
            return;
        Batch answer(this);
        if (result.ok()) {
            m_preview = *result;
            m_displayedDimension = dimension;
            touch(previewGroup);
            assign(m_displayedID, std::optional<QString>(url), previewGroup);
            assign(m_previewError, std::optional<QString>(), previewGroup);
        } else {
            assign(m_previewError, std::optional<QString>(result.message()), previewGroup);
        }
        assign(m_previewLoading, false, previewGroup);
        prefetchNeighbors();
    });
}

void LibraryModel::prefetchNeighbors()
{
    if (!m_previewService)
        return;
    // Around the photo just loaded (shown or failed): the selection.
    const std::optional<int> position = selectedPosition();
    if (!position)
        return;
    static constexpr int fitOffsets[] = {1, 2, 3, 4, -1, -2};
    static constexpr int zoomedOffsets[] = {1, 2, -1};
    const int dimension = requestedDimension();
    QList<PhotoItem> wanted;
    const auto add = [&](int offset) {
        const int at = *position + offset * m_direction;
        if (at >= 0 && at < m_visiblePhotos.size())
            wanted.append(m_visiblePhotos.at(at));
    };
    if (m_zoom > 0)
        for (int offset : zoomedOffsets)
            add(offset);
    else
        for (int offset : fitOffsets)
            add(offset);

    QHash<QString, PhotoItem> keys;
    for (const PhotoItem& photo : std::as_const(wanted))
        keys.insert(photo.cacheKey(dimension), photo);
    for (auto it = m_neighbors.begin(); it != m_neighbors.end();) {
        if (keys.contains(it.key())) {
            ++it;
        } else {
            cancelRunning(*it);
            it = m_neighbors.erase(it);
        }
    }
    for (const PhotoItem& photo : std::as_const(wanted)) {
        const QString key = photo.cacheKey(dimension);
        if (!m_neighbors.contains(key))
            m_neighbors.insert(key, m_previewService->prefetch(photo, dimension));
    }
}

// --- Marks and sidecars ----------------------------------------------------------------------------

void LibraryModel::editMarks(const std::function<void(SessionMark&, XMPPatch&)>& edit)
{
    if (m_isPreparing || m_preparationCancelled)
        return;
    Batch batch(this);
    for (const QString& url : std::as_const(m_selectedIDs)) {
        SessionMark mark = m_marks.value(url);
        XMPPatch patch = m_dirty.value(url);
        edit(mark, patch);
        if (!m_marks.contains(url) || m_marks.value(url) != mark) {
            m_marks.insert(url, mark);
            touchMarks(url);
        }
        if (XMPService::supports(url)) {
            m_dirty.insert(url, patch);
            touch(metadataGroup);
        }
        m_editVersions.insert(url, QUuid::createUuid());
    }
    applyFilter();
    scheduleSave();
}

void LibraryModel::setRating(int rating)
{
    const int clamped = std::clamp(rating, 0, 5);
    editMarks([clamped](SessionMark& mark, XMPPatch& patch) {
        mark.rating = clamped;
        patch.rating = clamped;
    });
}

void LibraryModel::setLabel(SessionLabel label)
{
    editMarks([label](SessionMark& mark, XMPPatch& patch) {
        mark.label = label;
        patch.label = labelText(label);
    });
}

void LibraryModel::clearSelectedMarks()
{
    editMarks([](SessionMark& mark, XMPPatch& patch) {
        mark = SessionMark{};
        patch.rating = 0;
        patch.label = QString();
    });
}

void LibraryModel::scheduleSave()
{
    if (!m_autoSave)
        return;
    m_autosaveTimer.start(m_deps.autosaveDelayMs);
}

QFuture<void> LibraryModel::performSave()
{
    if (m_metadataLoading || m_isSaving || m_dirty.isEmpty() || m_conflictURL)
        return QtFuture::makeReadyFuture();
    Batch batch(this);
    m_autosaveTimer.stop();
    assign(m_isSaving, true, metadataGroup);
    auto pass = std::make_shared<SavePass>();
    pass->urls = m_dirty.keys();
    std::sort(pass->urls.begin(), pass->urls.end());
    pass->promise.start();
    QFuture<void> future = pass->promise.future();
    m_savePass = pass;
    saveNext(pass);
    return future;
}

void LibraryModel::saveNext(const std::shared_ptr<SavePass>& pass)
{
    Batch batch(this);
    while (pass->next < pass->urls.size()) {
        const QString url = pass->urls.at(pass->next++);
        const auto patch = m_dirty.constFind(url);
        if (patch == m_dirty.constEnd())
            continue;
        const QUuid version = m_editVersions.value(url);
        const auto snapshot = m_snapshots.constFind(url);
        if (snapshot == m_snapshots.constEnd()) {
            assign(m_metadataStatus, m_metadataErrors.value(url, QStringLiteral("Espera a que se cargue el XMP y vuelve a guardar.")), metadataGroup);
            assign(m_autoSave, false, metadataGroup);
            continue;
        }
        whenReady(m_xmp.save(*snapshot, *patch), this, [this, pass, url, version](const Result<XMPSnapshot>& saved) {
            if (m_savePass != pass)
                return;
            Batch answer(this);
            touch(metadataGroup);
            if (saved.ok()) {
                m_snapshots.insert(url, *saved);
                if (m_editVersions.value(url) == version)
                    m_dirty.remove(url);
                assign(m_metadataStatus, QStringLiteral("Guardado %1 • RAW intacto").arg(Paths::displayText(Paths::fileName(url))), metadataGroup);
                saveNext(pass);
                return;
            }
            assign(m_autoSave, false, metadataGroup);
            if (isConflict(saved.failure())) {
                assign(m_conflictURL, std::optional<QString>(url), metadataGroup);
                assign(m_metadataStatus, saved.message(), metadataGroup);
            } else {
                assign(m_metadataStatus, saved.message(), metadataGroup);
                assign(m_folderError, std::optional<QString>(saved.message()), folderGroup);
            }
            finishPass(pass);
        });
        return;
    }
    finishPass(pass);
}

void LibraryModel::finishPass(const std::shared_ptr<SavePass>& pass)
{
    Batch batch(this);
    m_savePass.reset();
    assign(m_isSaving, false, metadataGroup);
    const auto waiters = std::exchange(m_saveWaiters, {});
    if (!waiters.isEmpty()) {
        // Someone asked for a save while this pass ran: one more pass covers what it missed.
        whenReady(performSave(), this, [waiters] {
            for (const auto& waiter : waiters)
                waiter->finish();
        });
    } else if (m_autoSave && !m_dirty.isEmpty()) {
        scheduleSave();
    }
    pass->promise.finish();
}

QFuture<void> LibraryModel::savePending()
{
    if (!m_isSaving)
        return performSave();
    auto waiter = std::make_shared<QPromise<void>>();
    waiter->start();
    m_saveWaiters.append(waiter);
    return waiter->future();
}

void LibraryModel::resolveConflict(bool merge)
{
    if (!m_conflictURL)
        return;
    const QString url = *m_conflictURL;
    {
        Batch batch(this);
        m_snapshots.remove(url);
        touch(metadataGroup);
    }
    whenReady(m_xmp.read(url), this, [this, url, merge](const Result<XMPSnapshot>& fresh) {
        Batch batch(this);
        assign(m_conflictURL, std::optional<QString>(), metadataGroup);
        touch(metadataGroup);
        if (!fresh.ok()) {
            m_metadataErrors.insert(url, fresh.message());
            assign(m_metadataStatus, fresh.message(), metadataGroup);
            return;
        }
        m_metadataErrors.remove(url);
        m_snapshots.insert(url, *fresh);
        if (merge) {
            // The fields the user did not edit now show what the other program wrote.
            applySnapshotMark(url, *fresh);
            applyFilter();
            performSave();
            return;
        }
        m_dirty.remove(url);
        m_editVersions.remove(url);
        applySnapshotMark(url, *fresh);
        assign(m_metadataStatus, QStringLiteral("Se ha cargado el XMP externo"), metadataGroup);
        applyFilter();
    });
}

// --- Transfers -------------------------------------------------------------------------------------

void LibraryModel::chooseTransfer(TransferKind kind)
{
    if (m_isPreparing || m_preparationCancelled || m_selectedIDs.isEmpty() || m_transferBusy || m_isSaving)
        return;
    if (!m_dirty.isEmpty()) {
        Batch batch(this);
        assign(m_folderError, std::optional<QString>(QStringLiteral("Guarda los cambios XMP pendientes antes de copiar o mover fotos.")), folderGroup);
        return;
    }
    if (!m_deps.chooser)
        return;
    const QStringList sources(m_selectedIDs.cbegin(), m_selectedIDs.cend());
    FolderChooser::Request request;
    request.prompt = QStringLiteral("Elegir destino");
    request.message = QStringLiteral("A continuación, revisa las fotos y sus archivos asociados antes de confirmar.");
    request.canCreateFolders = true;
    QPointer<LibraryModel> self(this);
    m_deps.chooser->chooseFolder(request, [self, sources, kind](std::optional<QString> destination) {
        if (!self || !destination || destination->isEmpty())
            return;
        // The state may have moved on while the chooser was open.
        if (self->m_transferBusy || self->m_transferPlan)
            return;
        Batch batch(self.data());
        self->assign(self->m_transferBusy, true, transferGroup);
        whenReady(self->m_files.plan(sources, Paths::clean(*destination), kind), self.data(), [model = self.data()](const Result<TransferPlan>& plan) {
            Batch answer(model);
            model->assign(model->m_transferBusy, false, transferGroup);
            if (plan.ok())
                model->assign(model->m_transferPlan, std::optional<TransferPlan>(*plan), transferGroup);
            else
                model->assign(model->m_folderError, std::optional<QString>(plan.message()), folderGroup);
        });
    });
}

void LibraryModel::confirmTransfer()
{
    if (!m_transferPlan || m_transferBusy)
        return;
    Batch batch(this);
    const TransferPlan plan = *std::exchange(m_transferPlan, std::nullopt);
    touch(transferGroup);
    assign(m_transferBusy, true, transferGroup);
    whenReady(m_files.execute(plan), this, [this, kind = plan.kind](const Result<TransferReceipt>& receipt) {
        Batch answer(this);
        if (!receipt.ok()) {
            assign(m_folderError, std::optional<QString>(receipt.message()), folderGroup);
            assign(m_transferBusy, false, transferGroup);
            return;
        }
        QString message = QStringLiteral("%1 %2 archivos. ")
                              .arg(kind == TransferKind::copy ? QStringLiteral("Copiados") : QStringLiteral("Movidos"))
                              .arg(receipt->count);
        if (!receipt->recoveryFolders.isEmpty())
            message += QStringLiteral("Copias de recuperación conservadas en .vantelor-move-recovery.");
        assign(m_metadataStatus, message, metadataGroup);
        reload();
        m_navigator->refresh();
        assign(m_transferBusy, false, transferGroup);
    });
}

void LibraryModel::cancelTransfer()
{
    Batch batch(this);
    assign(m_transferPlan, std::optional<TransferPlan>(), transferGroup);
}

// --- Interrupted transfers -------------------------------------------------------------------------

void LibraryModel::checkRecovery(const QString& folder)
{
    const QUuid generation = QUuid::createUuid();
    m_recoveryGeneration = generation;
    whenReady(m_files.lookForUnfinished(folder), this, [this, generation](const Result<RecoveryReport>& report) {
        // A folder that cannot be read says so through its scan.
        if (generation != m_recoveryGeneration)
            return;
        Batch answer(this);
        assign(m_recoveryFinding, report && report->needsAttention() ? report->text() : QString(), recoveryGroup);
    });
}

void LibraryModel::recoverTransfers()
{
    if (!m_folder || m_recoveryFinding.isEmpty() || m_transferBusy || m_isSaving)
        return;
    Batch batch(this);
    const QString folder = *m_folder;
    // Another look started meanwhile must not bring back the finding this run is putting right.
    m_recoveryGeneration = QUuid::createUuid();
    assign(m_recovering, true, recoveryGroup);
    assign(m_transferBusy, true, transferGroup);
    whenReady(m_files.recover(folder, false), this, [this, folder](const Result<RecoveryReport>& report) {
        Batch answer(this);
        assign(m_recovering, false, recoveryGroup);
        assign(m_transferBusy, false, transferGroup);
        if (m_folder != folder)
            return;
        assign(m_recoveryOutcome, report ? report->text() : report.message(), recoveryGroup);
        assign(m_recoveryFinding, QString(), recoveryGroup);
        // Files came back home or reached their destination: read the folder again, and look
        // again, in case something was left as it was.
        reload();
        m_navigator->refresh();
    });
}

void LibraryModel::dismissRecoveryOutcome()
{
    Batch batch(this);
    assign(m_recoveryOutcome, QString(), recoveryGroup);
}

} // namespace vantelor
