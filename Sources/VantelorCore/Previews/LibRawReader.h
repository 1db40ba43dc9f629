#pragma once

#include <optional>

#include <QDateTime>
#include <QString>

#include "Previews/ImageProperties.h"

namespace vantelor {

// What LibRaw reads from a raw file's header, for the raws exiv2 0.27 does not know (Canon's
// CR3 above all): the capture data, the capture time and LibRaw's embedded JPEG preview. Only
// the header is parsed, never the sensor data. Thread-safe (one LibRaw instance per call).
namespace LibRawReader {

// The lower-cased extensions of the raw formats the app opens.
bool isRawExtension(const QString& extension);

// Nothing when the file is not a raw LibRaw can open. The embedded preview, when asked for, is
// taken only when it is a JPEG.
std::optional<ImageProperties> properties(const QString& path, ImageProperties::Previews previews);

// The camera's clock as written, in the form the capture-time reader gives (wall time as UTC).
std::optional<QDateTime> captureTime(const QString& path);

} // namespace LibRawReader
} // namespace vantelor
