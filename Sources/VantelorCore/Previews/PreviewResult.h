#pragma once

#include <QImage>

#include "Previews/PhotoMetadata.h"

namespace vantelor {

// A decoded, upright preview with the capture data of its file. A value: QImage shares its
// pixels, so copies are cheap and may cross threads; nobody changes a result once it is built.
struct PreviewResult {
    // Which source gave the bitmap; the path the decoder took, for tests and diagnostics.
    enum class Source {
        nikonPreview,   // the largest JPEG embedded in a NEF
        thumbnail,      // the file's own embedded thumbnail or preview
        fullImage,      // the image itself, decoded at reduced size
    };

    QImage image;
    PhotoMetadata metadata;
    // True when the bitmap was decoded from the full image rather than taken from an embedded
    // preview or thumbnail.
    bool usedFallback = false;
    Source source = Source::fullImage;
    // True when even the last source could be decoded only in part (a file cut short, corrupt
    // data): the bitmap is what could be saved, and the user must be told it is not the frame.
    bool damaged = false;

    // The memory the bitmap holds: what it costs the cache.
    qint64 cost() const { return qint64(image.bytesPerLine()) * image.height(); }
};

} // namespace vantelor
