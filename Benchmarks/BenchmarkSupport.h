#pragma once

#include <algorithm>
#include <cstring>
#include <random>

#include <QFile>
#include <QImage>

#include "Support/ImageFixtures.h"

namespace vantelor::test {

// A sensor-like frame: the test pattern under fine noise, which is what makes camera JPEGs as big
// as they are.
inline QImage cameraFrame(int width, int height, unsigned seed)
{
    QImage image = patternImage(width, height, QColor(90, 120, 160));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> noise(-6, 6);
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int n = noise(random);
            const QRgb p = line[x];
            line[x] = qRgb(std::clamp(qRed(p) + n, 0, 255), std::clamp(qGreen(p) + n, 0, 255), std::clamp(qBlue(p) + n, 0, 255));
        }
    }
    return image;
}

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
