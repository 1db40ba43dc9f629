#include "Library/EnumerationFailures.h"

#include <cstdlib>
#include <limits>

namespace vantelor {

void EnumerationFailures::increment()
{
    QMutexLocker locker(&m_lock);
    if (m_value == std::numeric_limits<int>::max())
        std::abort(); // a count that overflows means the walk itself is broken
    ++m_value;
}

int EnumerationFailures::value() const
{
    QMutexLocker locker(&m_lock);
    return m_value;
}

} // namespace vantelor
