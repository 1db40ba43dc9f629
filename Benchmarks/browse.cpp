// Browsing benchmark: a real LibraryModel on the real PreviewService, stepping through a folder
// as a photographer does.
//   bench-browse [FOLDER] [--rates 3,10] [--steps 200]
// Without FOLDER it writes 1,000 NEFs, each embedding a 6048 × 4032 JPEG, into a temporary
// folder (and reads them once, so the page cache is warm as the targets assume). It prints one
// JSON object: scanFinishedMs, preparedMs and firstPreviewMs, each from open; per stepping rate
// the median and 95th percentile from run(next) until the preview shows that photo, and the share
// of steps shown within 16 ms (a step overtaken by the next one before its photo showed counts as
// never shown; null when more than that share of steps were never shown), with the share shown at
// all and how long the preview took to catch up with each step; the longest time the
// controller's thread was busy in one go (its CPU time; the wall time beside it); the peak
// resident memory from open on.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <time.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include "Model/LibraryModel.h"
#include "Previews/PreviewService.h"
#include "BenchmarkSupport.h"
#include "Support/ImageFixtures.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using Clock = std::chrono::steady_clock;

namespace {

constexpr double never = std::numeric_limits<double>::infinity();

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double threadCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

// Every event the controller's thread handles, timed: the longest is how long the window could
// not answer the user.
class TimedApplication : public QCoreApplication {
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject* receiver, QEvent* event) override
    {
        if (m_depth++ > 0) {
            const bool handled = QCoreApplication::notify(receiver, event);
            --m_depth;
            return handled;
        }
        const auto start = Clock::now();
        const double cpuStart = threadCpuMs();
        const bool handled = QCoreApplication::notify(receiver, event);
        --m_depth;
        note(msSince(start), threadCpuMs() - cpuStart);
        return handled;
    }

    // Wall time and the thread's own CPU time: on a shared machine the wall time also counts the
    // moments the system gave the core to another program.
    void note(double wallMs, double cpuMs)
    {
        longestBusyWallMs = std::max(longestBusyWallMs, wallMs);
        longestBusyMs = std::max(longestBusyMs, cpuMs);
    }

    double longestBusyMs = 0;
    double longestBusyWallMs = 0;

private:
    int m_depth = 0;
};

void writeFolder(const QString& folder, int count)
{
    // Two different frames, so that neighbouring files are not byte for byte the same.
    const QList<QByteArray> frames = {test::makeJpeg(test::cameraFrame(6048, 4032, 1), 88),
                                      test::makeJpeg(test::cameraFrame(6048, 4032, 2), 88)};
    const QByteArray small = test::makeJpeg(640, 424);
    const QDateTime start(QDate(2024, 5, 1), QTime(10, 0), Qt::UTC);
    for (int i = 0; i < count; ++i) {
        test::NefLayout layout;
        layout.previews = {small, frames[i % 2]};
        layout.exif.model = QByteArray("NIKON Z 8");
        layout.exif.dateTimeOriginal = start.addSecs(i).toString(QStringLiteral("yyyy:MM:dd HH:mm:ss")).toLatin1();
        layout.rawBytes = 64 * 1024;
        const QString path = Paths::join(folder, QStringLiteral("DSC_%1.NEF").arg(i, 4, 10, QLatin1Char('0')));
        test::writeFile(path, test::makeNef(layout));
        test::readFile(path);
    }
}

struct Step {
    QString url;
    Clock::time_point start;
    double latencyMs = never;
    // Until the preview showed this photo or one the user stepped to after it.
    double caughtUpMs = never;
};

QJsonValue figure(double ms)
{
    return std::isfinite(ms) ? QJsonValue(std::round(ms * 100) / 100) : QJsonValue();
}

double percentile(std::vector<double> values, double q)
{
    if (values.empty())
        return never;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(q * double(values.size())))];
}

QJsonObject summary(int rate, const QList<Step>& steps)
{
    std::vector<double> latencies, caughtUp;
    for (const Step& step : steps) {
        latencies.push_back(step.latencyMs);
        caughtUp.push_back(step.caughtUpMs);
        if (qEnvironmentVariableIsSet("BENCH_BROWSE_TRACE"))
            std::fprintf(stderr, "%d/s %s %.2f\n", rate, Paths::encode(Paths::fileName(step.url)).constData(), step.latencyMs);
    }
    const auto at = [&](double q) { return percentile(latencies, q); };
    const auto shown = std::count_if(latencies.begin(), latencies.end(), [](double ms) { return std::isfinite(ms); });
    const auto within = std::count_if(latencies.begin(), latencies.end(), [](double ms) { return ms <= 16; });
    QJsonObject object;
    object.insert(QStringLiteral("rate"), rate);
    object.insert(QStringLiteral("count"), int(steps.size()));
    object.insert(QStringLiteral("medianMs"), figure(at(0.5)));
    object.insert(QStringLiteral("p95Ms"), figure(at(0.95)));
    object.insert(QStringLiteral("within16msShare"), latencies.empty() ? 0.0 : std::round(1000.0 * double(within) / double(latencies.size())) / 1000);
    // Beside the figures above: how many steps showed their own photo before the next step, and
    // how long the preview took to catch up with each step (its photo or a later one shown).
    object.insert(QStringLiteral("shownShare"), latencies.empty() ? 0.0 : std::round(1000.0 * double(shown) / double(latencies.size())) / 1000);
    object.insert(QStringLiteral("caughtUpMedianMs"), figure(percentile(caughtUp, 0.5)));
    object.insert(QStringLiteral("caughtUpP95Ms"), figure(percentile(caughtUp, 0.95)));
    return object;
}

} // namespace

int main(int argc, char** argv)
{
    TimedApplication app(argc, argv);
    QString folder;
    QList<int> rates = {3, 10};
    int stepCount = 200;
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        if (arg == "--rates" && i + 1 < argc) {
            rates.clear();
            for (const QByteArray& rate : QByteArray(argv[++i]).split(','))
                rates.append(std::max(1, rate.toInt()));
        } else if (arg == "--steps" && i + 1 < argc) {
            stepCount = std::max(1, QByteArray(argv[++i]).toInt());
        } else if (!arg.startsWith("--") && folder.isEmpty()) {
            folder = Paths::clean(Paths::decode(arg));
        } else {
            std::fprintf(stderr, "Uso: bench-browse [CARPETA] [--rates 3,10] [--steps 200]\n");
            return 2;
        }
    }

    test::Sandbox sandbox;
    if (folder.isEmpty()) {
        folder = sandbox.mkdir(QStringLiteral("shoot"));
        std::fprintf(stderr, "Escribiendo 1000 NEF en %s…\n", Paths::encode(folder).constData());
        writeFolder(folder, 1000);
    }
    // The peak counts from here: the generator's own frames are not the browser's memory.
    if (QFile clear(QStringLiteral("/proc/self/clear_refs")); clear.open(QIODevice::WriteOnly))
        clear.write("5");

    PreviewService previews(PreviewService::sharedCacheBytes, sandbox.mkdir(QStringLiteral("cache")));
    LibraryModel::Dependencies deps;
    deps.previews = &previews;
    deps.persistPreferences = false;
    LibraryModel model(std::move(deps));

    Clock::time_point opened;
    double scanFinishedMs = -1, preparedMs = -1, firstPreviewMs = -1;
    QObject::connect(&model, &LibraryModel::preparationChanged, [&] {
        if (scanFinishedMs < 0 && model.preparationTotal() > 0)
            scanFinishedMs = msSince(opened);
        if (preparedMs < 0 && !model.isPreparing() && !model.isScanning() && !model.status().isEmpty())
            preparedMs = msSince(opened);
    });

    QList<QList<Step>> results;
    QList<Step>* steps = nullptr;
    QObject::connect(&model, &LibraryModel::previewChanged, [&] {
        if (!model.preview() || !model.displayedID())
            return;
        if (firstPreviewMs < 0)
            firstPreviewMs = msSince(opened);
        if (!steps)
            return;
        for (qsizetype i = steps->size() - 1; i >= 0; --i) {
            if ((*steps)[i].url != *model.displayedID())
                continue;
            if (i == steps->size() - 1 && !std::isfinite((*steps)[i].latencyMs))
                (*steps)[i].latencyMs = msSince((*steps)[i].start);
            for (qsizetype j = i; j >= 0 && !std::isfinite((*steps)[j].caughtUpMs); --j)
                (*steps)[j].caughtUpMs = msSince((*steps)[j].start);
            break;
        }
    });

    int direction = 1;
    const auto step = [&] {
        const int position = model.selectedPosition().value_or(0);
        const int last = int(model.visiblePhotos().size()) - 1;
        if (position >= last)
            direction = -1;
        else if (position <= 0)
            direction = 1;
        Step taken;
        taken.start = Clock::now();
        const double cpuStart = threadCpuMs();
        model.run(direction > 0 ? ActionID::next : ActionID::previous);
        app.note(msSince(taken.start), threadCpuMs() - cpuStart);
        taken.url = model.selectedID().value_or(QString());
        // A hit answered before run() returned is already on screen.
        if (model.displayedID() == taken.url && model.preview())
            taken.latencyMs = taken.caughtUpMs = msSince(taken.start);
        steps->append(taken);
    };

    qsizetype rateIndex = -1;
    QTimer ticker;
    std::function<void()> nextRate = [&] {
        if (++rateIndex >= rates.size()) {
            app.quit();
            return;
        }
        results.append(QList<Step>());
        steps = &results.last();
        ticker.setInterval(1000 / rates[rateIndex]);
        ticker.start();
        step();
    };
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        if (steps->size() >= stepCount) {
            ticker.stop();
            // A pause between rates, so that one rate's warming does not help the next.
            QTimer::singleShot(1000, nextRate);
            return;
        }
        step();
    });

    QTimer::singleShot(0, [&] {
        opened = Clock::now();
        const double cpuStart = threadCpuMs();
        model.open(folder);
        app.note(msSince(opened), threadCpuMs() - cpuStart);
        // Stepping starts once the first photo is shown, as a user would.
        auto* waiting = new QTimer(&app);
        waiting->setInterval(5);
        QObject::connect(waiting, &QTimer::timeout, [&, waiting] {
            if (firstPreviewMs >= 0 && preparedMs >= 0) {
                waiting->stop();
                QTimer::singleShot(500, nextRate);
            } else if (!model.isPreparing() && model.visiblePhotos().isEmpty() && preparedMs >= 0) {
                waiting->stop();
                app.quit();
            }
        });
        waiting->start();
    });
    app.exec();

    QJsonArray stepFigures;
    for (qsizetype i = 0; i < results.size(); ++i)
        stepFigures.append(summary(rates[i], results[i]));
    QJsonObject out;
    out.insert(QStringLiteral("folder"), Paths::jsonText(folder));
    out.insert(QStringLiteral("photos"), int(model.photos().size()));
    out.insert(QStringLiteral("scanFinishedMs"), figure(scanFinishedMs));
    out.insert(QStringLiteral("preparedMs"), figure(preparedMs));
    out.insert(QStringLiteral("firstPreviewMs"), figure(firstPreviewMs));
    out.insert(QStringLiteral("steps"), stepFigures);
    out.insert(QStringLiteral("longestBusyMs"), figure(app.longestBusyMs));
    out.insert(QStringLiteral("longestBusyWallMs"), figure(app.longestBusyWallMs));
    out.insert(QStringLiteral("peakRssMB"), std::round(test::statusKiB("VmHWM:") / 1024.0 * 10) / 10);
    std::printf("%s\n", QJsonDocument(out).toJson(QJsonDocument::Compact).constData());
    return 0;
}
