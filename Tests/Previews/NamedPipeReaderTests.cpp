#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <future>

#include <gtest/gtest.h>

#include "Library/CaptureTimeReader.h"
#include "Previews/ImageProperties.h"
#include "Previews/LibRawReader.h"
#include "Previews/NikonPreview.h"
#include "Previews/PreviewDecoder.h"
#include "Previews/QtImageDecoder.h"
#include "Previews/RawDecoder.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

namespace vantelor::test {

// A named pipe where a photo was expected: opening it for reading waits for a writer that never
// comes. Every reader, ours or a library's, must see what it is before it opens it that way.
TEST(NamedPipe, NoReaderWaitsOnIt)
{
    Sandbox sandbox;
    const auto fifo = [&](const QString& name) {
        const QString path = sandbox.file(name);
        EXPECT_EQ(mkfifo(Paths::encode(path).constData(), 0600), 0);
        return path;
    };
    const QString nef = fifo("pipe.nef"), cr3 = fifo("pipe.cr3"), png = fifo("pipe.png"), jpg = fifo("pipe.jpg");
    const auto item = [](const QString& path) {
        PhotoItem photo;
        photo.url = path;
        return photo;
    };
    const struct {
        const char* reader;
        QString pipe;
        std::function<bool()> read; // true when it (wrongly) found something
    } rows[] = {
        {"exiv2 properties", cr3, [&] { return ImageProperties::read(cr3, ImageProperties::Previews::largestPreview).model.has_value(); }},
        {"exiv2 capture time", cr3, [&] { return CaptureTimeReader::captureTime(cr3).has_value(); }},
        {"LibRaw header", cr3, [&] { return LibRawReader::properties(cr3, ImageProperties::Previews::none).has_value(); }},
        {"LibRaw decode", nef, [&] { return RawDecoder::decode(nef, 64).has_value(); }},
        {"Qt image reader", png, [&] { return QtImageDecoder::decode(png, "png", 64).has_value(); }},
        {"NEF preview", nef, [&] { return NikonPreview::jpeg(nef).has_value(); }},
        {"preview", jpg, [&] { return PreviewDecoder::decode(item(jpg), 64).ok(); }},
        {"capture data", jpg, [&] { return PreviewDecoder::metadata(jpg).ok(); }},
    };
    for (const auto& row : rows) {
        auto done = std::async(std::launch::async, row.read);
        if (done.wait_for(std::chrono::seconds(5)) == std::future_status::timeout) {
            ADD_FAILURE() << row.reader << " waits on the pipe";
            // A writer that comes and goes lets the stuck reader see the end, so that the test ends.
            ::close(::open(Paths::encode(row.pipe).constData(), O_WRONLY | O_NONBLOCK));
            done.wait();
            continue;
        }
        EXPECT_FALSE(done.get()) << row.reader;
    }
}

} // namespace vantelor::test
