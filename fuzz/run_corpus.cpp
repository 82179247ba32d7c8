// Runs a fuzz target over files and folders of files: what takes the fuzzer's place in the builds
// that have none.
#include "draw.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

void runFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) return {path};
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const std::filesystem::path& file : filesIn(argv[i])) {
            std::printf("%s\n", file.c_str());
            std::fflush(stdout);
            runFile(file);
            ++count;
        }
    }
    std::printf("%zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
