#pragma once

#include <list>
#include <optional>

#include <QHash>
#include <QMutex>
#include <QString>

#include "Previews/PreviewResult.h"

namespace vantelor {

// Decoded previews by key, bounded by total cost (bytes of bitmap) and by count; the least
// recently used entries go first when either bound is passed. Safe to use from any thread.
class PreviewCache {
public:
    PreviewCache(qint64 costLimit, int countLimit);

    // A hit also makes the entry the most recently used.
    std::optional<PreviewResult> find(const QString& key);
    // Replaces an entry of the same key; an entry costlier than the whole limit is not kept.
    void insert(const QString& key, const PreviewResult& result);
    void clear();

    qint64 totalCost() const;
    int count() const;
    qint64 costLimit() const { return m_costLimit; }
    int countLimit() const { return m_countLimit; }

private:
    struct Entry {
        QString key;
        PreviewResult result;
        qint64 cost = 0;
    };
    using List = std::list<Entry>;

    void evict();

    const qint64 m_costLimit;
    const int m_countLimit;
    mutable QMutex m_mutex;
    List m_entries;  // most recently used first
    QHash<QString, List::iterator> m_index;
    qint64 m_totalCost = 0;
};

} // namespace vantelor
