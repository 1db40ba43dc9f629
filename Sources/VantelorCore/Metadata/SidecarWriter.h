#pragma once

#include <QByteArray>
#include <QString>

#include "Metadata/XMPDocument.h"
#include "Metadata/XMPPatch.h"
#include "Metadata/XMPSaveSeam.h"
#include "Metadata/XMPSnapshot.h"
#include "Support/Result.h"

namespace vantelor {

// The saving half of the sidecar service, run synchronously on the service's worker. A save
// refuses to write over a sidecar that changed since it was read, writes the new bytes to a
// hidden temporary file first, puts them in place by an atomic swap (or, where the volume cannot
// swap, a locked and re-checked rename), keeps every replaced version in ".vantelor-backups",
// creates new sidecars only where nothing exists, synchronises to disk and reads the result back.
// In every failure the sidecar holds its old or its new bytes, and the old ones are never lost.
class SidecarWriter {
public:
    class TemporaryFile;

    explicit SidecarWriter(XMPSaveSeam seam = {});

    // Runs the stages below in order; each one returns the failure that ends the save.
    Result<XMPSnapshot> save(const XMPSnapshot& snapshot, const XMPPatch& patch);

    // Replacement where the volume has no atomic swap: under an exclusive advisory lock, back up
    // the old bytes, check once more, then rename over the sidecar.
    Status replacePortable(const XMPSnapshot& snapshot, const QString& temporary, const QString& backupFolder);
    // A new file with the given bytes, only if nothing is at the path; synchronised to disk.
    Status createExclusive(const QByteArray& data, const QString& path);

private:
    struct Edit {
        QByteArray bytes;     // the sidecar to write
        XMPValues previous;   // what the snapshot's sidecar said before the patch
    };

    // A valid rating, and a NEF that is there.
    static Status checkRequest(const XMPSnapshot& snapshot, const XMPPatch& patch);
    // The sidecar on disk is still the snapshot's; otherwise a conflict with the given text.
    static Status checkUnchanged(const XMPSnapshot& snapshot, const QString& conflict);
    static Result<Edit> applyPatch(const XMPSnapshot& snapshot, const XMPPatch& patch);
    // The new bytes in a hidden temporary file beside the sidecar (with the old one's
    // permissions), and the backup folder ready when there is an old one.
    Status prepareTemporary(const XMPSnapshot& snapshot, const QByteArray& bytes, TemporaryFile& temporary,
                            const QString& backupFolder) const;
    // Swap with the old sidecar and move the old bytes to the backups; the portable path where
    // the volume cannot swap.
    Status replaceSidecar(const XMPSnapshot& snapshot, const QByteArray& bytes, TemporaryFile& temporary,
                          const QString& backupFolder);
    // Rename into place only where nothing is; an exclusive create where the volume cannot.
    Status createSidecar(const XMPSnapshot& snapshot, const QByteArray& bytes, const TemporaryFile& temporary);
    // The photo and its sidecar read again: the saved snapshot, or a conflict.
    static Result<XMPSnapshot> readBack(const XMPSnapshot& snapshot, const XMPPatch& patch, const Edit& edit);

    void reach(XMPSaveStep step) const;
    // 0, or the error number of renameat2 with the given flags.
    int renameWithFlags(const QString& from, const QString& to, unsigned int flags) const;
    Status synchroniseFolder(const QString& folder) const;
    // 0, or the error number of the sync of a file this save created in place.
    int synchroniseFile(int fd, const QString& path) const;

    XMPSaveSeam m_seam;
};

} // namespace vantelor
