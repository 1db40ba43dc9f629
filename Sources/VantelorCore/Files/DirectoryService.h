#pragma once

#include <QFuture>
#include <QList>

#include "Files/DirectoryEntry.h"
#include "Support/Result.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// The two folder operations of the folder navigator: listing a folder's subfolders and creating
// a new one. A serialised service: calls queue on its one worker and never block the caller.
// It never follows a symbolic link to a folder, so the navigator's tree stays finite.
class DirectoryService {
public:
    DirectoryService();

    // The subfolders of `folder` (hidden ones and symbolic links left out), ordered by name as a
    // file browser orders them. Any entry that cannot be read fails the whole listing.
    QFuture<Result<QList<DirectoryEntry>>> children(const QString& folder);
    // Creates `parent`/`name` (rwxr-xr-x before the umask) and returns its path. Never replaces
    // an existing entry and never creates missing parents.
    QFuture<Result<QString>> createFolder(const QString& parent, const QString& name);

    // The same work on the calling thread, for the command line and the services' own workers.
    static Result<QList<DirectoryEntry>> listChildren(const QString& folder);
    static Result<QString> makeFolder(const QString& parent, const QString& name);

private:
    SerialExecutor m_executor;
};

} // namespace vantelor
