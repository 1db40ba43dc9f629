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
};

} // namespace vantelor
