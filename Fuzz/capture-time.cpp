// Hostile camera files through the capture-time reader: the bounded TIFF/EXIF walk for
// TIFF-based raws and the JPEG marker walk (exiv2 handles the rest and is fuzzed upstream).
#include <cstddef>
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

#include <QString>

#include "Library/CaptureTimeReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Only the two layouts read directly; anything else would go to exiv2.
    if (size < 4 || !((data[0] == 'I' && data[1] == 'I') || (data[0] == 'M' && data[1] == 'M') || (data[0] == 0xFF && data[1] == 0xD8)))
        return 0;
    static const int fd = memfd_create("capture-time", 0);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        return 0;
    static const QString path = QStringLiteral("/proc/self/fd/%1").arg(fd);
    (void)vantelor::CaptureTimeReader::captureTime(path);
    return 0;
}
