#include "LibraryTestSupport.h"

#include <thread>

#include <gtest/gtest.h>

#include "Support/Paths.h"

namespace vantelor::test {

namespace {

template <typename T>
std::shared_ptr<QPromise<T>> started()
{
    auto promise = std::make_shared<QPromise<T>>();
    promise->start();
    return promise;
}

// Answers come from another thread, as the real services' do: the controller sees them as a
// queued call, which may arrive after it moved on.
template <typename T>
void finishElsewhere(const std::shared_ptr<QPromise<T>>& promise, T value)
{
    std::thread([&] {
        promise->addResult(std::move(value));
        promise->finish();
    }).join();
}

// Each batch asked for becomes a request that the test answers.
struct ScriptedIndexer final : FolderIndexing {
    ScriptedIndexer(ScriptedScans& scans, QString folder) : scans(scans), folder(std::move(folder)) {}
    QFuture<Result<ScanSnapshot>> nextBatch() override
    {
        scans.requests.append({folder, started<Result<ScanSnapshot>>()});
        return scans.requests.last().promise->future();
    }
    QFuture<void> cancel() override { return QtFuture::makeReadyFuture(); }
    ScriptedScans& scans;
    const QString folder;
};

} // namespace

QFuture<Result<PreviewResult>> FakePreviews::add(const PhotoItem& item, int dimension, bool warming)
{
    calls.append({item, dimension, warming, started<Result<PreviewResult>>()});
    return calls.last().promise->future();
}

QStringList FakePreviews::livePrefetches() const
{
    QStringList out;
    for (const Call& call : calls)
        if (call.warming && !call.promise->isCanceled())
            out.append(call.item.name());
    return out;
}

void FakePreviews::answer(const Call& call, int size) const
{
    PreviewResult result;
    result.image = QImage(size, size * 2 / 3, QImage::Format_RGB32);
    finishElsewhere(call.promise, Result<PreviewResult>(result));
}

void FakePreviews::fail(const Call& call) const
{
    finishElsewhere(call.promise, Result<PreviewResult>(BrowserError::unreadableImage(call.item.name())));
}

std::function<std::unique_ptr<FolderIndexing>(const QString&, int)> ScriptedScans::factory()
{
    return [this](const QString& folder, int) -> std::unique_ptr<FolderIndexing> {
        created.append(folder);
        return std::make_unique<ScriptedIndexer>(*this, folder);
    };
}

void ScriptedScans::deliver(const Request& request, const QStringList& photoNames, bool finished) const
{
    ScanSnapshot snapshot;
    for (const QString& name : photoNames)
        snapshot.photos.append(photoAt(Paths::join(request.folder, name)));
    std::stable_sort(snapshot.photos.begin(), snapshot.photos.end(), PhotoItem::ordered);
    snapshot.finished = finished;
    finishElsewhere(request.promise, Result<ScanSnapshot>(snapshot));
}

void ScriptedScans::failWith(const Request& request, const Failure& failure) const
{
    finishElsewhere(request.promise, Result<ScanSnapshot>(failure));
}

Harness::Harness(bool fakeScanner, int autosaveDelayMs, XMPSaveSeam seam)
{
    LibraryModel::Dependencies deps;
    deps.previews = &previews;
    deps.chooser = &chooser;
    if (fakeScanner)
        deps.makeIndexer = scans.factory();
    deps.persistPreferences = false;
    deps.autosaveDelayMs = autosaveDelayMs;
    deps.xmpSaveSeam = std::move(seam);
    model = std::make_unique<LibraryModel>(std::move(deps));
}

void Harness::openAndPrepare(const QString& folder)
{
    model->open(folder);
    EXPECT_TRUE(eventually([this] { return !model->isPreparing(); }));
}

} // namespace vantelor::test
