#include "Support/SystemError.h"

#include <cerrno>
#include <cstring>

#include "Support/Paths.h"

namespace vantelor {

SystemError::SystemError(int code, QString path) : m_code(code), m_path(std::move(path)) {}

SystemError SystemError::fromErrno(const QString& path)
{
    return SystemError(errno, path);
}

QString SystemError::text(int code)
{
    // The C library's text in the language of the locale the program set up (both mains call
    // setlocale), English where the system has no translation. GNU strerror_r: thread-safe.
    char buffer[256];
    return QString::fromLocal8Bit(strerror_r(code, buffer, sizeof buffer));
}

QString SystemError::message() const
{
    if (m_path.isEmpty())
        return text(m_code);
    return Paths::displayText(m_path) + QStringLiteral(": ") + text(m_code);
}

} // namespace vantelor
