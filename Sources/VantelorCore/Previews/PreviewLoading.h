#pragma once

#include <QFuture>

#include "Library/PhotoItem.h"
#include "Previews/PreviewResult.h"
#include "Support/Result.h"

namespace vantelor {

// How the library controller and tests obtain previews; PreviewService is the production one.
class PreviewLoading {
public:
    virtual ~PreviewLoading() = default;

    // The photo's preview at a pixel size, or BrowserError::unreadableImage. Cancelling the
    // returned future ends it at once, as cancelled and without a result.
    virtual QFuture<Result<PreviewResult>> load(const PhotoItem& item, int dimension) = 0;
    // Warms the cache ahead of the user at the lowest priority; the answer may be ignored, and
    // cancelling it gives the work up when it has not started.
    virtual QFuture<Result<PreviewResult>> prefetch(const PhotoItem& item, int dimension) { return load(item, dimension); }
    // Forgets every decoded preview (another folder was opened, or the folder was reloaded).
    virtual void clearCache() {}
};

} // namespace vantelor
