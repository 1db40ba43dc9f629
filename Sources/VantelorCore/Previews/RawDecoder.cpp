#include "Previews/RawDecoder.h"

#include <memory>

#include <libraw/libraw.h>

#include "Previews/Downscale.h"
#include "Support/Paths.h"

namespace vantelor::RawDecoder {

namespace {

// LibRaw's own ceiling for one raw buffer; well above any camera's (a 100-megapixel sensor needs
// about 200 MiB), far below what a hostile header could ask for.
constexpr unsigned maxRawMemoryMiB = 512;
constexpr qint64 maxPixels = 160'000'000;

} // namespace

std::optional<QImage> decode(const QString& path, int maxPixelSize)
{
    // LibRaw objects are large (hundreds of KiB): keep them off the worker's stack.
    auto raw = std::make_unique<LibRaw>();
    raw->imgdata.params.half_size = 1;
    raw->imgdata.params.use_camera_wb = 1;
    raw->imgdata.params.output_bps = 8;
    raw->imgdata.params.max_raw_memory_mb = maxRawMemoryMiB;
    if (raw->open_file(Paths::encode(path).constData()) != LIBRAW_SUCCESS)
        return std::nullopt;
    if (qint64(raw->imgdata.sizes.raw_width) * raw->imgdata.sizes.raw_height > maxPixels)
        return std::nullopt;
    if (raw->unpack() != LIBRAW_SUCCESS || raw->dcraw_process() != LIBRAW_SUCCESS)
        return std::nullopt;
    int error = 0;
    libraw_processed_image_t* processed = raw->dcraw_make_mem_image(&error);
    if (!processed)
        return std::nullopt;
    const std::unique_ptr<libraw_processed_image_t, decltype(&LibRaw::dcraw_clear_mem)> owner(processed, LibRaw::dcraw_clear_mem);
    const int width = processed->width, height = processed->height;
    if (processed->type != LIBRAW_IMAGE_BITMAP || processed->colors != 3 || processed->bits != 8 || width <= 0 || height <= 0
        || qint64(processed->data_size) < qint64(width) * height * 3)
        return std::nullopt;
    const QImage view(processed->data, width, height, qsizetype(width) * 3, QImage::Format_RGB888);
    QImage image = Downscale::fit(view.convertToFormat(QImage::Format_RGB32), maxPixelSize);
    if (image.isNull())
        return std::nullopt;
    return image;
}

} // namespace vantelor::RawDecoder
