// Fixture maker and in-process timer for the folder scanner and the capture-time reader.
//   bench-library make-scan DIR PHOTOS OTHERS   a flat folder of empty photos and other files
//   bench-library make-nefs DIR COUNT           NEF files with capture times
//   bench-library scan DIR [RUNS]               median time of a full scan, and peak memory
//   bench-library dates DIR [RUNS]              median time of reading every capture time
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>

#include "Library/CaptureTimeReader.h"
#include "Library/FolderIndexerProbe.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"

using namespace vantelor;

namespace {

void writeAll(const QString& path, const QByteArray& bytes)
{
    const int fd = ::open(Paths::encode(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::write(fd, bytes.constData(), size_t(bytes.size())) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    ::close(fd);
}

long peakKilobytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    return -1;
}

template <typename Work>
double medianMilliseconds(int runs, Work work)
{
    QList<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        times << std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

ScanSnapshot scan(const QString& folder)
{
    FolderIndexer indexer(folder, 256);
    for (;;) {
        auto snapshot = FolderIndexer::Probe::nextBatchNow(indexer, {});
        if (!snapshot || snapshot->finished)
            return snapshot ? *snapshot : ScanSnapshot{};
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const QString mode = args.value(1);
    const QString dir = args.value(2);
    if (mode == QStringLiteral("make-scan")) {
        const int photos = args.value(3).toInt();
        const int others = args.value(4).toInt();
        const char* photoExt[] = {"NEF", "JPG", "nef", "jpg"};
        for (int i = 0; i < photos; ++i)
            writeAll(QStringLiteral("%1/DSC_%2.%3").arg(dir).arg(i).arg(QLatin1String(photoExt[i % 4])), {});
        for (int i = 0; i < others; ++i)
            writeAll(QStringLiteral("%1/DSC_%2.%3").arg(dir).arg(i).arg(i % 2 ? QStringLiteral("xmp") : QStringLiteral("txt")), {});
        return 0;
    }
    if (mode == QStringLiteral("make-nefs")) {
        const int count = args.value(3).toInt();
        for (int i = 0; i < count; ++i) {
            test::NefLayout layout;
            layout.previews = {test::makeJpeg(320, 213)};
            layout.exif.dateTimeOriginal = QStringLiteral("2024:03:01 10:%1:%2").arg(i / 60 % 60, 2, 10, QLatin1Char('0')).arg(i % 60, 2, 10, QLatin1Char('0')).toLatin1();
            layout.exif.iso = 400;
            layout.rawBytes = 256 * 1024;
            writeAll(QStringLiteral("%1/DSC_%2.NEF").arg(dir).arg(i, 4, 10, QLatin1Char('0')), test::makeNef(layout));
        }
        return 0;
    }
    const int runs = std::max(1, args.value(3, QStringLiteral("5")).toInt());
    if (mode == QStringLiteral("scan")) {
        qsizetype count = 0;
        const double ms = medianMilliseconds(runs, [&] { count = scan(dir).photos.size(); });
        std::printf("scan: %lld photos, median %.1f ms over %d runs, peak resident %ld KB\n",
                    static_cast<long long>(count), ms, runs, peakKilobytes());
        return 0;
    }
    if (mode == QStringLiteral("dates")) {
        const QList<PhotoItem> photos = scan(dir).photos;
        qsizetype found = 0;
        const double ms = medianMilliseconds(runs, [&] { found = CaptureTimeReader::readNow(photos).size(); });
        std::printf("dates: %lld of %lld photos, median %.1f ms over %d runs\n",
                    static_cast<long long>(found), static_cast<long long>(photos.size()), ms, runs);
        return 0;
    }
    std::fprintf(stderr, "usage: bench-library make-scan|make-nefs|scan|dates DIR …\n");
    return 2;
}
