#include "Previews/PreviewDecoder.h"

#include <functional>

#include "Previews/HeifDecoder.h"
#include "Previews/ImageOrientation.h"
#include "Previews/ImageProperties.h"
#include "Previews/JpegDecoder.h"
#include "Previews/LibRawReader.h"
#include "Previews/NikonPreview.h"
#include "Previews/QtImageDecoder.h"
#include "Previews/RawDecoder.h"
#include "Support/FileReader.h"
#include "Support/Paths.h"

namespace vantelor::PreviewDecoder {

namespace {

// Formats decoded from memory are read whole; nothing a camera writes comes near this.
constexpr qint64 maxInMemoryBytes = 512LL * 1024 * 1024;

enum class Kind { jpeg, png, tiff, heif, raw, unknown };

// By content first, as an image source does: a HEIC saved as ".jpg" is still a HEIC.
Kind kindOf(const QByteArray& head, const QString& ext)
{
    if (head.startsWith("\xFF\xD8\xFF"))
        return Kind::jpeg;
    if (head.startsWith("\x89PNG\r\n\x1A\n"))
        return Kind::png;
    if (head.size() >= 12 && head.mid(4, 4) == "ftyp") {
        const QByteArray brand = head.mid(8, 4);
        if (brand == "crx ")
            return Kind::raw;
        static const QList<QByteArray> heif = {"heic", "heix", "hevc", "hevx", "heim", "heis", "mif1", "msf1", "avif"};
        if (heif.contains(brand))
            return Kind::heif;
    }
    if (head.startsWith("II*\0") || head.startsWith(QByteArray("MM\0*", 4)))
        return LibRawReader::isRawExtension(ext) ? Kind::raw : Kind::tiff;
    if (LibRawReader::isRawExtension(ext))
        return Kind::raw;
    return Kind::unknown;
}

int longerSide(const QImage& image)
{
    return std::max(image.width(), image.height());
}

// A damaged embedded preview is passed over: the image it stands for is the better source.
std::optional<QImage> decodeEmbedded(const ImageProperties::Embedded& embedded, int dimension)
{
    if (embedded.isJpeg)
        return JpegDecoder::decode(embedded.bytes, dimension, JpegDecoder::Damage::refused);
    return QtImageDecoder::decode(embedded.bytes, "tiff", dimension);
}

std::optional<QImage> upright(std::optional<QImage> image, const ImageProperties& properties)
{
    if (image && properties.orientation)
        image = ImageOrientation::apply(*image, *properties.orientation);
    return image;
}

// One format's two sources: its own embedded thumbnail, and the image decoded at reduced size,
// which sets its flag when it could decode the image only in part.
struct Sources {
    ImageProperties properties;
    std::function<std::optional<QImage>()> thumbnail;
    std::function<std::optional<QImage>(bool& damaged)> fullImage;
};

std::optional<Sources> sourcesFor(Kind kind, const PhotoItem& item, FileReader& file, int dimension)
{
    const QString& path = item.url;
    switch (kind) {
    case Kind::jpeg: {
        if (file.size() > maxInMemoryBytes)
            return std::nullopt;
        auto bytes = std::make_shared<QByteArray>(file.read(0, file.size()));
        Sources s;
        s.properties = ImageProperties::read(*bytes, ImageProperties::Previews::exifThumbnail);
        if (s.properties.pixelWidth == 0 && s.properties.pixelHeight == 0)
            if (const auto size = JpegDecoder::size(*bytes)) {
                s.properties.pixelWidth = size->width();
                s.properties.pixelHeight = size->height();
            }
        const ImageProperties& p = s.properties;
        s.thumbnail = [p, dimension] {
            return p.embedded ? upright(decodeEmbedded(*p.embedded, dimension), p) : std::nullopt;
        };
        s.fullImage = [bytes, p, dimension](bool& damaged) {
            return upright(JpegDecoder::decode(*bytes, dimension, JpegDecoder::Damage::tolerated, &damaged), p);
        };
        return s;
    }
    case Kind::png:
    case Kind::tiff: {
        Sources s;
        s.properties = ImageProperties::read(path);
        const ImageProperties& p = s.properties;
        const char* format = kind == Kind::png ? "png" : "tiff";
        s.thumbnail = [] { return std::optional<QImage>(); };
        s.fullImage = [path, format, p, dimension](bool&) { return upright(QtImageDecoder::decode(path, format, dimension), p); };
        return s;
    }
    case Kind::heif: {
        if (file.size() > maxInMemoryBytes)
            return std::nullopt;
        auto bytes = std::make_shared<QByteArray>(file.read(0, file.size()));
        Sources s;
        s.properties = ImageProperties::read(*bytes);
        if (s.properties.pixelWidth == 0 && s.properties.pixelHeight == 0)
            if (const auto size = HeifDecoder::size(*bytes)) {
                s.properties.pixelWidth = size->width();
                s.properties.pixelHeight = size->height();
            }
        // libheif turns both sources upright itself.
        s.thumbnail = [bytes, dimension] { return HeifDecoder::thumbnail(*bytes, dimension); };
        s.fullImage = [bytes, dimension](bool&) { return HeifDecoder::image(*bytes, dimension); };
        return s;
    }
    case Kind::raw: {
        Sources s;
        s.properties = ImageProperties::read(path, ImageProperties::Previews::largestPreview);
        const ImageProperties& p = s.properties;
        s.thumbnail = [p, dimension] {
            return p.embedded ? upright(decodeEmbedded(*p.embedded, dimension), p) : std::nullopt;
        };
        // LibRaw turns its output upright by itself.
        s.fullImage = [path, dimension](bool& damaged) { return RawDecoder::decode(path, dimension, &damaged); };
        return s;
    }
    case Kind::unknown:
        break;
    }
    return std::nullopt;
}

} // namespace

Result<PhotoMetadata> metadata(const QString& path)
{
    auto file = FileReader::open(path);
    if (!file)
        return BrowserError::unreadableImage(Paths::fileName(path));
    ImageProperties properties = ImageProperties::read(path);
    if (properties.pixelWidth == 0 && properties.pixelHeight == 0) {
        // Where exiv2 knows no size, the decoders' headers do.
        const QString ext = Paths::suffix(path).toLower();
        const Kind kind = kindOf(file->read(0, 16), ext);
        std::optional<QSize> size;
        if ((kind == Kind::jpeg || kind == Kind::heif) && file->size() <= maxInMemoryBytes) {
            const QByteArray bytes = file->read(0, file->size());
            size = kind == Kind::jpeg ? JpegDecoder::size(bytes) : HeifDecoder::size(bytes);
        }
        if (size) {
            properties.pixelWidth = size->width();
            properties.pixelHeight = size->height();
        }
    }
    return PhotoMetadata::fromProperties(properties);
}

bool upgradesSmallThumbnails(const QString& path)
{
    static const QSet<QString> extensions = {QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("png"),
                                             QStringLiteral("heic"), QStringLiteral("heif"), QStringLiteral("tif"),
                                             QStringLiteral("tiff")};
    return extensions.contains(Paths::suffix(path).toLower());
}

Result<PreviewResult> decode(const PhotoItem& item, int dimension)
{
    const BrowserError unreadable = BrowserError::unreadableImage(item.name());
    auto file = FileReader::open(item.url);
    if (!file)
        return unreadable;

    // The NEF's own preview first: a few kilobytes of structure and one JPEG, no raw data.
    const std::optional<QByteArray> nikonJpeg = NikonPreview::jpeg(item.url);
    if (nikonJpeg) {
        if (auto image = JpegDecoder::decode(*nikonJpeg, dimension, JpegDecoder::Damage::refused)) {
            // The raw file's orientation, not the JPEG's: Nikon's previews are stored unrotated.
            const ImageProperties properties = ImageProperties::read(item.url);
            PreviewResult result;
            result.image = upright(std::move(image), properties).value();
            result.metadata = PhotoMetadata::fromProperties(properties);
            result.usedFallback = false;
            result.source = PreviewResult::Source::nikonPreview;
            return result;
        }
    }

    const QString ext = Paths::suffix(item.url).toLower();
    const auto sources = sourcesFor(kindOf(file->read(0, 16), ext), item, *file, dimension);
    if (!sources)
        return unreadable;

    PreviewResult result;
    std::optional<QImage> image = sources->thumbnail();
    result.source = PreviewResult::Source::thumbnail;
    if (!image) {
        image = sources->fullImage(result.damaged);
        result.usedFallback = true;
        result.source = PreviewResult::Source::fullImage;
    }
    const ImageProperties& properties = sources->properties;
    if (!image || image->isNull()) {
        // Nothing decodes whole: an embedded preview cut short still shows the frame, marked.
        const QByteArray* embedded = nikonJpeg ? &*nikonJpeg
            : properties.embedded && properties.embedded->isJpeg ? &properties.embedded->bytes : nullptr;
        if (embedded) {
            image = upright(JpegDecoder::decode(*embedded, dimension, JpegDecoder::Damage::tolerated), properties);
            result.damaged = true;
            result.usedFallback = false;
            result.source = nikonJpeg ? PreviewResult::Source::nikonPreview : PreviewResult::Source::thumbnail;
        }
    }
    if (!image || image->isNull())
        return unreadable;

    const int target = std::min(std::max(properties.pixelWidth, properties.pixelHeight), dimension);
    if (result.source == PreviewResult::Source::thumbnail && upgradesSmallThumbnails(item.url) && longerSide(*image) < target) {
        // A clean small thumbnail is worth more than a large frame that is partly missing.
        bool damaged = false;
        if (auto full = sources->fullImage(damaged); full && !full->isNull() && !damaged) {
            image = std::move(full);
            result.usedFallback = true;
            result.source = PreviewResult::Source::fullImage;
        }
    }
    result.image = std::move(*image);
    result.metadata = PhotoMetadata::fromProperties(properties);
    return result;
}

} // namespace vantelor::PreviewDecoder
