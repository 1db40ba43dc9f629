// Runs each named input once through the fuzzer entry point linked with it, as libFuzzer does
// with file arguments, and fails when one of them leaves the process holding more memory than
// any photo should cost (libFuzzer's own limit; a hang is left to the test's timeout).
#include <sys/resource.h>

#include <cstdint>
#include <cstdio>

#include <QFile>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        QFile in(QFile::decodeName(argv[i]));
        if (!in.open(QIODevice::ReadOnly))
            return std::fprintf(stderr, "%s: cannot be read\n", argv[i]), 1;
        const QByteArray bytes = in.readAll();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size()));
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        std::printf("%s: peak resident %ld KiB\n", argv[i], usage.ru_maxrss);
        if (usage.ru_maxrss > 1024L * 1024)
            return 1;
    }
    return 0;
}
