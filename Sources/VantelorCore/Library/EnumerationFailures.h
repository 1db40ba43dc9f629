#pragma once

#include <QMutex>

namespace vantelor {

// Errors met while walking a folder. Shared with code that may run outside the indexer's worker,
// so every read and increment takes the lock.
class EnumerationFailures {
public:
    void increment();
    int value() const;

private:
    mutable QMutex m_lock;
    int m_value = 0;
};

} // namespace vantelor
