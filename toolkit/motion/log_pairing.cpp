#include "motion/log_pairing.h"

#include "common/interruption.h"
#include "common/text_fields.h"
#include "motion/log_archive.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kName = "{name}";

/// The first eight digits in a row that a name holds; empty if there are none.
std::string dateIn(std::string_view name) {
    constexpr size_t kDigits = 8;
    size_t digits = 0;
    for (size_t i = 0; i < name.size(); ++i) {
        digits = name[i] >= '0' && name[i] <= '9' ? digits + 1 : 0;
        if (digits == kDigits) return std::string(name.substr(i + 1 - kDigits, kDigits));
    }
    return {};
}

std::string timeIn(const std::string& name) {
    const size_t line = name.find('_');
    return line == std::string::npos ? "" : name.substr(line + 1);
}

/// A pattern with the parts of a video's name in place of its fields; empty if one is missing.
std::string filledIn(std::string_view pattern, const std::string& name) {
    const std::string date = dateIn(name);
    const std::string day =
        date.empty() ? "" : date.substr(0, 4) + "-" + date.substr(4, 2) + "-" + date.substr(6);
    const std::pair<std::string_view, std::string> kFields[] = {
        {kName, name}, {"{time}", timeIn(name)}, {"{date}", date}, {"{day}", day}};
    std::string text(pattern);
    for (const auto& [field, value] : kFields) {
        const size_t at = text.find(field);
        if (at == std::string::npos) continue;
        if (value.empty()) return {};
        text.replace(at, field.size(), value);
    }
    return text;
}

bool isVideoName(const fs::path& path) {
    const std::string extension = lowerCase(path.extension().string());
    return extension == ".mp4" || extension == ".mov" || extension == ".m4v" ||
           extension == ".3gp" || extension == ".mkv";
}

/// The files of a folder by their names in lower case; none of a folder that cannot be read.
class FolderFiles {
public:
    explicit FolderFiles(const fs::path& folder) {
        constexpr size_t kMost = 100000;
        constexpr size_t kMostArchives = 16;
        std::error_code error;
        for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
            throwIfInterrupted();
            if (files_.size() == kMost) break;
            std::error_code ignored;
            if (!i->is_regular_file(ignored)) continue;
            const std::string name = i->path().filename().string();
            const bool isResult = name.find("-stable.") != std::string::npos;
            if (isVideoName(i->path()) && !isResult) ++videos_;
            const bool isZip = lowerCase(i->path().extension().string()) == ".zip";
            if (isZip && archives_.size() < kMostArchives) archives_.push_back(i->path().string());
            files_.emplace(lowerCase(name), i->path().string());
        }
        std::sort(archives_.begin(), archives_.end());
    }

    /// Path of a file; empty if it is not there.
    std::string find(std::string_view name) const {
        const auto found = files_.find(lowerCase(name));
        return found == files_.end() ? "" : found->second;
    }

    size_t videos() const { return videos_; }

    /// Paths of zip archives, a few at most.
    const std::vector<std::string>& archives() const { return archives_; }

private:
    std::map<std::string, std::string> files_;
    std::vector<std::string> archives_;
    size_t videos_ = 0;
};

/// Folders in which a video's logs may be.
struct LogFolder {
    std::string name;  // empty: the video's own
    FolderFiles files;
};

std::vector<LogFolder> foldersOf(const fs::path& video) {
    const fs::path beside = video.has_parent_path() ? video.parent_path() : fs::path(".");
    std::vector<LogFolder> folders;
    for (const std::string_view pattern : kLogFolders) {
        const std::string name = filledIn(pattern, video.stem().string());
        if (name.empty() != pattern.empty() || name == "." || name == "..") continue;
        const bool isKnown =
            std::any_of(folders.begin(), folders.end(),
                        [&name](const LogFolder& folder) { return folder.name == name; });
        if (!isKnown) folders.push_back({name, FolderFiles(name.empty() ? beside : beside / name)});
    }
    return folders;
}

/// Archives that are looked at after other files, that of the video's name first.
enum class Turn { kFiles, kOwnArchive, kAnyArchive };

Turn turnOf(const LogLayout& layout) {
    if (layout.motion == "*.zip") return Turn::kAnyArchive;
    return layout.motion == "{name}.zip" ? Turn::kOwnArchive : Turn::kFiles;
}

bool mayHoldLog(const std::string& path, Turn turn) {
    try {
        if (!isArchive(path)) return false;
        const LogArchive archive(path);
        const bool isOwn = turn == Turn::kOwnArchive && !unnamedLogs(archive).empty();
        return isOwn || !gyroscopeLogs(archive).empty();
    } catch (const FileError&) {
        // Deliberate: a broken archive of the video's name is an error, another one need not be its.
        return turn == Turn::kOwnArchive;
    }
}

std::vector<std::string> logsOf(const LogLayout& layout, const FolderFiles& files,
                                const std::string& name) {
    const Turn turn = turnOf(layout);
    std::vector<std::string> logs;
    if (turn == Turn::kAnyArchive) {
        logs = files.archives();
    } else if (const std::string log = files.find(filledIn(layout.motion, name)); !log.empty()) {
        logs = {log};
    }
    if (turn == Turn::kFiles) return logs;
    logs.erase(std::remove_if(logs.begin(), logs.end(),
                              [turn](const std::string& log) { return !mayHoldLog(log, turn); }),
               logs.end());
    return logs;
}

std::vector<PairedLogs> candidates(const std::vector<LogFolder>& folders, const std::string& name,
                                   Turn turn) {
    std::vector<PairedLogs> found;
    for (const LogFolder& folder : folders) {
        for (const LogLayout& layout : kLogLayouts) {
            if (turnOf(layout) != turn) continue;
            if (!layout.video.empty() && lowerCase(name) != layout.video) continue;
            const bool isNamed = layout.motion.find(kName) != std::string_view::npos;
            // A folder of the video's own name is that video's.
            const size_t mostVideos = folder.name.empty() || folder.name == name ? 1 : 0;
            if (!isNamed && folder.files.videos() > mostVideos) continue;
            for (const std::string& motion : logsOf(layout, folder.files, name)) {
                found.push_back({motion, folder.files.find(filledIn(layout.frames, name)),
                                 folder.files.find(filledIn(layout.metadata, name)),
                                 folder.name.empty()
                                     ? std::string(layout.motion)
                                     : folder.name + "/" + std::string(layout.motion)});
            }
        }
    }
    return found;
}

}  // namespace

PairedLogs findPairedLogs(const std::string& video) {
    const std::string name = fs::path(video).stem().string();
    const std::vector<LogFolder> folders = foldersOf(video);
    std::vector<PairedLogs> found;
    for (const Turn turn : {Turn::kFiles, Turn::kOwnArchive, Turn::kAnyArchive}) {
        if (found.empty()) found = candidates(folders, name, turn);
    }
    if (found.empty()) return {};
    if (found.size() > 1) {
        std::vector<std::string> candidates;
        for (const PairedLogs& logs : found) candidates.push_back(escaped(logs.motion));
        throw FileError(
            video, 0,
            fmt::format("several logs could be this video's: {}; name one as the motion log",
                        fmt::join(candidates, ", ")));
    }
    return found.front();
}

}  // namespace framehold
