#include "Previews/JpegDecoder.h"

#include <turbojpeg.h>

#include "Previews/Downscale.h"

namespace vantelor::JpegDecoder {

namespace {

// Largest decoded bitmap accepted (before the final downscale): JPEG sizes stop at 65,500, so at
// 1/8 this only refuses absurd headers, never a camera file.
constexpr qint64 maxDecodedPixels = 8192LL * 8192;

struct Handle {
    tjhandle h = tjInitDecompress();
    Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle()
    {
        if (h)
            tjDestroy(h);
    }
};

const unsigned char* data(const QByteArray& jpeg)
{
    return reinterpret_cast<const unsigned char*>(jpeg.constData());
}

struct Header {
    QSize size;
    int colorspace = 0;
};

// The one place the header is parsed: its size, and whether the data is CMYK.
std::optional<Header> readHeader(const Handle& handle, const QByteArray& jpeg)
{
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    if (!handle.h || jpeg.isEmpty()
        || tjDecompressHeader3(handle.h, data(jpeg), (unsigned long)jpeg.size(), &width, &height, &subsampling, &colorspace) != 0
        || width <= 0 || height <= 0)
        return std::nullopt;
    return Header{QSize(width, height), colorspace};
}

// Adobe CMYK (stored inverted, as Photoshop writes it) to RGB.
QImage fromCmyk(const std::vector<unsigned char>& cmyk, int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    if (image.isNull())
        return image;
    for (int y = 0; y < height; ++y) {
        const unsigned char* in = cmyk.data() + qsizetype(y) * width * 4;
        auto* out = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x, in += 4)
            out[x] = qRgb(in[0] * in[3] / 255, in[1] * in[3] / 255, in[2] * in[3] / 255);
    }
    return image;
}

} // namespace

std::optional<QSize> size(const QByteArray& jpeg)
{
    const auto header = readHeader(Handle(), jpeg);
    return header ? std::optional<QSize>(header->size) : std::nullopt;
}

std::pair<int, int> scaleFor(QSize size, int maxPixelSize)
{
    const int longer = std::max(size.width(), size.height());
    if (longer <= maxPixelSize)
        return {1, 1};
    int count = 0;
    const tjscalingfactor* factors = tjGetScalingFactors(&count);
    std::pair<int, int> best{1, 1};
    double bestValue = 1.0;
    for (int i = 0; i < count; ++i) {
        const double value = double(factors[i].num) / factors[i].denom;
        if (value > 1.0 || value >= bestValue)
            continue;
        if (TJSCALED(longer, factors[i]) >= maxPixelSize) {
            best = {factors[i].num, factors[i].denom};
            bestValue = value;
        }
    }
    return best;
}

std::optional<QImage> decode(const QByteArray& jpeg, int maxPixelSize, Damage damage, bool* damaged)
{
    const Handle handle;
    const auto header = readHeader(handle, jpeg);
    if (!header)
        return std::nullopt;
    const int colorspace = header->colorspace;

    const auto [num, denom] = scaleFor(header->size, maxPixelSize);
    const tjscalingfactor factor{num, denom};
    const int scaledWidth = TJSCALED(header->size.width(), factor);
    const int scaledHeight = TJSCALED(header->size.height(), factor);
    if (qint64(scaledWidth) * scaledHeight > maxDecodedPixels)
        return std::nullopt;

    const int flags = damage == Damage::refused ? TJFLAG_STOPONWARNING : 0;
    QImage image;
    int rc = 0;
    if (colorspace == TJCS_CMYK || colorspace == TJCS_YCCK) {
        std::vector<unsigned char> cmyk(size_t(scaledWidth) * size_t(scaledHeight) * 4);
        rc = tjDecompress2(handle.h, data(jpeg), (unsigned long)jpeg.size(), cmyk.data(), scaledWidth, 0, scaledHeight,
                           TJPF_CMYK, flags);
        if (rc == 0 || (damage == Damage::tolerated && tjGetErrorCode(handle.h) == TJERR_WARNING))
            image = fromCmyk(cmyk, scaledWidth, scaledHeight);
    } else {
        // BGRA in memory is QImage's 0xAARRGGBB on little-endian machines, with A always 0xFF.
        image = QImage(scaledWidth, scaledHeight, QImage::Format_RGB32);
        if (image.isNull())
            return std::nullopt;
        rc = tjDecompress2(handle.h, data(jpeg), (unsigned long)jpeg.size(), image.bits(), scaledWidth,
                           int(image.bytesPerLine()), scaledHeight,
                           QSysInfo::ByteOrder == QSysInfo::LittleEndian ? TJPF_BGRA : TJPF_ARGB, flags);
        if (rc != 0 && !(damage == Damage::tolerated && tjGetErrorCode(handle.h) == TJERR_WARNING))
            image = QImage();
    }
    if (image.isNull())
        return std::nullopt;
    // Warnings are TurboJPEG's word for a stream it could only partly decode (cut short, corrupt
    // entropy data): the missing rows are grey, not the photo.
    if (damaged)
        *damaged = rc != 0;
    return Downscale::fit(image, maxPixelSize);
}

} // namespace vantelor::JpegDecoder
