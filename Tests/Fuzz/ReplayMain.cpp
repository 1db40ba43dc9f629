// Runs each named input once through the fuzzer entry point linked with it, as libFuzzer does
// with file arguments, and fails when one of them leaves the process holding more memory than
// any photo should cost (libFuzzer's own limit; a hang is left to the test's timeout).
#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    constexpr long maxResidentKiB = 1024L * 1024;
    for (int i = 1; i < argc; ++i) {
        std::ifstream in(argv[i], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "%s: cannot be read\n", argv[i]);
            return 1;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        std::printf("%s: peak resident %ld KiB\n", argv[i], usage.ru_maxrss);
        if (usage.ru_maxrss > maxResidentKiB)
            return 1;
    }
    return 0;
}
