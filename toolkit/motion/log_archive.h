#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct zip;

namespace framehold {

/// File in an archive.
struct ArchiveEntry {
    std::string name;    // with its folders
    uint64_t size = 0;   // bytes, unpacked, as the archive says
    uint64_t index = 0;  // in the archive
};

/// Zip archive, as apps export sessions. Entries are unpacked into memory alone: their names are
/// nothing but texts. The sizes of all that are unpacked are together bounded by the archive's.
class LogArchive {
public:
    /// Throws FileError, also for an archive of very many files.
    explicit LogArchive(const std::string& path);

    /// name: for messages. content: borrowed.
    LogArchive(const std::string& name, std::string_view content);

    const std::string& path() const { return path_; }

    /// All files, without folders and what systems add, in the archive's order.
    const std::vector<ArchiveEntry>& entries() const { return entries_; }

    /// Path of an entry for messages: that of the archive and its own.
    std::string pathOf(const ArchiveEntry& entry) const { return path_ + '/' + entry.name; }

    /// True if an entry may be unpacked, after those that were.
    bool allows(const ArchiveEntry& entry) const { return entry.size <= bytesLeft_; }

    /// Content of an entry. Throws FileError for one that is not allowed, is not as the archive says,
    /// or cannot be unpacked, such as one with a password; Interrupted.
    std::string read(const ArchiveEntry& entry);

private:
    struct Close {
        void operator()(zip* archive) const;
    };

    void listEntries(uint64_t size);

    std::string path_;
    std::unique_ptr<zip, Close> archive_;
    std::vector<ArchiveEntry> entries_;
    uint64_t bytesLeft_ = 0;
};

/// True for a regular file that starts as a zip archive.
bool isArchive(const std::string& path);

/// Files in an archive that are logs of a gyroscope by their names; calibrated ones if there are any.
std::vector<ArchiveEntry> gyroscopeLogs(const LogArchive& archive);

/// Files in an archive that may be logs by their extensions, and name neither of the two sensors.
std::vector<ArchiveEntry> unnamedLogs(const LogArchive& archive);

}  // namespace framehold
