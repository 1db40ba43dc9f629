#pragma once

#include <functional>
#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>

#include "Metadata/XMPSnapshot.h"
#include "Support/Result.h"

namespace vantelor {

class SidecarFolder;

// The reading half of the sidecar service, run synchronously on the service's worker: finds a
// NEF's sidecar, reads it without following links and within the size bound, and takes the
// rating and label out of it. Never writes and never creates anything.
class SidecarReader {
public:
    // 16 MiB: no sidecar of a real program comes near this; anything above is refused.
    static constexpr qint64 maximumSize = 16 * 1024 * 1024;

    // One photo, checked to be a NEF that inspects as a photo; its folder is listed afresh.
    static Result<XMPSnapshot> read(const QString& raw);
    // Many photos, each folder listed once, one result per photo in input order; the NEF checks
    // of `read` are made only when asked. `cancelled` is asked between photos.
    static QList<Result<XMPSnapshot>> readAll(const QList<QString>& raws, bool checkPhotos,
                                              const std::function<bool()>& cancelled = {});

    // The sidecar's bytes; nothing when no file is there. Refuses links, anything but a regular
    // file and anything over the bound.
    static Result<std::optional<QByteArray>> readSidecar(const QString& path);
    // Where the raw file's sidecar is now and what it holds, listing the folder afresh.
    struct Current {
        QString sidecar;
        std::optional<QByteArray> data;
    };
    static Result<Current> current(const QString& raw);

    // The checks of `read`: a NEF that still inspects as a photo.
    static Status checkPhoto(const QString& raw);

private:
    static Result<XMPSnapshot> readLocated(const QString& raw, const Result<QString>& sidecar);
};

} // namespace vantelor
