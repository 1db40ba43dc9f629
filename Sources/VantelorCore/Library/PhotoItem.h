#pragma once

#include <optional>

#include <QCollatorSortKey>
#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QString>

#include "Support/Result.h"

namespace vantelor {

// One photo file found in a folder. A plain value, copied freely between threads. Two records of
// the same path differ when the file was replaced or rewritten in between: that is how the rest
// of the system notices a changed file.
struct PhotoItem {
    QString url;          // absolute, cleaned path: the photo's identity everywhere
    qint64 byteSize = 0;
    QDateTime created;    // the distant past when the file system keeps none
    QDateTime modified;
    QString resourceID;   // "device:inode", or the path when there is none

    PhotoItem() = default;
    PhotoItem(QString url, qint64 byteSize, QDateTime created, QDateTime modified, QString resourceID);

    const QString& id() const { return url; }
    QString name() const;

    // The 13 lower-case extensions that make a file a photo; nothing else is looked at.
    static const QSet<QString>& supportedExtensions();
    static bool hasSupportedExtension(const QString& path);

    // The record of one directory entry, read fresh from the file system; nothing for an entry
    // that is not a photo (unsupported extension, not a regular file, a symbolic link). Fails
    // only when the entry's details cannot be read.
    static Result<std::optional<PhotoItem>> inspect(const QString& path);

    // Strict order of the photo list: names compared as a file browser does (case-insensitive,
    // digits by value, accents considered), then, for names that compare the same, the full path
    // by code point, so that the order is total and the same on every run.
    static bool ordered(const PhotoItem& a, const PhotoItem& b);

    // Key of this file's decoded preview at a pixel dimension: any change of path, identity,
    // size or modification time gives another key.
    QString cacheKey(int dimension) const;

    friend bool operator==(const PhotoItem& a, const PhotoItem& b);

private:
    // Kept beside the record so that sorting thousands of names costs a byte comparison each.
    std::optional<QCollatorSortKey> m_sortKey;
};

size_t qHash(const PhotoItem& item, size_t seed = 0);

} // namespace vantelor
