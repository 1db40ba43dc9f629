#pragma once

#include <functional>

#include <QString>

namespace vantelor {

// The points between the steps of a save at which another program may act. Tests put a real
// writer there (a file changed, deleted, replaced or locked) to prove each check.
enum class XMPSaveStep {
    checked,            // the sidecar matched the snapshot; nothing written yet
    prepared,           // the temporary file holds the new bytes
    checkedAgain,       // the last check before the sidecar is replaced or created
    exchanged,          // the atomic swap is done; the old bytes are in the temporary file
    portableLocked,     // portable replacement: the sidecar is locked, no backup yet
    portableBackedUp,   // portable replacement: the backup is written, the sidecar not replaced
    placed,             // the new sidecar is in place, before it is read back
};

// A small seam in the saving sequence, not a mock: every file-system call still runs for real.
struct XMPSaveSeam {
    // Runs on the service's worker at each step.
    std::function<void(XMPSaveStep)> atStep;
    // Behave as on a volume that refuses the swap and exclusive-rename flags (FUSE, NFS, CIFS
    // answer EINVAL), so that the portable path runs.
    bool unsupportedRenames = false;
    // Benchmarks measure the work without the disk's own latency; everything else synchronises.
    bool synchronise = true;
    // A disk that does not confirm a file created in place: the error number its sync fails
    // with for that path, or 0 to let the real sync run.
    std::function<int(const QString& path)> failSync;
};

} // namespace vantelor
