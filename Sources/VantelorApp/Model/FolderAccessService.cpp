#include "FolderAccessService.h"

namespace vantelor {

bool FolderAccessService::start(const QString& folder)
{
    if (!m_scopes.contains(folder))
        m_scopes.append(folder);
    return true;
}

} // namespace vantelor
