#include "Library/CaptureTimeReader.h"

#include <exiv2/exiv2.hpp>

#include "Previews/LibRawReader.h"
#include "Support/Exiv2Setup.h"
#include "Support/FileReader.h"
#include "Support/Paths.h"
#include "Support/TiffReader.h"

namespace vantelor {

namespace {

constexpr quint16 exifIfdPointerTag = 0x8769;
constexpr quint16 dateTimeOriginalTag = 0x9003;

enum class Layout { tiff, jpeg, other };

Layout layoutOf(const QByteArray& head)
{
    if (head.startsWith("II*\0") || head.startsWith(QByteArray("MM\0*", 4)))
        return Layout::tiff;
    if (head.startsWith("\xFF\xD8"))
        return Layout::jpeg;
    return Layout::other;
}

std::optional<QByteArray> dateTextInTiff(FileReader& file, qint64 base, qint64 limit)
{
    auto tiff = TiffReader::open(file, base, limit);
    if (!tiff)
        return std::nullopt;
    const auto ifd0 = tiff->ifd(tiff->firstIfdOffset());
    if (!ifd0)
        return std::nullopt;
    const auto* pointer = TiffReader::find(*ifd0, exifIfdPointerTag);
    if (!pointer)
        return std::nullopt;
    const auto exifOffset = tiff->unsignedValue(*pointer);
    if (!exifOffset)
        return std::nullopt;
    const auto exif = tiff->ifd(*exifOffset);
    if (!exif)
        return std::nullopt;
    const auto* date = TiffReader::find(*exif, dateTimeOriginalTag);
    if (!date)
        return std::nullopt;
    return tiff->asciiValue(*date);
}

// The TIFF structure of a JPEG's "Exif" APP1 segment; markers are walked up to the image data.
std::optional<QByteArray> dateTextInJpeg(FileReader& file)
{
    qint64 pos = 2;
    for (int segments = 0; segments < 64; ++segments) {
        const QByteArray marker = file.read(pos, 4);
        if (marker.size() < 4 || uchar(marker[0]) != 0xFF)
            return std::nullopt;
        const uchar type = uchar(marker[1]);
        if (type == 0xD8 || type == 0x01 || (type >= 0xD0 && type <= 0xD7) || type == 0xFF) {
            pos += type == 0xFF ? 1 : 2; // fill bytes and markers without a length
            continue;
        }
        if (type == 0xDA || type == 0xD9)
            return std::nullopt;
        const int length = (uchar(marker[2]) << 8) | uchar(marker[3]);
        if (length < 2)
            return std::nullopt;
        if (type == 0xE1 && length >= 8 && file.read(pos + 4, 6) == QByteArray("Exif\0\0", 6))
            return dateTextInTiff(file, pos + 10, pos + 2 + length);
        pos += 2 + length;
    }
    return std::nullopt;
}

std::optional<QByteArray> dateTextWithExiv2(const QString& path)
{
    // By the checked descriptor's name: exiv2 would open a named pipe and wait on it.
    const FileDescriptor fd = FileReader::openRegular(path);
    if (!fd.isOpen())
        return std::nullopt;
    ensureExiv2Ready();
    try {
        auto image = Exiv2::ImageFactory::open(FileReader::descriptorPath(fd.get()).toStdString());
        if (!image.get())
            return std::nullopt;
        image->readMetadata();
        const Exiv2::ExifData& exif = image->exifData();
        const auto it = exif.findKey(Exiv2::ExifKey("Exif.Photo.DateTimeOriginal"));
        if (it == exif.end() || it->typeId() != Exiv2::asciiString)
            return std::nullopt;
        return QByteArray::fromStdString(it->toString());
    } catch (...) {
        // exiv2 reports damaged files by throwing; a file without a readable time is skipped.
        return std::nullopt;
    }
}

int digits(const char* p, int n)
{
    int value = 0;
    for (int i = 0; i < n; ++i) {
        if (p[i] < '0' || p[i] > '9')
            return -1;
        value = value * 10 + (p[i] - '0');
    }
    return value;
}

} // namespace

CaptureTimeReader::CaptureTimeReader() = default;
CaptureTimeReader::~CaptureTimeReader() = default;

QFuture<CaptureTimeReader::Table> CaptureTimeReader::read(QList<PhotoItem> photos)
{
    return m_executor.run([photos = std::move(photos)](const CancelCheck& cancelled) { return readNow(photos, cancelled); });
}

CaptureTimeReader::Table CaptureTimeReader::readNow(const QList<PhotoItem>& photos, const CancelCheck& cancelled)
{
    Table table;
    for (const PhotoItem& photo : photos) {
        if (cancelled && cancelled())
            break;
        if (auto time = captureTime(photo.url))
            table.insert(photo.url, *time);
    }
    return table;
}

std::optional<QDateTime> CaptureTimeReader::captureTime(const QString& path)
{
    auto file = FileReader::open(path);
    if (!file)
        return std::nullopt;
    std::optional<QByteArray> text;
    switch (layoutOf(file->read(0, 4))) {
    case Layout::tiff: text = dateTextInTiff(*file, 0, file->size()); break;
    case Layout::jpeg: text = dateTextInJpeg(*file); break;
    case Layout::other:
        text = dateTextWithExiv2(path);
        // Raws exiv2 0.27 cannot parse (CR3): LibRaw has the time from their EXIF block.
        if (!text)
            return LibRawReader::captureTime(path);
        break;
    }
    return text ? parseExifTime(*text) : std::nullopt;
}

std::optional<QDateTime> CaptureTimeReader::parseExifTime(const QByteArray& text)
{
    // Exactly "yyyy:MM:dd HH:mm:ss"; cameras pad with NULs or blanks, which are dropped.
    const QByteArray t = text.trimmed();
    if (t.size() != 19 || t[4] != ':' || t[7] != ':' || t[10] != ' ' || t[13] != ':' || t[16] != ':')
        return std::nullopt;
    const char* p = t.constData();
    const int year = digits(p, 4), month = digits(p + 5, 2), day = digits(p + 8, 2);
    const int hour = digits(p + 11, 2), minute = digits(p + 14, 2), second = digits(p + 17, 2);
    const QDate date(year, month, day);
    const QTime time(hour, minute, second);
    if (year < 1 || !date.isValid() || hour < 0 || minute < 0 || second < 0 || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time, Qt::UTC);
}

} // namespace vantelor
