#pragma once

#include <QFuture>
#include <QList>
#include <QString>

#include "Metadata/MetadataReadResult.h"
#include "Metadata/XMPPatch.h"
#include "Metadata/XMPSaveSeam.h"
#include "Metadata/XMPSnapshot.h"
#include "Support/Result.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// The one owner of all access to XMP sidecars: finds and reads the sidecar of a NEF and saves
// ratings and labels into it without ever losing what another program wrote (see SidecarReader
// and SidecarWriter). Operations run one at a time on the service's own worker; call them from
// any thread and continue on the returned future. Raw files are never written.
class XMPService {
public:
    XMPService();

    // Whether a photo's marks are kept in a sidecar at all: NEF files only.
    static bool supports(const QString& url);

    QFuture<Result<XMPSnapshot>> read(const QString& raw);
    // One result per photo, in input order; never fails as a whole. Callers pass NEF files.
    QFuture<QList<MetadataReadResult>> readMany(const QList<QString>& raws);
    // Returns the new snapshot, or the given one when the sidecar already held the patch.
    QFuture<Result<XMPSnapshot>> save(const XMPSnapshot& snapshot, const XMPPatch& patch);

    // Saves choose their path by what the volume answers; this preference is kept for callers and
    // not consulted. Tests force the portable path through the seam.
    bool forcePortableWrites = false;

    // For tests and benchmarks: applies to saves submitted afterwards.
    void setSaveSeam(XMPSaveSeam seam) { m_seam = std::move(seam); }

private:
    XMPSaveSeam m_seam;
    SerialExecutor m_executor;   // last: destroyed first, waiting for the running operation
};

} // namespace vantelor
