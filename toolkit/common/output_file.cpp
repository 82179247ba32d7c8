#include "common/output_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace framehold {

OutputFile::~OutputFile() {
    std::error_code ignored;
    if (!committed_) std::filesystem::remove(temporary_, ignored);
}

void OutputFile::commit() {
    std::filesystem::rename(temporary_, path_);
    committed_ = true;
}

void writeWholeFile(const std::string& path, std::string_view bytes) {
    OutputFile file(path);
    std::ofstream out(file.temporary(), std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) throw std::runtime_error(path + ": cannot be written: " + std::strerror(errno));
    try {
        file.commit();
    } catch (const std::filesystem::filesystem_error& error) {
        throw std::runtime_error(path + ": cannot be written: " + error.code().message());
    }
}

}  // namespace framehold
