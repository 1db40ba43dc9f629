#include "Previews/QtImageDecoder.h"

#include <mutex>

#include <QBuffer>
#include <QFile>
#include <QImageReader>

#include "Previews/Downscale.h"
#include "Support/FileReader.h"

namespace vantelor::QtImageDecoder {

namespace {

// Qt refuses to allocate bitmaps beyond this many MiB; a 100-megapixel 8-bit scan still fits,
// a header claiming 30,000 × 30,000 pixels does not.
constexpr int allocationLimitMiB = 512;

std::optional<QImage> read(QIODevice& device, const char* format, int maxPixelSize)
{
    static std::once_flag once;
    std::call_once(once, [] { QImageReader::setAllocationLimit(allocationLimitMiB); });

    QImageReader reader(&device, format);
    reader.setAutoTransform(false);
    reader.setDecideFormatFromContent(false);
    const QSize full = reader.size();
    if (full.isValid() && std::max(full.width(), full.height()) > maxPixelSize)
        reader.setScaledSize(Downscale::fittedSize(full, maxPixelSize));
    QImage image = reader.read();
    if (image.isNull())
        return std::nullopt;
    // Readers that cannot scale while reading leave it to us.
    image = Downscale::fit(image, maxPixelSize);
    const QImage::Format wanted = image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
    if (image.format() != wanted)
        image = image.convertToFormat(wanted);
    return image;
}

} // namespace

std::optional<QImage> decode(const QString& path, const char* format, int maxPixelSize)
{
    FileDescriptor fd = FileReader::openRegular(path);
    QFile file;
    if (!fd.isOpen() || !file.open(fd.get(), QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
        return std::nullopt;
    return read(file, format, maxPixelSize);
}

std::optional<QImage> decode(const QByteArray& bytes, const char* format, int maxPixelSize)
{
    QByteArray copy = bytes;
    QBuffer buffer(&copy);
    if (!buffer.open(QIODevice::ReadOnly))
        return std::nullopt;
    return read(buffer, format, maxPixelSize);
}

} // namespace vantelor::QtImageDecoder
