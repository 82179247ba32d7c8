#include "stabilize/batch_plan.h"

#include "cli/run_files.h"
#include "common/image_sequence.h"
#include "common/output_file.h"
#include "common/text_fields.h"
#include "media/results.h"
#include "motion/motion_log_reader.h"
#include "report/report_page.h"
#include "stabilize/clip_output.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <utility>

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
        return fmt::format(
            fmt::runtime(pattern),
            fmt::arg("name", fs::path(besideVideo(video.string(), "")).filename().string()),
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

/// All files that a clip's run writes, each with its option.
std::vector<std::pair<const char*, std::string>> filesWritten(const StabilizeOptions& clip) {
    std::vector<std::pair<const char*, std::string>> files;
    for (const OutputOption& output : kOutputs) files.emplace_back(output.name, clip.*output.value);
    files.emplace_back("--record-session", clip.session);
    const auto isNone = [](const auto& file) { return file.second.empty(); };
    files.erase(std::remove_if(files.begin(), files.end(), isNone), files.end());
    return files;
}

/// All files that a clip's run reads. Only files that may be replaced can be a log's other half.
std::vector<std::string> filesReadBy(const PlannedClip& clip) {
    std::vector<std::string> files = filesRead(clip.options.files, clip.found);
    if (!clip.options.overwrites) return files;
    const std::string& motion = clip.found.files.motion;
    try {
        if (motion.empty() || isSpecialFile(motion) || isVideoFile(motion)) return files;
        const std::vector<std::string> logs = readMotionLog(motion).files;
        files.insert(files.end(), logs.begin(), logs.end());
    } catch (const std::exception&) {
        // Deliberate: the clip's own run says what is wrong with its log.
    }
    return files;
}

/// True if all results of a clip are there. Throws std::runtime_error for what an interrupted run
/// has left, or something else than a result.
bool isDone(const StabilizeOptions& clip) {
    const auto isThere = [](const auto& file) { return fs::exists(file.second); };
    const auto files = filesWritten(clip);
    const auto there = std::count_if(files.begin(), files.end(), isThere);
    if (there == 0) return false;
    const auto missing = std::find_if_not(files.begin(), files.end(), isThere);
    if (missing != files.end()) {
        throw std::runtime_error(fmt::format(
            "{}: is there, but not {}; remove it, or let --overwrite replace it",
            std::find_if(files.begin(), files.end(), isThere)->second, missing->second));
    }
    if (isCompleteVideo(clip.output)) return true;
    throw std::runtime_error(
        clip.output +
        ": is there, but is no complete video; remove it, or let --overwrite replace it");
}

/// Reads the clip's metadata, which name other files.
void findFiles(PlannedClip& clip) {
    try {
        clip.found = findClipFiles(clip.options.files);
    } catch (const std::exception&) {
        clip.found = {clip.options.files, {}};
        clip.error = std::current_exception();
    }
}

/// No file is written twice, and none that is read.
void checkFiles(const std::vector<PlannedClip>& clips, const BatchOptions& batch) {
    RunFiles files;
    files.addOutput("--save-settings", batch.saveSettings, "the settings");
    for (const PlannedClip& clip : clips) {
        for (const std::string& file : filesReadBy(clip)) files.addInput(file);
        if (clip.isSkipped) continue;
        for (const auto& [option, path] : filesWritten(clip.options)) {
            files.addOutput(option, path, clip.options.files.video);
        }
    }
    files.check(batch.each.overwrites, batch.each.quiet);
}

/// Name of an option that was given and that only the live engine has; null if none was.
const char* liveOptionOf(const StabilizeOptions& clip) {
    if (!clip.session.empty()) return "--record-session";
    if (clip.clip.delay) return "--delay";
    if (clip.clip.sensorMask) return "--sensor-mask";
    if (!clip.clip.gravity.empty()) return "--gravity";
    if (clip.clip.gravityRate > 0.0) return "--gravity-rate";
    return nullptr;
}

/// Name of an option that was given and that only the offline engine has; null if none was.
const char* offlineOptionOf(const StabilizeOptions& clip) {
    if (clip.files.ignoresMotion) return "--no-motion";
    if (clip.clip.horizon > 0.0) return "--horizon";
    if (clip.clip.crop == kAutoCrop) return "--crop auto";
    if (clip.clip.zoom == "dynamic") return "--zoom dynamic";
    return nullptr;
}

Engine engineFor(const StabilizeOptions& clip) {
    const char* liveOption = liveOptionOf(clip);
    const bool isPipe = clip.files.video == "-" || isSpecialFile(clip.files.video);
    const bool wantsLive = clip.engineName == nameOf(Engine::kLive);
    const char* offlineOption = offlineOptionOf(clip);
    const bool wantsOffline =
        clip.engineName == nameOf(Engine::kOffline) || offlineOption != nullptr;
    if (!wantsOffline) {
        return wantsLive || liveOption != nullptr || isPipe ? Engine::kLive : Engine::kOffline;
    }
    const std::string option = offlineOption != nullptr ? offlineOption : "--engine offline";
    if (wantsLive) refuse(option, "goes with --engine offline only");
    if (liveOption != nullptr) refuse(liveOption, "does not go with " + option);
    if (isPipe) refuse(option, "needs a clip that can be read twice, not a pipe");
    return Engine::kOffline;
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

/// Options that the encoder does not take are wrong usage, whatever the clip.
void checkCoding(const StabilizeOptions& clip) {
    std::vector<const char*> given;
    if (!clip.encoder.empty()) given.push_back("--encoder");
    if (!clip.pixelFormat.empty()) given.push_back("--pixel-format");
    if (clip.quality) given.push_back("--quality");
    if (!clip.preset.empty()) given.push_back("--preset");
    if (given.empty()) return;
    try {
        checkEncoding(clip);
    } catch (const MediaError& error) {
        std::string text = error.what();
        if (const size_t option = text.find(": --"); option != std::string::npos) {
            text.erase(0, option + 2);
            throw CLI::ValidationError(text);
        }
        refuse(fmt::format("{}", fmt::join(given, ", ")), text);
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

void requirePatterns(const StabilizeOptions& each) {
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

std::vector<PlannedClip> planBatch(const BatchOptions& batch) {
    std::vector<PlannedClip> clips;
    for (const std::string& video : findClips(batch.inputs)) {
        clips.push_back({optionsFor(video, batch.each), {}, {}, false});
    }
    if (clips.size() > 1) requirePatterns(batch.each);
    for (PlannedClip& clip : clips) {
        clip.options.clip.engine = engineFor(clip.options);
        checkReport(clip.options);
    }
    if (batch.json && clips.front().options.output == "-") {
        refuse("--json", "the video takes up standard output");
    }
    std::set<std::string> containers;
    for (const PlannedClip& clip : clips) {
        const fs::path extension = fs::path(clip.options.output).extension();
        if (containers.insert(extension).second) checkCoding(clip.options);
    }
    for (PlannedClip& clip : clips) {
        clip.isSkipped = batch.skipsExisting && isDone(clip.options);
        findFiles(clip);
    }
    checkFiles(clips, batch);
    return clips;
}

void makeFolders(const BatchOptions& batch, const std::vector<PlannedClip>& clips) {
    for (const OutputOption& output : kOutputs) {
        const std::string& pattern = batch.each.*output.value;
        if (pattern.empty() || !namesEach(pattern)) continue;
        for (const PlannedClip& clip : clips) {
            const fs::path folder = fs::path(clip.options.*output.value).parent_path();
            if (!folder.empty()) fs::create_directories(folder);
        }
    }
}

}  // namespace framehold
