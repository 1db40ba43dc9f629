#pragma once

#include "Library/FolderIndexer.h"

namespace vantelor {

// The work of FolderIndexer::nextBatch on the caller's thread, with the caller's cancel check,
// for tests and benchmarks.
struct FolderIndexer::Probe {
    static Result<ScanSnapshot> nextBatchNow(FolderIndexer& indexer, const CancelCheck& cancelled)
    {
        return indexer.nextBatchNow(cancelled);
    }
};

} // namespace vantelor
