#pragma once

#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>

namespace vantelor {

// What a file says about itself without decoding pixels, read through exiv2: the analogue of an
// image source's property dictionary. Every field is absent when the file does not carry it with
// the expected type. Also the embedded previews exiv2 knows for the file, largest last.
struct ImageProperties {
    int pixelWidth = 0;
    int pixelHeight = 0;
    std::optional<int> orientation;       // 1…8 (EXIF)
    std::optional<QString> model;         // TIFF Model
    std::optional<QString> lensModel;     // EXIF LensModel
    QList<qint64> isoSpeedRatings;        // EXIF ISOSpeedRatings, empty when absent
    std::optional<double> fNumber;
    std::optional<double> exposureTime;

    // Embedded images: the EXIF IFD1 thumbnail (JPEG files) or exiv2's preview list (raws).
    struct Embedded {
        QByteArray bytes;
        bool isJpeg = false;
        int width = 0;
        int height = 0;
    };

    enum class Previews { none, exifThumbnail, largestPreview };

    // Reads a file by path (bytes preserved) or an in-memory copy of it. Never throws; a file that
    // exiv2 cannot read gives empty properties.
    static ImageProperties read(const QString& path, Previews previews = Previews::none);
    static ImageProperties read(const QByteArray& bytes, Previews previews = Previews::none);

    std::optional<Embedded> embedded;
};

} // namespace vantelor
