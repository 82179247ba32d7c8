// Runs a fuzz target over files and folders of files: what takes the fuzzer's place in the builds
// that have none.
#include "draw.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

/// Runs a file, or those in a folder. Returns how many that were.
int run(const std::filesystem::path& path) {
    int count = 0;
    if (std::filesystem::is_directory(path)) {
        for (const auto& entry : std::filesystem::directory_iterator(path)) count += run(entry);
        return count;
    }
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) count += run(argv[i]);
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
