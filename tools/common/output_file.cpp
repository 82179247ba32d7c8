#include "common/output_file.h"

#include <filesystem>

namespace framehold {

OutputFile::~OutputFile() {
    std::error_code ignored;
    if (!committed_) std::filesystem::remove(temporary_, ignored);
}

void OutputFile::commit() {
    std::filesystem::rename(temporary_, path_);
    committed_ = true;
}

}  // namespace framehold
