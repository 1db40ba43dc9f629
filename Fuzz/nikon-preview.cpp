// libFuzzer target: the NEF preview locator over arbitrary bytes. Any input must give a preview
// that lies inside the file and starts with 0xFF 0xD8, or nothing; never a crash, a hang or a
// read beyond its limits.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "Previews/NikonPreview.h"
#include "Support/FileReader.h"

using namespace vantelor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int fd = memfd_create("nef", MFD_CLOEXEC);
    if (fd < 0)
        abort();
    if (size > 0 && write(fd, data, size) != ssize_t(size))
        abort();
    const QString path = QStringLiteral("/proc/self/fd/%1").arg(fd);
    if (auto file = FileReader::open(path)) {
        const auto found = NikonPreview::locate(*file);
        if (found) {
            if (found->offset < 0 || found->length < 1 || found->offset + found->length > qint64(size)
                || found->bytes.size() != found->length || uchar(found->bytes[0]) != 0xFF || uchar(found->bytes[1]) != 0xD8)
                abort();
            if (found->length > NikonPreview::maxRead)
                abort();
        }
        // Header, 32 IFDs of at most 512 entries with their SubIFD arrays, and the preview.
        const qint64 structure = 8 + 32 * (2 + 512 * 12 + 4 + 32 * 4);
        if (file->bytesRead() > structure + (found ? found->length : 0))
            abort();
    }
    close(fd);
    return 0;
}
