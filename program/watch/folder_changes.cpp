#include "watch/folder_changes.h"

#include "common/interruption.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <utility>

#include <poll.h>
#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace framehold {

namespace {

/// True for file systems whose changes by other computers the system does not hear of.
bool isOnNetwork(const std::string& folder) {
    constexpr uint32_t kNfs = 0x6969, kSmb = 0x517B, kCifs = 0xFF534D42, kSmb2 = 0xFE534D42,
                       kFuse = 0x65735546, kPlan9 = 0x01021997;
    struct statfs system {};
    if (statfs(folder.c_str(), &system) != 0) return false;
    const auto type = static_cast<uint32_t>(system.f_type);
    return type == kNfs || type == kSmb || type == kCifs || type == kSmb2 || type == kFuse ||
           type == kPlan9;
}

}  // namespace

FolderChanges::FolderChanges(std::string folder) : folder_(std::move(folder)) {
    if (isOnNetwork(folder_)) return;
    descriptor_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (descriptor_ >= 0) watchFolders();
}

FolderChanges::~FolderChanges() {
    if (descriptor_ >= 0) close(descriptor_);
}

/// Watches every folder that is there; it does not matter if one is watched already.
void FolderChanges::watchFolders() {
    namespace fs = std::filesystem;
    constexpr uint32_t kEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_ATTRIB | IN_ONLYDIR;
    bool isWatched = inotify_add_watch(descriptor_, folder_.c_str(), kEvents) >= 0;
    std::error_code error;
    for (fs::recursive_directory_iterator i(folder_, error), end; !error && i != end;
         i.increment(error)) {
        std::error_code ignored;
        if (!i->is_directory(ignored)) continue;
        isWatched = isWatched && inotify_add_watch(descriptor_, i->path().c_str(), kEvents) >= 0;
    }
    if (isWatched) return;
    // The user may have no watches left; time goes on all the same.
    close(std::exchange(descriptor_, -1));
}

void FolderChanges::wait(std::chrono::milliseconds longest) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + longest;
    // A signal may come just before the system is asked to wait.
    constexpr std::chrono::milliseconds kStep{500};
    for (auto now = Clock::now(); now < end && !isInterrupted(); now = Clock::now()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
        pollfd events{descriptor_, POLLIN, 0};
        const int count =
            poll(&events, isTold() ? 1 : 0, static_cast<int>(std::min(left, kStep).count()));
        if (count <= 0) continue;
        alignas(inotify_event) char buffer[4096];
        while (read(descriptor_, buffer, sizeof buffer) > 0) {
        }
        return watchFolders();
    }
}

}  // namespace framehold
