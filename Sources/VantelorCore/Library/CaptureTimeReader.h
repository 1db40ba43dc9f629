#pragma once

#include <optional>

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

#include "Library/PhotoItem.h"
#include "Support/SerialExecutor.h"

namespace vantelor {

// Capture times from the EXIF DateTimeOriginal tag, and from nothing else: no fallback to other
// dates. The text carries no zone, so every time is read as UTC; times of one shoot stay
// comparable, and everything that shows or compares them uses the same convention.
// A serialised service with no cache: each call reads the files again.
class CaptureTimeReader {
public:
    using Table = QHash<QString, QDateTime>;

    CaptureTimeReader();
    ~CaptureTimeReader();

    // Location → capture time; photos without one are absent. Never fails; a cancelled future
    // stops between photos.
    QFuture<Table> read(QList<PhotoItem> photos);

    // The same work on the caller's thread; returns what it has when cancelled() turns true.
    static Table readNow(const QList<PhotoItem>& photos, const CancelCheck& cancelled = {});
    // One file's capture time. TIFF-based raws and JPEG are read directly and bounded; other
    // formats (HEIC, CR3, PNG) through exiv2. Pixels are never decoded.
    static std::optional<QDateTime> captureTime(const QString& path);
    // "yyyy:MM:dd HH:mm:ss" as UTC; nothing for any other text.
    static std::optional<QDateTime> parseExifTime(const QByteArray& text);

private:
    SerialExecutor m_executor{QStringLiteral("com.vantelor.capture-time")};
};

} // namespace vantelor
