#pragma once

#include <QStringList>

#include "Files/TransferPlan.h"
#include "Support/Result.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// Turns a selection of photos and a destination folder into a TransferPlan: each photo with every
// file of its folder that shares its base name (sidecars, JPEG twins, any extension), each
// file's digest and size now, and where each will land. Refuses, before anything on disk changes,
// whatever would overwrite a file, any symbolic link, and a destination that is a source folder.
// Runs on the caller's thread; FileWorkflow calls it on its worker.
class TransferPlanner {
public:
    static Result<TransferPlan> plan(const QStringList& sources, const QString& destination, TransferKind kind,
                                     const CancelCheck& cancelled = {});
};

} // namespace vantelor
