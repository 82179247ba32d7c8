#include "stabilize/clip_files.h"

#include "motion/clip_metadata.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

std::string lowerExtension(const fs::path& path) {
    std::string extension = path.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

bool isOneOf(const std::string& text, std::initializer_list<const char*> list) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

bool isVideo(const fs::path& path) {
    return isOneOf(lowerExtension(path), {".mp4", ".m4v", ".mov", ".mkv", ".webm", ".avi", ".3gp",
                                          ".mts", ".m2ts", ".ts", ".mpg", ".mpeg", ".y4m"});
}

bool isEarlierResult(const fs::path& path) {
    const std::string stem = path.stem().string();
    const std::string end = "-stable";
    return stem.size() >= end.size() &&
           stem.compare(stem.size() - end.size(), end.size(), end) == 0;
}

std::vector<std::string> videosIn(const std::string& folder) {
    std::vector<std::string> videos;
    std::error_code error;
    for (fs::recursive_directory_iterator i(folder, error), end; !error && i != end;
         i.increment(error)) {
        const fs::path& path = i->path();
        if (isVideo(path) && !isEarlierResult(path) && fs::is_regular_file(path)) {
            videos.push_back(path.string());
        }
    }
    if (error) throw std::runtime_error(fmt::format("{}: {}", folder, error.message()));
    if (videos.empty()) throw std::runtime_error(folder + ": holds no videos");
    std::sort(videos.begin(), videos.end());
    return videos;
}

bool isFolder(const std::string& pattern) {
    return !pattern.empty() && (pattern.back() == '/' || fs::is_directory(pattern));
}

bool hasField(const std::string& pattern) { return pattern.find('{') != std::string::npos; }

std::string filledIn(const std::string& pattern, const fs::path& video) {
    const std::string extension = video.extension().string();
    const bool isKept = isOneOf(lowerExtension(video), {".mp4", ".mov", ".mkv"});
    const fs::path folder = fs::absolute(video).lexically_normal().parent_path();
    try {
        return fmt::format(fmt::runtime(pattern), fmt::arg("name", video.stem().string()),
                           fmt::arg("folder", folder.filename().string()),
                           fmt::arg("ext", extension.empty() ? std::string() : extension.substr(1)),
                           fmt::arg("same", isKept ? extension.substr(1) : "mp4"));
    } catch (const fmt::format_error&) {
        throw std::invalid_argument("'" + pattern + "': known are {name}, {folder} and {ext}");
    }
}

/// Whether the clip.json in the video's folder is this video's.
bool isMetadataOf(const fs::path& metadata, const fs::path& video) {
    if (!fs::exists(metadata)) return false;
    const std::optional<std::string> named = readClipMetadata(metadata.string()).video;
    if (named) return *named == video.filename();
    const auto files = fs::directory_iterator(metadata.parent_path());
    return std::count_if(begin(files), end(files), [](const fs::directory_entry& file) {
               return isVideo(file.path()) && !isEarlierResult(file.path());
           }) == 1;
}

}  // namespace

std::vector<std::string> findClips(const std::vector<std::string>& inputs) {
    std::vector<std::string> clips;
    for (const std::string& input : inputs) {
        if (fs::is_directory(input)) {
            const std::vector<std::string> videos = videosIn(input);
            clips.insert(clips.end(), videos.begin(), videos.end());
        } else {
            clips.push_back(input);
        }
    }
    return clips;
}

std::string nameFor(const std::string& pattern, const std::string& video,
                    const std::string& standard) {
    if (video == "-" && pattern.empty()) return "-";
    if (video == "-" && (hasField(pattern) || isFolder(pattern))) {
        throw std::invalid_argument("'" + pattern + "': standard input has no name");
    }
    const fs::path path(video);
    if (pattern.empty()) return (path.parent_path() / filledIn(standard, path)).string();
    if (hasField(pattern)) return filledIn(pattern, path);
    if (isFolder(pattern)) return (fs::path(pattern) / filledIn(standard, path)).string();
    return pattern;
}

bool namesEach(const std::string& pattern) {
    return pattern.empty() || hasField(pattern) || isFolder(pattern);
}

void findMotion(StabilizeOptions& options) {
    if (options.video == "-" || !options.clip.empty()) return;
    const fs::path video(options.video);
    const auto beside = [&](const char* extension) {
        return fs::path(video).replace_extension(extension);
    };
    const fs::path common = video.parent_path() / "clip.json";
    if (fs::exists(beside(".json"))) {
        options.clip = beside(".json").string();
    } else if (isMetadataOf(common, video)) {
        options.clip = common.string();
    }
    const bool isNamed = !options.clip.empty() && readClipMetadata(options.clip).motionLog;
    if (!options.motion.empty() || isNamed) return;
    for (const char* extension : {".gcsv", ".csv", ".txt", ".log"}) {
        if (!fs::exists(beside(extension))) continue;
        options.motion = beside(extension).string();
        return;
    }
}

}  // namespace framehold
