#include "PreviewFixtures.h"

#include <libheif/heif.h>

#include <QTransform>

#include "Support/ImageFixtures.h"
#include "Support/TiffWriter.h"

namespace vantelor::test {

namespace {

heif_error writeToBytes(heif_context*, const void* data, size_t size, void* userdata)
{
    static_cast<QByteArray*>(userdata)->append(static_cast<const char*>(data), qsizetype(size));
    return heif_error{heif_error_Ok, heif_suberror_Unspecified, ""};
}

} // namespace

QByteArray makeHeic(const QImage& source, int thumbnailSize)
{
    const QImage rgb = source.convertToFormat(QImage::Format_RGB888);
    heif_context* ctx = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &encoder);
    heif_encoder_set_lossy_quality(encoder, 80);
    heif_image* image = nullptr;
    heif_image_create(rgb.width(), rgb.height(), heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image);
    heif_image_add_plane(image, heif_channel_interleaved, rgb.width(), rgb.height(), 8);
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    for (int y = 0; y < rgb.height(); ++y)
        memcpy(plane + qsizetype(y) * stride, rgb.constScanLine(y), size_t(rgb.width()) * 3);
    heif_image_handle* handle = nullptr;
    heif_context_encode_image(ctx, image, encoder, nullptr, &handle);
    if (thumbnailSize > 0 && handle) {
        heif_image_handle* thumb = nullptr;
        heif_context_encode_thumbnail(ctx, image, handle, encoder, nullptr, thumbnailSize, &thumb);
        if (thumb)
            heif_image_handle_release(thumb);
    }
    QByteArray bytes;
    heif_writer writer{1, writeToBytes};
    heif_context_write(ctx, &writer, &bytes);
    if (handle)
        heif_image_handle_release(handle);
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(ctx);
    return bytes;
}

QByteArray makeDng(int width, int height, const std::optional<ExifInfo>& exif)
{
    QByteArray mosaic;
    mosaic.reserve(qsizetype(width) * height * 2);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // RGGB: a bright left half and a dark right half, so the result is not uniform.
            const quint16 v = quint16(x < width / 2 ? 3000 + (y % 7) * 50 : 400);
            mosaic.append(char(v & 0xFF)).append(char(v >> 8));
        }
    TiffIfd ifd0;
    ifd0.longs(0xFE, {0});
    ifd0.longs(0x100, {quint32(width)}).longs(0x101, {quint32(height)});
    ifd0.shorts(0x102, {16}).shorts(0x103, {1}).shorts(0x106, {32803});
    ifd0.ascii(0x10F, "Vantelor").ascii(0x110, "Test DNG");
    ifd0.shorts(0x115, {1}).longs(0x116, {quint32(height)});
    ifd0.data(0x111, 0x117, mosaic);
    ifd0.shorts(0x828D, {2, 2});
    ifd0.bytes(0x828E, TiffIfd::typeByte, QByteArray("\x00\x01\x01\x02", 4));
    ifd0.bytes(0xC612, TiffIfd::typeByte, QByteArray("\x01\x04\x00\x00", 4));
    ifd0.ascii(0xC614, "Vantelor Test DNG");
    ifd0.longs(0xC61D, {4095});
    // ColorMatrix1: identity, so that LibRaw has a colour transform to work with.
    ifd0.rationals(0xC621, {{1, 1}, {0, 1}, {0, 1}, {0, 1}, {1, 1}, {0, 1}, {0, 1}, {0, 1}, {1, 1}});
    ifd0.shorts(0xC628, {1, 1, 1});
    if (exif)
        ifd0.exif(exifIfd(*exif));
    return TiffWriter::write({ifd0}, true);
}

QColor cornerColour(const QImage& image, int corner)
{
    const int mark = std::max(2, std::min(image.width(), image.height()) / 8);
    const int x = corner == 1 ? image.width() - 1 - mark / 2 : mark / 2;
    const int y = corner == 2 ? image.height() - 1 - mark / 2 : mark / 2;
    return image.pixelColor(x, y);
}

bool near(QColor a, QColor b, int tolerance)
{
    return std::abs(a.red() - b.red()) <= tolerance && std::abs(a.green() - b.green()) <= tolerance
        && std::abs(a.blue() - b.blue()) <= tolerance;
}

QImage storedForOrientation(const QImage& upright, int orientation)
{
    const auto rotated = [](const QImage& image, int degrees) { return image.transformed(QTransform().rotate(degrees)); };
    switch (orientation) {
    case 2: return upright.mirrored(true, false);
    case 3: return rotated(upright, 180);
    case 4: return upright.mirrored(false, true);
    case 5: return rotated(upright, 90).mirrored(true, false);   // the transpose is its own inverse
    case 6: return rotated(upright, 270);
    case 7: return rotated(upright, 90).mirrored(false, true);   // so is the transverse
    case 8: return rotated(upright, 90);
    default: return upright;
    }
}

} // namespace vantelor::test
