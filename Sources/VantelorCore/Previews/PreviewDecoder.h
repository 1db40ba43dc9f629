#pragma once

#include "Library/PhotoItem.h"
#include "Previews/PreviewResult.h"
#include "Support/Result.h"

namespace vantelor {

// Turns one photo file into an upright preview bitmap of at most `dimension` pixels on its longer
// side, taking the cheapest source that serves: the largest JPEG embedded in a NEF; else the
// file's own embedded thumbnail; else (or when a JPEG, PNG, HEIC or TIFF thumbnail is smaller
// than the image and the request) the image itself decoded at reduced size. Synchronous and
// stateless: the preview service runs it on its worker threads, and any thread may call it.
namespace PreviewDecoder {

// Fails only with BrowserError::unreadableImage (the file's name).
Result<PreviewResult> decode(const PhotoItem& item, int dimension);

// The capture data of a file without decoding its pixels, as decode() reports it; fails with
// BrowserError::unreadableImage when the file cannot be opened.
Result<PhotoMetadata> metadata(const QString& path);

// Extensions whose small embedded thumbnails are replaced by a decode of the image.
bool upgradesSmallThumbnails(const QString& path);

} // namespace PreviewDecoder
} // namespace vantelor
