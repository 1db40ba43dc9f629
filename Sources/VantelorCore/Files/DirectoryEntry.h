#pragma once

#include <QDateTime>
#include <QString>

namespace vantelor {

// One subfolder as the folder navigator shows it. Identified by its path.
struct DirectoryEntry {
    QString url;        // absolute path of the subfolder
    QString name;       // its last component, as the file system spells it
    QDateTime created;  // the distant past when the file system keeps no birth time

    const QString& id() const { return url; }
    friend bool operator==(const DirectoryEntry&, const DirectoryEntry&) = default;
};

} // namespace vantelor
