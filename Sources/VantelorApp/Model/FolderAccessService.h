#pragma once

#include <QStringList>

namespace vantelor {

// Linux grants folder access by file permissions alone: there is nothing to start or stop. The
// service only records the folders this window opened, so that the record stays one place if a
// sandboxed build (a portal) ever needs to hold them.
class FolderAccessService {
public:
    // Always succeeds here; returns whether access was started.
    bool start(const QString& folder);
    const QStringList& scopes() const { return m_scopes; }

private:
    QStringList m_scopes;
};

} // namespace vantelor
