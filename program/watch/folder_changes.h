#pragma once

#include <chrono>
#include <string>

namespace framehold {

/// Waits until files in a folder, or below it, change: told by the system where it can, else by time.
class FolderChanges {
public:
    explicit FolderChanges(std::string folder);
    ~FolderChanges();
    FolderChanges(const FolderChanges&) = delete;
    FolderChanges& operator=(const FolderChanges&) = delete;

    /// True if the system tells of changes; not on file systems of a network, which others change too.
    bool isTold() const { return descriptor_ >= 0; }

    /// Returns when something has changed, after `longest` at the latest, or when the program is
    /// interrupted.
    void wait(std::chrono::milliseconds longest);

private:
    void watchFolders();

    std::string folder_;
    int descriptor_ = -1;  // of inotify
};

}  // namespace framehold
