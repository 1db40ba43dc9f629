#pragma once

#include <QJsonObject>
#include <QString>

namespace vantelor {

struct ImageProperties;

// The capture facts shown beside a preview, already formatted for display. A plain value. Every
// text without a source value is "—".
struct PhotoMetadata {
    int width = 0;
    int height = 0;
    QString camera = placeholder();
    QString lens = placeholder();
    QString iso = placeholder();
    QString aperture = placeholder();
    QString shutter = placeholder();

    static PhotoMetadata fromProperties(const ImageProperties& properties);

    // "ƒ/2.8".
    static QString formatAperture(double fNumber);
    // "1/250 s" below one second, "2.50 s" from one second up.
    static QString formatShutter(double seconds);
    static QString placeholder() { return QStringLiteral("—"); }

    // {"width", "height", "camera", "lens", "iso", "aperture", "shutter"}.
    QJsonObject toJson() const;

    friend bool operator==(const PhotoMetadata&, const PhotoMetadata&) = default;
};

} // namespace vantelor
