#include "stabilize/batch_plan.h"

#include "common/text_fields.h"
#include "report/report_page.h"

#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

namespace fs = std::filesystem;

namespace {

/// An option that names a file to write for each clip.
struct OutputOption {
    const char* name;
    std::string StabilizeOptions::*value;
    const char* standard;  // pattern of the file's name where a folder is given
    bool isAlwaysWritten;  // beside the video, if the option is not given
};

constexpr OutputOption kOutputs[] = {
    {"--output", &StabilizeOptions::output, kStablePattern, true},
    {"--export-path", &StabilizeOptions::exportPath, "{name}-path.csv", false},
    {"--report", &StabilizeOptions::report, "{name}-report.html", false},
    {"--save-run", &StabilizeOptions::saveRun, "{name}-run.json", false},
};

bool isFolder(const std::string& pattern) {
    return !pattern.empty() && (pattern.back() == '/' || fs::is_directory(pattern));
}

bool hasField(const std::string& pattern) { return pattern.find('{') != std::string::npos; }

std::string filledIn(const std::string& pattern, const fs::path& video) {
    const std::string extension = video.extension().string();
    const std::string lower = lowerCase(extension);
    const bool isKept = lower == ".mp4" || lower == ".mov" || lower == ".mkv";
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

/// True if a pattern gives videos of different names different results.
bool namesEach(const std::string& pattern) {
    return pattern.empty() || hasField(pattern) || isFolder(pattern);
}

[[noreturn]] void refuse(const std::string& option, const std::string& why) {
    throw CLI::ValidationError(option, why);
}

StabilizeOptions optionsFor(const std::string& video, const StabilizeOptions& each) {
    StabilizeOptions clip = each;
    clip.files.video = video;
    for (const OutputOption& output : kOutputs) {
        std::string& value = clip.*output.value;
        if (value.empty() && !output.isAlwaysWritten) continue;
        try {
            value = nameFor(value, video, output.standard);
        } catch (const std::invalid_argument& error) {
            refuse(output.name, error.what());
        }
    }
    return clip;
}

/// Options that mean one clip are wrong with several.
void checkForSeveral(const StabilizeOptions& each) {
    for (const auto& [option, value] : {std::pair{"--motion", each.files.motion},
                                        {"--clip", each.files.metadata},
                                        {"--record-session", each.session}}) {
        if (!value.empty()) refuse(option, "goes with one video only");
    }
    for (const OutputOption& output : kOutputs) {
        if (namesEach(each.*output.value)) continue;
        refuse(output.name, "several videos need a folder or a pattern such as out/{name}.mp4");
    }
}

std::string canonical(const std::string& path) {
    std::error_code ignored;
    const fs::path resolved = fs::weakly_canonical(path, ignored);
    return ignored ? path : resolved.string();
}

/// No file is written twice, and none that is read.
void checkFiles(const std::vector<StabilizeOptions>& clips) {
    std::set<std::string> inputs;
    for (const StabilizeOptions& clip : clips) inputs.insert(canonical(clip.files.video));
    std::map<std::string, std::string> users;
    for (const StabilizeOptions& clip : clips) {
        for (const OutputOption& output : kOutputs) {
            const std::string& name = clip.*output.value;
            if (name.empty()) continue;
            if (name != "-" && inputs.count(canonical(name)) > 0) {
                throw std::runtime_error(name + ": is the input itself");
            }
            const auto [user, isNew] = users.emplace(canonical(name), clip.files.video);
            if (isNew) continue;
            refuse(output.name, fmt::format("{} would be written for {} and for {}", name,
                                            user->second, clip.files.video));
        }
    }
}

/// A report reads both videos again.
void checkReport(const StabilizeOptions& clip) {
    if (clip.report.empty()) return;
    requireReports();
    if (clip.sideBySide) refuse("--report", "does not go with --side-by-side");
    if (clip.output == "-" || clip.files.video == "-") {
        refuse("--report", "needs files that can be read again, not standard input or output");
    }
}

}  // namespace

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

std::vector<StabilizeOptions> planBatch(const BatchOptions& batch) {
    std::vector<StabilizeOptions> clips;
    for (const std::string& video : findClips(batch.inputs)) {
        clips.push_back(optionsFor(video, batch.each));
    }
    if (clips.size() > 1) checkForSeveral(batch.each);
    checkFiles(clips);
    for (const StabilizeOptions& clip : clips) checkReport(clip);
    if (batch.json && clips.front().output == "-") {
        refuse("--json", "the video takes up standard output");
    }
    return clips;
}

void makeFolders(const BatchOptions& batch, const std::vector<StabilizeOptions>& clips) {
    for (const OutputOption& output : kOutputs) {
        const std::string& pattern = batch.each.*output.value;
        if (pattern.empty() || !namesEach(pattern)) continue;
        for (const StabilizeOptions& clip : clips) {
            const fs::path folder = fs::path(clip.*output.value).parent_path();
            if (!folder.empty()) fs::create_directories(folder);
        }
    }
}

}  // namespace framehold
