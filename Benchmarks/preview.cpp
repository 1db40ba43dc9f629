// Preview pipeline benchmark.
//   bench-preview make DIR [COUNT]   writes COUNT (50) NEFs, each embedding a 6048 × 4032 JPEG of
//                                    about 4 MB, as a camera writes them
//   bench-preview run DIR            cache hit time, resident memory after 6 prefetches of
//                                    2560-pixel previews, and focus peaking of a 2560 × 1706
//                                    preview; medians of repeated runs
// Benchmarks/preview.sh runs both and compares the decode against djpeg in the same run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <time.h>

#include <QCoreApplication>
#include <QFile>

#include "Previews/FocusPeaking.h"
#include "Previews/PreviewServiceProbe.h"
#include "BenchmarkSupport.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using Clock = std::chrono::steady_clock;

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double threadCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

int make(const QString& folder, int count)
{
    test::NefLayout layout;
    layout.previews = {test::makeJpeg(640, 424), test::makeJpeg(test::cameraFrame(6048, 4032, 1), 88)};
    layout.exif.model = QByteArray("NIKON Z 8");
    layout.exif.lens = QByteArray("NIKKOR Z 24-120mm f/4 S");
    layout.exif.iso = 800;
    layout.exif.fNumber = QPair<quint32, quint32>(56, 10);
    layout.exif.exposureTime = QPair<quint32, quint32>(1, 500);
    layout.exif.dateTimeOriginal = QByteArray("2024:05:01 10:00:00");
    layout.rawBytes = 2 * 1024 * 1024;  // the raw strip is never read; its size hardly matters
    const QByteArray nef = test::makeNef(layout);
    for (int i = 0; i < count; ++i)
        test::writeFile(Paths::join(folder, QStringLiteral("DSC_%1.NEF").arg(i, 4, 10, QLatin1Char('0'))), nef);
    std::printf("%d NEF de %.1f MB; vista previa incrustada de 6048 × 4032 y %.2f MB\n", count, nef.size() / 1e6,
                layout.previews[1].size() / 1e6);
    return 0;
}

int run(const QString& folder)
{
    QList<PhotoItem> photos;
    for (int i = 0; i < 6; ++i) {
        auto item = PhotoItem::inspect(Paths::join(folder, QStringLiteral("DSC_%1.NEF").arg(i, 4, 10, QLatin1Char('0'))));
        if (!item.ok() || !item->has_value()) {
            std::fprintf(stderr, "Faltan los NEF: bench-preview make %s\n", Paths::encode(folder).constData());
            return 1;
        }
        photos.append(**item);
    }
    const qint64 rssBefore = test::statusKiB("VmRSS:");
    PreviewService service(PreviewService::sharedCacheBytes, Paths::join(folder, QStringLiteral("cache")));

    // Six prefetches in the direction of travel, as the window issues them.
    QList<QFuture<Result<PreviewResult>>> prefetches;
    for (const PhotoItem& photo : photos)
        prefetches.append(service.prefetch(photo, PreviewService::standardDimension));
    for (auto& f : prefetches)
        f.waitForFinished();
    PreviewService::Probe::waitForIdle(service);
    const qint64 rssAfter = test::statusKiB("VmRSS:");
    const qint64 peak = test::statusKiB("VmHWM:");
    std::printf("6 prefetches de 2560 px: RSS %.1f MB (antes %.1f MB, pico %.1f MB), caché %.1f MB en %d entradas\n",
                rssAfter / 1024.0, rssBefore / 1024.0, peak / 1024.0, PreviewService::Probe::cache(service).totalCost() / 1048576.0,
                PreviewService::Probe::cache(service).count());

    std::vector<double> hits;
    const int decodes = PreviewService::Probe::decodeCount(service);
    for (int i = 0; i < 2000; ++i) {
        const auto start = Clock::now();
        // A hit is answered by the lookup worker: the round trip is the figure.
        const bool ready = service.load(photos[i % 6], PreviewService::standardDimension).result().ok()
                           && PreviewService::Probe::decodeCount(service) == decodes;
        hits.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        if (!ready) {
            std::fprintf(stderr, "La consulta %d no fue un acierto de caché\n", i);
            return 1;
        }
    }
    std::printf("Acierto de caché: mediana %.4f ms, máximo %.4f ms (2000 consultas)\n", median(hits),
                *std::max_element(hits.begin(), hits.end()));

    const Result<PreviewResult> preview = service.load(photos[0], PreviewService::standardDimension).result();
    const QImage image = preview->image.scaled(2560, 1706, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    // Wall time and the thread's own CPU time: on a shared machine the second one is the figure.
    std::vector<double> peaking, peakingCpu;
    qint64 highlighted = 0;
    for (int i = 0; i < 21; ++i) {
        const double cpuStart = threadCpuMs();
        const auto start = Clock::now();
        const Result<FocusMask> mask = FocusPeaking::calculate(image, 0.5);
        peaking.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        peakingCpu.push_back(threadCpuMs() - cpuStart);
        highlighted = mask->highlightedPixels;
    }
    std::printf("Resaltado de enfoque de 2560 × 1706: mediana %.2f ms de reloj, %.2f ms de CPU (%lld píxeles resaltados)\n",
                median(peaking), median(peakingCpu), static_cast<long long>(highlighted));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString mode = argc > 1 ? QString::fromUtf8(argv[1]) : QString();
    if (argc >= 3 && mode == QLatin1String("make"))
        return make(Paths::clean(Paths::decode(argv[2])), argc > 3 ? atoi(argv[3]) : 50);
    if (argc >= 3 && mode == QLatin1String("run"))
        return run(Paths::clean(Paths::decode(argv[2])));
    std::fprintf(stderr, "Uso: bench-preview make CARPETA [N] | bench-preview run CARPETA\n");
    return 2;
}
