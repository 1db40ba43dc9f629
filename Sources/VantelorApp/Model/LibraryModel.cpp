#include "LibraryModel.h"

#include "Model/NavigatorModel.h"
#include "Model/ShortcutStore.h"

namespace vantelor {

// A first slice: the state, its setters and the signals, so that the screens can be built while
// the roads behind the operations are filled in.

LibraryModel::LibraryModel(Dependencies dependencies, QObject* parent)
    : QObject(parent)
    , m_deps(std::move(dependencies))
    , m_previewService(m_deps.previews)
    , m_shortcuts(std::make_unique<ShortcutStore>(m_deps.persistPreferences))
    , m_navigator(std::make_unique<NavigatorModel>(m_deps.persistPreferences))
    , m_files(m_deps.transferFileSystem)
{
}

LibraryModel::~LibraryModel() = default;

void LibraryModel::setMinimumRating(int rating) { m_minimumRating = rating; emit filterChanged(); applyFilter(); }
void LibraryModel::setLabelFilter(std::optional<SessionLabel> label) { m_labelFilter = label; emit filterChanged(); applyFilter(); }
void LibraryModel::setSearch(const QString& text) { m_search = text; emit filterChanged(); applyFilter(); }
void LibraryModel::setTimeEnabled(bool enabled) { m_timeEnabled = enabled; emit filterChanged(); applyFilter(); }
void LibraryModel::setTimeFrom(const QDateTime& from) { m_timeFrom = from; emit filterChanged(); applyFilter(); }
void LibraryModel::setTimeTo(const QDateTime& to) { m_timeTo = to; emit filterChanged(); applyFilter(); }
void LibraryModel::setPhotoOrder(PhotoOrder order) { m_photoOrder = order; emit filterChanged(); applyFilter(); }
void LibraryModel::setDescending(bool descending) { m_descending = descending; emit filterChanged(); applyFilter(); }
void LibraryModel::setShowSheet(bool show) { m_showSheet = show; emit displayChanged(); }
void LibraryModel::setFocusEnabled(bool enabled) { m_focusEnabled = enabled; emit displayChanged(); }
void LibraryModel::setFocusBlue(bool blue) { m_focusBlue = blue; emit displayChanged(); }
void LibraryModel::setFocusSensitivity(double sensitivity) { m_focusSensitivity = sensitivity; emit displayChanged(); }
void LibraryModel::setZoom(double zoom) { m_zoom = zoom; emit displayChanged(); }
void LibraryModel::setAutoSave(bool enabled) { m_autoSave = enabled; emit metadataChanged(); }

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

void LibraryModel::open(const QString&) {}
void LibraryModel::chooseFolder() {}
void LibraryModel::reload() {}
void LibraryModel::cancelScan() {}
void LibraryModel::restartPreparation() {}
void LibraryModel::stopPreparation() {}
bool LibraryModel::run(ActionID) { return false; }
void LibraryModel::applyFilter() {}
void LibraryModel::select(const std::optional<QString>&) {}
void LibraryModel::selectClick(const QString&, Qt::KeyboardModifiers) {}
void LibraryModel::move(int) {}
void LibraryModel::selectAll() {}
void LibraryModel::rememberTab() {}
void LibraryModel::closeTab(const QString&) {}
void LibraryModel::loadPreview() {}
void LibraryModel::prefetchNeighbors() {}
void LibraryModel::setRating(int) {}
void LibraryModel::setLabel(SessionLabel) {}
void LibraryModel::clearSelectedMarks() {}
void LibraryModel::scheduleSave() {}
QFuture<void> LibraryModel::performSave() { return QtFuture::makeReadyFuture(); }
QFuture<void> LibraryModel::savePending() { return performSave(); }
void LibraryModel::resolveConflict(bool) {}
void LibraryModel::chooseTransfer(TransferKind) {}
void LibraryModel::confirmTransfer() {}
void LibraryModel::cancelTransfer() {}
void LibraryModel::beginScan(const QString&) {}
int LibraryModel::requestedDimension() const { return m_zoom > 0 ? zoomedDimension : fitDimension; }

} // namespace vantelor
