#include "Previews/PhotoMetadata.h"

#include <cmath>

#include "Previews/ImageProperties.h"

namespace vantelor {

PhotoMetadata PhotoMetadata::fromProperties(const ImageProperties& p)
{
    PhotoMetadata m;
    m.width = p.pixelWidth;
    m.height = p.pixelHeight;
    if (p.model)
        m.camera = *p.model;
    if (p.lensModel)
        m.lens = *p.lensModel;
    if (!p.isoSpeedRatings.isEmpty())
        m.iso = QStringLiteral("ISO ") + QString::number(p.isoSpeedRatings.first());
    if (p.fNumber)
        m.aperture = formatAperture(*p.fNumber);
    if (p.exposureTime)
        m.shutter = formatShutter(*p.exposureTime);
    return m;
}

QString PhotoMetadata::formatAperture(double fNumber)
{
    return QString::asprintf("ƒ/%.1f", fNumber);
}

QString PhotoMetadata::formatShutter(double seconds)
{
    if (seconds > 0 && seconds < 1)
        return QStringLiteral("1/%1 s").arg(QString::number(std::round(1.0 / seconds), 'f', 0));
    return QString::asprintf("%.2f s", seconds);
}

QJsonObject PhotoMetadata::toJson() const
{
    return QJsonObject{
        {QStringLiteral("width"), width},        {QStringLiteral("height"), height},
        {QStringLiteral("camera"), camera},      {QStringLiteral("lens"), lens},
        {QStringLiteral("iso"), iso},            {QStringLiteral("aperture"), aperture},
        {QStringLiteral("shutter"), shutter},
    };
}

} // namespace vantelor
