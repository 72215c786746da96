// Runs a fuzz target over the files of the given folders, once each: its corpus as a regression
// test for builds without the fuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace {

size_t ReplayFolder(std::filesystem::path const& folder)
{
    size_t count = 0;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<char> const bytes(std::istreambuf_iterator<char>(file), {});
        // Printed before the run: a crash leaves no other trace of its input.
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(bytes.data()), bytes.size());
        ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (ReplayFolder(argv[i]) == 0) {
            std::fprintf(stderr, "no inputs in %s\n", argv[i]);
            return 1;
        }
    }
    return argc > 1 ? 0 : 1;
}
