#include "common/output_file.h"

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace framehold {

namespace {

[[noreturn]] void fail(const std::string& path, const std::error_code& reason) {
    throw std::runtime_error(path + ": cannot be written: " + reason.message());
}

std::error_code systemError() { return {errno, std::generic_category()}; }

}  // namespace

OutputFile::~OutputFile() {
    std::error_code ignored;
    if (!isCommitted_) std::filesystem::remove(temporary_, ignored);
}

std::ostream& OutputFile::stream() {
    if (!stream_.is_open()) stream_.open(temporary_, std::ios::binary);
    if (!stream_.is_open()) fail(path_, systemError());
    return stream_;
}

void OutputFile::commit() {
    if (stream_.is_open()) {
        stream_.close();
        if (!stream_) fail(path_, systemError());
    }
    std::error_code error;
    std::filesystem::rename(temporary_, path_, error);
    if (error) fail(path_, error);
    isCommitted_ = true;
}

void writeFile(const std::string& path, std::string_view bytes) {
    OutputFile file(path);
    file.stream() << bytes;
    file.commit();
}

}  // namespace framehold
