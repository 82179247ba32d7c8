#pragma once

#include <fstream>
#include <string>
#include <string_view>

namespace framehold {

/// A file that appears as a whole or not at all: it is written under a temporary name in its folder
/// and gets its own name, in place of a file of that name, when it is committed. Without a commit
/// nothing is left behind.
class OutputFile {
public:
    explicit OutputFile(const std::string& path) : path_(path), temporary_(path + ".part") {}
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The temporary name, for libraries that open files themselves.
    const std::string& temporary() const { return temporary_; }

    /// Stream to the temporary file, without any translation of line ends. Throws std::runtime_error
    /// with the file's name and the system's reason if the file cannot be opened.
    std::ostream& stream();

    /// Gives the file its name. Throws std::runtime_error with the file's name and the system's
    /// reason if that does not work, or if something could not be written to the stream.
    void commit();

private:
    std::string path_;
    std::string temporary_;
    std::ofstream stream_;
    bool isCommitted_ = false;
};

/// Writes a file as a whole. Throws std::runtime_error as OutputFile does.
void writeFile(const std::string& path, std::string_view bytes);

}  // namespace framehold
