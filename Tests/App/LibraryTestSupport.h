#pragma once

#include <algorithm>

#include <QCoreApplication>
#include <QTest>

#include "Model/LibraryModel.h"

namespace vantelor::test {

// A preview loader whose answers the test gives, one request at a time and in any order.
class FakePreviews final : public PreviewLoading {
public:
    struct Call {
        PhotoItem item;
        int dimension = 0;
        bool warming = false;
        std::shared_ptr<QPromise<Result<PreviewResult>>> promise;
    };

    QFuture<Result<PreviewResult>> load(const PhotoItem& item, int dimension) override { return add(item, dimension, false); }
    QFuture<Result<PreviewResult>> prefetch(const PhotoItem& item, int dimension) override { return add(item, dimension, true); }
    void clearCache() override { ++clears; }

    // The newest display load, and the photo names of the prefetches still wanted.
    Call lastLoad() const { return *std::find_if(calls.rbegin(), calls.rend(), [](const Call& c) { return !c.warming; }); }
    QStringList livePrefetches() const;
    // Answers a display load with an image whose longer side is `size`, or with a failure.
    void answer(const Call& call, int size = 2560) const;
    void fail(const Call& call) const;

    QList<Call> calls;
    int clears = 0;

private:
    QFuture<Result<PreviewResult>> add(const PhotoItem& item, int dimension, bool warming);
};

// A folder scanner whose batches the test delivers, so that an answer can arrive late.
class ScriptedScans {
public:
    struct Request {
        QString folder;
        std::shared_ptr<QPromise<Result<ScanSnapshot>>> promise;
    };

    std::function<std::unique_ptr<FolderIndexing>(const QString&, int)> factory();
    // Delivers a snapshot of photos named in `names` (files under the request's folder).
    void deliver(const Request& request, const QStringList& names, bool finished) const;
    void failWith(const Request& request, const Failure& failure) const;

    QList<Request> requests;
    QStringList created;
};

// A chooser that keeps each request until the test answers it.
class FakeChooser final : public FolderChooser {
public:
    void chooseFolder(const Request& request, Done done) override { asked.append(request); pending = std::move(done); }

    QList<Request> asked;
    Done pending;
};

// A photo record for a file that need not exist.
inline PhotoItem photoAt(const QString& path)
{
    const QDateTime time = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    return PhotoItem(path, 1000, time, time, path);
}

// Delivers the answers already given (queued calls) without waiting for anything else.
inline void settle() { for (int round = 0; round < 4; ++round) QCoreApplication::processEvents(); }
// Waits (running the event loop) until the condition holds; false after ten seconds.
inline bool eventually(const std::function<bool()>& condition) { return QTest::qWaitFor(condition, 10000); }

// A controller on fakes and real services, with nothing persisted and no pause before saving.
struct Harness {
    explicit Harness(bool fakeScanner = false, int autosaveDelayMs = 0, XMPSaveSeam seam = {});
    FakePreviews previews;
    ScriptedScans scans;
    FakeChooser chooser;
    std::unique_ptr<LibraryModel> model;

    // Opens a real folder and waits until its preparation ended.
    void openAndPrepare(const QString& folder);
};

} // namespace vantelor::test
