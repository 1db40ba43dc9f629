#include "Support/SerialExecutor.h"

namespace vantelor {

SerialExecutor::SerialExecutor(const QString& name)
{
    m_pool.setMaxThreadCount(1);
    m_pool.setObjectName(name);
    // Keep the worker for the life of the service: no thread start-up per operation.
    m_pool.setExpiryTimeout(-1);
}

SerialExecutor::~SerialExecutor()
{
    m_pool.waitForDone();
}

void SerialExecutor::drain()
{
    m_pool.waitForDone();
}

} // namespace vantelor
