#pragma once

#include <cstring>

#include <QFile>

namespace vantelor::test {

// A "VmRSS:"-style field of /proc/self/status in KiB, or -1: what the benchmarks report as memory.
inline qint64 statusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(qsizetype(std::strlen(field))).trimmed().split(' ').first().toLongLong();
    return -1;
}

} // namespace vantelor::test
