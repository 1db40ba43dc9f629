#pragma once

#include <QString>

namespace vantelor {

// A failure reported by the operating system: the error number and the path it concerned.
// Its text is the C library's text for the number, in the user's language where the system
// has a translation, after the path.
class SystemError {
public:
    SystemError(int code, QString path);

    // Captures the current errno.
    static SystemError fromErrno(const QString& path);

    int code() const { return m_code; }
    const QString& path() const { return m_path; }
    QString message() const;

    // The system's text for an error number ("No such file or directory", "No existe el fichero o el
    // directorio").
    static QString text(int code);

    friend bool operator==(const SystemError&, const SystemError&) = default;

private:
    int m_code;
    QString m_path;
};

} // namespace vantelor
