#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace framehold {

/// Name of a file to write, "-" for standard output, and what becomes of a file that has the name already.
struct OutputName {
    std::string path;
    bool replaces = false;  // else such a file is an error
};

/// File that a name leads to: what has the same identity is the same file, whatever its names.
struct FileIdentity {
    uint64_t device = 0;  // device and inode of a file that is there, after all links; else 0
    uint64_t inode = 0;
    std::string path;  // of a file that is not there, absolute and without links; else empty

    bool operator==(const FileIdentity& other) const;
};

FileIdentity identityOf(const std::string& path);

/// True for devices, pipes and the like: what is written to them replaces nothing.
bool isSpecialFile(const std::string& path);

/// Name that is left when the symbolic links at the end of `path` are followed. The file need not be
/// there. Throws std::runtime_error where links go in a circle.
std::string followLinks(const std::string& path);

/// Throws std::runtime_error that names `--overwrite` if a file is there that may not be replaced.
/// others: number of further files that are in the way, for the message.
void refuseExisting(const OutputName& name, size_t others = 0);

/// A file that appears as a whole or not at all: it is written under a temporary name in its folder
/// and gets its own name when it is committed. Without a commit nothing is left behind. Of several
/// writers of one name one succeeds, the others fail. A file that is replaced keeps its mode, and a
/// symbolic link stays one: the file that it leads to is written. Pipes, character devices and
/// standard output are written in place; other special files are refused.
class OutputFile {
public:
    /// Makes the temporary file. Throws std::runtime_error with the file's name and the reason.
    explicit OutputFile(const OutputName& name);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// The temporary name, for libraries that open files themselves.
    const std::string& temporary() const { return temporary_; }

    /// Stream to the temporary file, without any translation of line ends. Throws std::runtime_error
    /// with the file's name and the system's reason if the file cannot be opened.
    std::ostream& stream();

    /// Flushes the file to the disk and gives it its name. Throws std::runtime_error with the file's
    /// name and the system's reason if that does not work, if something could not be written to the
    /// stream, or if another program has written the file in the meantime.
    void commit();

private:
    class Buffer;

    void makeTemporary();
    void takeName();

    std::string path_;       // as it was given, for messages
    std::string target_;     // without links; empty if it is written in place
    std::string temporary_;  // the file itself if it is written in place
    bool replaces_ = false;  // a file that was there at the start
    FileIdentity replaced_;  // that file
    uint32_t mode_ = 0;      // its mode
    int descriptor_ = -1;    // of the temporary file; -1: not open
    std::unique_ptr<Buffer> buffer_;
    std::ostream stream_{nullptr};
    bool isCommitted_ = false;
};

/// Writes a file as a whole. Throws std::runtime_error as OutputFile does.
void writeFile(const OutputName& name, std::string_view bytes);

}  // namespace framehold
