#include "Previews/PreviewCache.h"

namespace vantelor {

PreviewCache::PreviewCache(qint64 costLimit, int countLimit) : m_costLimit(costLimit), m_countLimit(countLimit) {}

std::optional<PreviewResult> PreviewCache::find(const QString& key)
{
    QMutexLocker lock(&m_mutex);
    const auto it = m_index.constFind(key);
    if (it == m_index.cend())
        return std::nullopt;
    m_entries.splice(m_entries.begin(), m_entries, *it);
    return m_entries.front().result;
}

void PreviewCache::insert(const QString& key, const PreviewResult& result)
{
    const qint64 cost = result.cost();
    QMutexLocker lock(&m_mutex);
    if (const auto it = m_index.find(key); it != m_index.end()) {
        m_totalCost -= (*it)->cost;
        m_entries.erase(*it);
        m_index.erase(it);
    }
    if (cost > m_costLimit)
        return;
    m_entries.push_front(Entry{key, result, cost});
    m_index.insert(key, m_entries.begin());
    m_totalCost += cost;
    evict();
}

void PreviewCache::clear()
{
    QMutexLocker lock(&m_mutex);
    m_entries.clear();
    m_index.clear();
    m_totalCost = 0;
}

qint64 PreviewCache::totalCost() const
{
    QMutexLocker lock(&m_mutex);
    return m_totalCost;
}

int PreviewCache::count() const
{
    QMutexLocker lock(&m_mutex);
    return int(m_entries.size());
}

void PreviewCache::evict()
{
    while (!m_entries.empty() && (m_totalCost > m_costLimit || qsizetype(m_entries.size()) > m_countLimit)) {
        m_totalCost -= m_entries.back().cost;
        m_index.remove(m_entries.back().key);
        m_entries.pop_back();
    }
}

} // namespace vantelor
