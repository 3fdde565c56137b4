// Runs a fuzz target over kept inputs, without a fuzzer: every file of the folders given, and the files
// given. Each name is printed before its input runs, so that a crash names its file.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

void replay(const fs::path& path) {
    // On the error stream: targets may give the standard output away.
    std::fprintf(stderr, "%s\n", path.c_str());
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    // Memory of exactly the input's size: a sanitizer sees the first byte that is read behind it.
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::set<fs::path> inputs;
    for (const char* const* arg = argv + 1; arg != argv + argc; ++arg) {
        const fs::path path = fs::absolute(*arg);  // targets may go to a folder of their own
        if (!fs::is_directory(path)) {
            inputs.insert(path);
            continue;
        }
        for (const auto& entry : fs::directory_iterator(path))
            inputs.insert(entry.path());
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs\n");
        return 1;
    }
    LLVMFuzzerTestOneInput(nullptr, 0);
    for (const fs::path& path : inputs)
        replay(path);
    return 0;
}
