#include "Previews/LibRawReader.h"

#include <cmath>
#include <cstring>
#include <ctime>
#include <memory>

#include <QSet>

#include <libraw/libraw.h>

#include "Support/FileReader.h"
#include "Support/Paths.h"

namespace vantelor::LibRawReader {

namespace {

// Same ceiling as for decoding; a header alone never comes near it.
constexpr qint64 maxPreviewBytes = 64LL * 1024 * 1024;

std::unique_ptr<LibRaw> openHeader(const QString& path)
{
    if (!isRawExtension(Paths::suffix(path).toLower()))
        return nullptr;
    const FileDescriptor fd = FileReader::openRegular(path);
    if (!fd.isOpen())
        return nullptr;
    // LibRaw objects are large (hundreds of KiB): keep them off the worker's stack.
    auto raw = std::make_unique<LibRaw>();
    // LibRaw opens the name itself; the descriptor's name is the file already checked, and
    // LibRaw keeps its own handle, so ours may close when this returns.
    if (raw->open_file(FileReader::descriptorPath(fd.get()).constData()) != LIBRAW_SUCCESS)
        return nullptr;
    return raw;
}

std::optional<QString> text(const char* value, size_t capacity)
{
    const QString s = QString::fromUtf8(value, qsizetype(strnlen(value, capacity))).trimmed();
    return s.isEmpty() ? std::nullopt : std::optional<QString>(s);
}

std::optional<double> positive(float value)
{
    return std::isfinite(value) && value > 0 ? std::optional<double>(value) : std::nullopt;
}

// LibRaw's flip (0, 3, 5, 6) as the EXIF orientation it stands for.
std::optional<int> orientation(int flip)
{
    switch (flip) {
    case 3: return 3;
    case 5: return 8;
    case 6: return 6;
    default: return std::nullopt;
    }
}

void readPreview(LibRaw& raw, ImageProperties& out)
{
    const libraw_thumbnail_t& thumb = raw.imgdata.thumbnail;
    if (raw.imgdata.thumbnail.tlength == 0 || qint64(raw.imgdata.thumbnail.tlength) > maxPreviewBytes
        || raw.unpack_thumb() != LIBRAW_SUCCESS || thumb.tformat != LIBRAW_THUMBNAIL_JPEG || !thumb.thumb)
        return;
    out.embedded = ImageProperties::Embedded{QByteArray(thumb.thumb, qsizetype(thumb.tlength)), true, thumb.twidth,
                                             thumb.theight};
}

} // namespace

bool isRawExtension(const QString& extension)
{
    static const QSet<QString> raws = {QStringLiteral("nef"), QStringLiteral("nrw"), QStringLiteral("dng"),
                                       QStringLiteral("arw"), QStringLiteral("cr2"), QStringLiteral("cr3")};
    return raws.contains(extension);
}

std::optional<ImageProperties> properties(const QString& path, ImageProperties::Previews previews)
{
    const auto raw = openHeader(path);
    if (!raw)
        return std::nullopt;
    const libraw_data_t& d = raw->imgdata;
    ImageProperties p;
    p.pixelWidth = d.sizes.width;
    p.pixelHeight = d.sizes.height;
    p.orientation = orientation(d.sizes.flip);
    // LibRaw strips the maker from the model; EXIF models usually carry it ("Canon EOS R5").
    const auto make = text(d.idata.make, sizeof d.idata.make);
    p.model = text(d.idata.model, sizeof d.idata.model);
    if (make && p.model && !p.model->startsWith(*make, Qt::CaseInsensitive))
        p.model = *make + QLatin1Char(' ') + *p.model;
    p.lensModel = text(d.lens.Lens, sizeof d.lens.Lens);
    if (const auto iso = positive(d.other.iso_speed))
        p.isoSpeedRatings = {qint64(std::lround(*iso))};
    p.fNumber = positive(d.other.aperture);
    p.exposureTime = positive(d.other.shutter);
    if (previews != ImageProperties::Previews::none)
        readPreview(*raw, p);
    return p;
}

std::optional<QDateTime> captureTime(const QString& path)
{
    const auto raw = openHeader(path);
    if (!raw || raw->imgdata.other.timestamp <= 0)
        return std::nullopt;
    // LibRaw turned the EXIF text into a time_t with mktime, in local time; undo exactly that.
    const time_t stamp = raw->imgdata.other.timestamp;
    struct tm local {};
    if (!localtime_r(&stamp, &local))
        return std::nullopt;
    const QDate date(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    const QTime time(local.tm_hour, local.tm_min, std::min(local.tm_sec, 59));
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time, Qt::UTC);
}

} // namespace vantelor::LibRawReader
