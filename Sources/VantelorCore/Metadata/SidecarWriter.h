#pragma once

#include <QByteArray>
#include <QString>

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
    explicit SidecarWriter(XMPSaveSeam seam = {});

    Result<XMPSnapshot> save(const XMPSnapshot& snapshot, const XMPPatch& patch);

    // Replacement where the volume has no atomic swap: under an exclusive advisory lock, back up
    // the old bytes, check once more, then rename over the sidecar.
    Status replacePortable(const XMPSnapshot& snapshot, const QString& temporary, const QString& backupFolder);
    // A new file with the given bytes, only if nothing is at the path; synchronised to disk.
    Status createExclusive(const QByteArray& data, const QString& path);

private:
    void reach(XMPSaveStep step) const;
    // 0, or the error number of renameat2 with the given flags.
    int renameWithFlags(const QString& from, const QString& to, unsigned int flags) const;
    Status synchroniseFolder(const QString& folder) const;

    XMPSaveSeam m_seam;
};

} // namespace vantelor
