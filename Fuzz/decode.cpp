// libFuzzer target: the preview service's decode path over arbitrary files. The first byte picks
// the file's extension (which selects the NEF path and raw versus TIFF handling), the second the
// requested size; the rest is the file. Every input must give a bitmap within the requested size
// or BrowserError::unreadableImage; never a crash, a hang or an unbounded allocation.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "Previews/PreviewDecoder.h"
#include "Support/Paths.h"

using namespace vantelor;

namespace {

const char* const extensions[] = {"nef", "nrw", "jpg", "jpeg", "heic", "heif", "tif", "tiff", "png", "dng", "arw", "cr2", "cr3"};

// A plain buffer, not a QString: the exit handler runs after static objects are destroyed.
char nativeFolder[64];

QString folder()
{
    static const QString path = [] {
        const QString p = QStringLiteral("/dev/shm/vantelor-fuzz-decode-%1").arg(getpid());
        qstrncpy(nativeFolder, Paths::encode(p).constData(), sizeof nativeFolder);
        mkdir(nativeFolder, 0700);
        std::atexit([] { rmdir(nativeFolder); });
        return p;
    }();
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const int count = int(sizeof extensions / sizeof *extensions);
    const QString path = folder() + QStringLiteral("/input.") + QLatin1String(extensions[data[0] % count]);
    // Sizes from 32 to 1,052 pixels: large enough for every path, small enough to keep runs fast.
    const int dimension = 32 + data[1] * 4;
    const QByteArray name = Paths::encode(path);
    FILE* file = fopen(name.constData(), "wb");
    if (!file)
        abort();
    fwrite(data + 2, 1, size - 2, file);
    fclose(file);

    PhotoItem item;
    item.url = path;
    const Result<PreviewResult> result = PreviewDecoder::decode(item, dimension);
    if (result.ok()) {
        const QImage& image = result->image;
        if (image.isNull() || std::max(image.width(), image.height()) > dimension)
            abort();
    } else if (!std::holds_alternative<BrowserError>(result.failure())) {
        abort();
    }
    unlink(name.constData());
    return 0;
}
