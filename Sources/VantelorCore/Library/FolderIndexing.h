#pragma once

#include <QFuture>

#include "Library/ScanSnapshot.h"
#include "Support/Result.h"

namespace vantelor {

// What the library controller needs of a folder scanner, so that it can be given another one.
class FolderIndexing {
public:
    virtual ~FolderIndexing() = default;

    // The next batch merged into the sorted list. Fails with BrowserError::folderUnavailable, or
    // with Cancelled once the future was cancelled or cancel() was called.
    virtual QFuture<Result<ScanSnapshot>> nextBatch() = 0;
    // Every later nextBatch fails with Cancelled; ordered after a running nextBatch.
    virtual QFuture<void> cancel() = 0;
};

} // namespace vantelor
