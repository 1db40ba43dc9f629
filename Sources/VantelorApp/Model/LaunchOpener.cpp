#include "Model/LaunchOpener.h"

#include "Model/LibraryModel.h"

namespace vantelor {

LaunchOpener::LaunchOpener(LibraryModel& library, QObject* parent)
    : QObject(parent)
    , m_library(library)
{
    connect(&m_library, &LibraryModel::preparationChanged, this, &LaunchOpener::selectPending);
    connect(&m_library, &LibraryModel::visiblePhotosChanged, this, &LaunchOpener::selectPending);
    connect(&m_library, &LibraryModel::folderChanged, this, &LaunchOpener::selectPending);
}

void LaunchOpener::open(const QList<LaunchTarget>& targets)
{
    m_pending.reset();
    // While opening, the controller still shows the previous folder's photos: nothing to decide.
    m_opening = true;
    for (const LaunchTarget& target : targets)
        m_library.open(target.folder);
    m_opening = false;
    if (!targets.isEmpty() && targets.last().photo)
        m_pending = targets.last();
    selectPending();
}

void LaunchOpener::selectPending()
{
    if (!m_pending || m_opening)
        return;
    if (m_library.folder() != m_pending->folder || m_library.folderError()) {
        m_pending.reset();
        return;
    }
    if (m_library.isScanning() || m_library.isPreparing())
        return;
    const QString photo = *m_pending->photo;
    m_pending.reset();
    if (m_library.visiblePosition(photo))
        m_library.select(photo);
}

} // namespace vantelor
