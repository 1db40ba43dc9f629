#include "Previews/ImageProperties.h"

#include <cmath>

#include <exiv2/exiv2.hpp>

#include "Previews/LibRawReader.h"
#include "Support/Exiv2Setup.h"
#include "Support/FileReader.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

// Embedded images larger than this are not taken from exiv2 (they would be copied whole).
constexpr long maxEmbeddedBytes = 64L * 1024 * 1024;

const Exiv2::Exifdatum* find(const Exiv2::ExifData& exif, const char* key)
{
    const auto it = exif.findKey(Exiv2::ExifKey(key));
    return it == exif.end() ? nullptr : &*it;
}

std::optional<QString> text(const Exiv2::ExifData& exif, const char* key)
{
    const auto* d = find(exif, key);
    if (!d || d->typeId() != Exiv2::asciiString)
        return std::nullopt;
    QString value = QString::fromUtf8(d->toString().c_str()).trimmed();
    // Cameras pad fixed-size fields with NULs.
    const qsizetype nul = value.indexOf(QChar(0));
    if (nul >= 0)
        value.truncate(nul);
    value = value.trimmed();
    if (value.isEmpty())
        return std::nullopt;
    return value;
}

std::optional<double> rational(const Exiv2::Exifdatum* d)
{
    if (!d || d->count() < 1 || (d->typeId() != Exiv2::unsignedRational && d->typeId() != Exiv2::signedRational))
        return std::nullopt;
    const Exiv2::Rational r = d->toRational(0);
    if (r.second == 0)
        return std::nullopt;
    const double value = double(r.first) / double(r.second);
    return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

bool isUnsignedInteger(Exiv2::TypeId type)
{
    return type == Exiv2::unsignedShort || type == Exiv2::unsignedLong || type == Exiv2::unsignedByte;
}

void readPreviews(Exiv2::Image& image, ImageProperties::Previews which, ImageProperties& out)
{
    if (which == ImageProperties::Previews::exifThumbnail) {
        Exiv2::ExifThumbC thumb(image.exifData());
        const std::string mime = thumb.mimeType();
        if (mime.empty())
            return;
        const Exiv2::DataBuf buf = thumb.copy();
        if (buf.size_ <= 0 || buf.size_ > maxEmbeddedBytes)
            return;
        out.embedded = ImageProperties::Embedded{
            QByteArray(reinterpret_cast<const char*>(buf.pData_), buf.size_), mime == "image/jpeg", 0, 0};
        return;
    }
    Exiv2::PreviewManager manager(image);
    const Exiv2::PreviewPropertiesList list = manager.getPreviewProperties();
    // The list is sorted by size; the last is the largest.
    for (auto it = list.rbegin(); it != list.rend(); ++it) {
        if (it->size_ == 0 || it->size_ > uint32_t(maxEmbeddedBytes))
            continue;
        const Exiv2::PreviewImage preview = manager.getPreviewImage(*it);
        if (preview.size() == 0)
            continue;
        out.embedded = ImageProperties::Embedded{
            QByteArray(reinterpret_cast<const char*>(preview.pData()), int(preview.size())),
            preview.mimeType() == "image/jpeg", int(preview.width()), int(preview.height())};
        return;
    }
}

ImageProperties readImage(Exiv2::Image::AutoPtr image, ImageProperties::Previews previews)
{
    ImageProperties p;
    if (!image.get())
        return p;
    image->readMetadata();
    p.pixelWidth = std::max(0, image->pixelWidth());
    p.pixelHeight = std::max(0, image->pixelHeight());
    const Exiv2::ExifData& exif = image->exifData();

    if (const auto* d = find(exif, "Exif.Image.Orientation"); d && d->count() >= 1 && isUnsignedInteger(d->typeId())) {
        const long value = d->toLong(0);
        if (value >= 1 && value <= 8)
            p.orientation = int(value);
    }
    p.model = text(exif, "Exif.Image.Model");
    p.lensModel = text(exif, "Exif.Photo.LensModel");
    if (const auto* d = find(exif, "Exif.Photo.ISOSpeedRatings"); d && isUnsignedInteger(d->typeId()))
        for (long i = 0; i < std::min(d->count(), 16L); ++i)
            p.isoSpeedRatings.append(d->toLong(i));
    p.fNumber = rational(find(exif, "Exif.Photo.FNumber"));
    p.exposureTime = rational(find(exif, "Exif.Photo.ExposureTime"));
    if (previews != ImageProperties::Previews::none)
        readPreviews(*image, previews, p);
    return p;
}

} // namespace

ImageProperties ImageProperties::read(const QString& path, Previews previews)
{
    // exiv2 opens the name itself: give it the descriptor's name, checked to be a regular file,
    // so that a named pipe put in a photo's place cannot hold the reader.
    const FileDescriptor fd = FileReader::openRegular(path);
    if (!fd.isOpen())
        return {};
    ensureExiv2Ready();
    try {
        return readImage(Exiv2::ImageFactory::open(FileReader::descriptorPath(fd.get()).toStdString()), previews);
    } catch (...) {
        // exiv2 reports damaged and unknown files by throwing. Raws it does not know (CR3) are
        // LibRaw's; anything else has no properties.
        return LibRawReader::properties(path, previews).value_or(ImageProperties());
    }
}

ImageProperties ImageProperties::read(const QByteArray& bytes, Previews previews)
{
    ensureExiv2Ready();
    try {
        return readImage(Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte*>(bytes.constData()), long(bytes.size())),
                         previews);
    } catch (...) {
        return {};
    }
}

} // namespace vantelor
