// Runs a fuzz target on kept inputs, without a fuzzer: the given files, and all files of the given folders.
// Each name is printed before its input runs, so that a crash can be told to its file. Each input also runs
// cut off at every length, and with each of its bytes changed; a long one in MOST_PLACES of them.

#include <algorithm>
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

constexpr size_t MOST_PLACES = 600;

/** In memory of exactly the input's size, so that a sanitizer notices even one byte read past its end. */
void run(const char* bytes, size_t size) {
    const std::vector<uint8_t> input(bytes, bytes + size);
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

void replay(const fs::path& path) {
    // Not on the standard output, which targets may redirect.
    std::fprintf(stderr, "%s\n", path.c_str());
    std::ifstream file(path, std::ios::binary);
    std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    run(bytes.data(), bytes.size());
    for (size_t at = 0; at < bytes.size(); at += bytes.size() / MOST_PLACES + 1) {
        run(bytes.data(), at);
        const char kept = bytes[at];
        for (const int value : {0, 1, 6, 43, 60, 127, 255}) {
            bytes[at] = static_cast<char>(value);
            run(bytes.data(), bytes.size());
        }
        bytes[at] = kept;
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::set<fs::path> inputs;
    for (const char* const* arg = argv + 1; arg != argv + argc; ++arg) {
        const fs::path path = fs::absolute(*arg);  // targets may change the working directory
        if (fs::is_directory(path))
            inputs.insert(fs::directory_iterator(path), {});
        else
            inputs.insert(path);
    }
    run("", 0);
    std::for_each(inputs.begin(), inputs.end(), replay);
    if (inputs.empty()) std::fprintf(stderr, "no inputs\n");
    return inputs.empty();
}
