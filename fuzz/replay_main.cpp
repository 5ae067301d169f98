// Stands in for libFuzzer in ordinary builds: runs every file of the given folders (or the given
// files) through the fuzz target once, in name order. A fault shows as a crash or a failed check of
// the target itself.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (fs::is_directory(argv[i], error)) {
            for (fs::recursive_directory_iterator it(argv[i], error), end; !error && it != end;
                 it.increment(error)) {
                if (it->is_regular_file(error)) {
                    inputs.push_back(it->path());
                }
            }
        } else {
            inputs.emplace_back(argv[i]);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
            return 1;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    // The empty input is every target's first one.
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(""), 0);
    std::printf("%zu seeds replayed\n", inputs.size());
    return 0;
}
