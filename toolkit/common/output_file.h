#pragma once

#include <string>
#include <string_view>

namespace framehold {

/// A file that is written under a temporary name in its folder and appears under its own name only
/// when it is complete. If it is not committed, nothing is left behind.
class OutputFile {
public:
    explicit OutputFile(const std::string& path) : path_(path), temporary_(path + ".part") {}
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& path() const { return path_; }
    const std::string& temporary() const { return temporary_; }

    /// Gives the file its name. Throws std::filesystem::filesystem_error.
    void commit();

private:
    std::string path_;
    std::string temporary_;
    bool committed_ = false;
};

/// Writes a file as a whole: under its name stands all of it or what stood there before. Throws
/// std::runtime_error with the file's name and the cause.
void writeWholeFile(const std::string& path, std::string_view bytes);

}  // namespace framehold
