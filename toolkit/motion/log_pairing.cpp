#include "motion/log_pairing.h"

#include "common/interruption.h"
#include "common/text_fields.h"

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
        std::error_code error;
        for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
            throwIfInterrupted();
            if (files_.size() == kMost) break;
            std::error_code ignored;
            if (!i->is_regular_file(ignored)) continue;
            const std::string name = i->path().filename().string();
            const bool isResult = name.find("-stable.") != std::string::npos;
            if (isVideoName(i->path()) && !isResult) ++videos_;
            files_.emplace(lowerCase(name), i->path().string());
        }
    }

    /// Path of a file; empty if it is not there.
    std::string find(std::string_view name) const {
        const auto found = files_.find(lowerCase(name));
        return found == files_.end() ? "" : found->second;
    }

    size_t videos() const { return videos_; }

private:
    std::map<std::string, std::string> files_;
    size_t videos_ = 0;
};

}  // namespace

PairedLogs findPairedLogs(const std::string& video) {
    const fs::path path(video);
    const std::string name = path.stem().string();
    const fs::path beside = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::vector<PairedLogs> found;
    std::vector<std::string> folders;
    for (const std::string_view folder : kLogFolders) {
        const std::string filled = filledIn(folder, name);
        if (filled.empty() != folder.empty() || filled == "." || filled == "..") continue;
        if (std::find(folders.begin(), folders.end(), filled) != folders.end()) continue;
        folders.push_back(filled);
        const FolderFiles files(filled.empty() ? beside : beside / filled);
        for (const LogLayout& layout : kLogLayouts) {
            if (!layout.video.empty() && lowerCase(name) != layout.video) continue;
            const bool isNamed = layout.motion.find(kName) != std::string_view::npos;
            // A folder of the video's own name is that video's.
            const size_t mostVideos = filled.empty() ? 1 : filled == name ? 1 : 0;
            if (!isNamed && files.videos() > mostVideos) continue;
            const std::string motion = files.find(filledIn(layout.motion, name));
            if (motion.empty()) continue;
            found.push_back({motion, files.find(filledIn(layout.frames, name))});
        }
    }
    if (found.empty()) return {};
    if (found.size() > 1) {
        std::vector<std::string> candidates;
        for (const PairedLogs& logs : found) candidates.push_back(escaped(logs.motion));
        throw FileError(
            video, 0,
            fmt::format("several logs could be this video's: {}; give one with --motion",
                        fmt::join(candidates, ", ")));
    }
    return found.front();
}

}  // namespace framehold
