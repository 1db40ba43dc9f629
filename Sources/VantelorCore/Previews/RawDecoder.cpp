#include "Previews/RawDecoder.h"

#include <memory>

#include <libraw/libraw.h>

#include "Previews/Downscale.h"
#include "Support/FileReader.h"

namespace vantelor::RawDecoder {

namespace {

// LibRaw's own ceiling for one raw buffer; well above any camera's (a 100-megapixel sensor needs
// about 200 MiB), far below what a hostile header could ask for.
constexpr unsigned maxRawMemoryMiB = 512;
constexpr qint64 maxPixels = 160'000'000;

enum class Filled { nothing, partly, wholly };

bool zeroRow(const char* row, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i)
        if (row[i])
            return false;
    return true;
}

// LibRaw reads past the end of a short file as zeros and reports nothing: a sensor row of
// nothing but zeros at the bottom is data that never came (a real frame carries the black level).
Filled sensorData(const LibRaw& raw)
{
    const libraw_rawdata_t& data = raw.imgdata.rawdata;
    const char* base = data.raw_image ? reinterpret_cast<const char*>(data.raw_image)
        : data.color3_image             ? reinterpret_cast<const char*>(data.color3_image)
        : data.color4_image             ? reinterpret_cast<const char*>(data.color4_image)
                                        : nullptr;
    const int rows = raw.imgdata.sizes.raw_height;
    const size_t pitch = raw.imgdata.sizes.raw_pitch;
    if (!base || rows <= 0 || pitch == 0)
        return Filled::nothing;
    if (!zeroRow(base + pitch * size_t(rows - 1), pitch))
        return Filled::wholly;
    for (int y = 0; y < rows - 1; ++y)
        if (!zeroRow(base + pitch * size_t(y), pitch))
            return Filled::partly;
    return Filled::nothing;
}

void dataError(void* errors, const char*, const int)
{
    ++*static_cast<int*>(errors);
}

} // namespace

std::optional<QImage> decode(const QString& path, int maxPixelSize, bool* damaged)
{
    const FileDescriptor fd = FileReader::openRegular(path);
    if (!fd.isOpen())
        return std::nullopt;
    // LibRaw objects are large (hundreds of KiB): keep them off the worker's stack.
    auto raw = std::make_unique<LibRaw>();
    int dataErrors = 0;
    raw->set_dataerror_handler(dataError, &dataErrors);
    raw->imgdata.params.half_size = 1;
    raw->imgdata.params.use_camera_wb = 1;
    raw->imgdata.params.output_bps = 8;
    raw->imgdata.params.max_raw_memory_mb = maxRawMemoryMiB;
    if (raw->open_file(FileReader::descriptorPath(fd.get()).constData()) != LIBRAW_SUCCESS)
        return std::nullopt;
    if (qint64(raw->imgdata.sizes.raw_width) * raw->imgdata.sizes.raw_height > maxPixels)
        return std::nullopt;
    if (raw->unpack() != LIBRAW_SUCCESS)
        return std::nullopt;
    const Filled filled = sensorData(*raw);
    if (filled == Filled::nothing)
        return std::nullopt;
    if (raw->dcraw_process() != LIBRAW_SUCCESS)
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
    if (damaged)
        *damaged = filled == Filled::partly || dataErrors > 0;
    return image;
}

} // namespace vantelor::RawDecoder
