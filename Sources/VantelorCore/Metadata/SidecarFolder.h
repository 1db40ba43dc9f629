#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include "Support/Result.h"

namespace vantelor {

// One listing of a folder, indexed by base name ignoring case, for finding the sidecars of the
// raw files in it. A batch read lists each folder once and locates thousands of photos in it.
// A plain value; the listing is not refreshed.
class SidecarFolder {
public:
    // Every entry of the folder, hidden ones included; fails with the system's error.
    static Result<SidecarFolder> list(const QString& folder);

    // The sidecar of a raw file of this folder: the one .xmp file whose base name matches the
    // raw file's ignoring case, with its name as found; or, when there is none, the raw file's
    // path with its extension replaced by "xmp".
    Result<QString> locate(const QString& raw) const;

private:
    QString m_folder;
    QHash<QString, QStringList> m_namesByBase;   // case-folded base name → names as on disk
};

} // namespace vantelor
