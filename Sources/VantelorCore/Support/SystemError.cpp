#include "Support/SystemError.h"

#include <cerrno>
#include <clocale>
#include <cstring>
#include <locale.h>

#include "Support/Paths.h"

namespace vantelor {

SystemError::SystemError(int code, QString path) : m_code(code), m_path(std::move(path)) {}

SystemError SystemError::fromErrno(const QString& path)
{
    return SystemError(errno, path);
}

QString SystemError::text(int code)
{
    // strerror_l with a C locale: the same English text whatever the user's locale is.
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    return QString::fromLocal8Bit(strerror_l(code, cLocale));
}

QString SystemError::message() const
{
    if (m_path.isEmpty())
        return text(m_code);
    return Paths::displayText(m_path) + QStringLiteral(": ") + text(m_code);
}

} // namespace vantelor
