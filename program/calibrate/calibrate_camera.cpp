#include "calibrate/calibrate_camera.h"

#include "calibrate/calibrate_clip.h"
#include "calibrate/calibration_texts.h"
#include "cli/options.h"
#include "cli/run_files.h"
#include "common/image_sequence.h"
#include "common/interruption.h"
#include "common/output_file.h"
#include "common/text_fields.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

/// Files that were opened to find those of the clips, and what is to be said of them.
struct Search {
    RunFiles opened;
    std::vector<std::string> warnings;
};

/// Files of a clip; of a clip.json beside it only the log that it names counts.
ClipFiles filesOf(const std::string& video, std::string motion, bool allowsOutsidePaths,
                  Search& search) {
    if (motion.empty()) {
        const ClipFiles named = {video, "", "", "", allowsOutsidePaths};
        const FoundClip found = findClipFiles(named);
        for (const std::string& file : filesRead(named, found)) search.opened.addInput(file);
        const auto& warnings = found.metadata.warnings;
        search.warnings.insert(search.warnings.end(), warnings.begin(), warnings.end());
        motion = found.files.motion;
    }
    const fs::path frames = fs::path(video).parent_path() / "frames.csv";
    return {video, "", motion.empty() ? video : motion, fs::exists(frames) ? frames.string() : ""};
}

std::vector<ClipFiles> filesOf(const CalibrateOptions& options, Search& search) {
    if (!options.motions.empty() && options.motions.size() != options.videos.size()) {
        throw std::runtime_error(fmt::format("--motion: {} logs for {} videos; give one for each",
                                             options.motions.size(), options.videos.size()));
    }
    std::vector<ClipFiles> files;
    for (size_t i = 0; i < options.videos.size(); ++i) {
        files.push_back(filesOf(options.videos[i],
                                options.motions.empty() ? "" : options.motions[i],
                                options.allowsOutsidePaths, search));
    }
    return files;
}

/// A model without coefficients is a lens that is to be found.
CalibrationSettings knownOf(CameraOptions options) {
    std::optional<LensModel> wanted;
    if (options.lens.k.empty() && !options.lens.model.empty()) {
        wanted = lensModelOf(options.lens.model);
        if (wanted != LensModel::kNone) options.lens = {};
    }
    CalibrationSettings known = givenOf(resolveCamera(options, ClipInputs()), {});
    if (wanted != LensModel::kNone) known.lensModel = wanted;
    return known;
}

/// Names that are not UTF-8 get replacement characters.
std::string textOf(const nlohmann::ordered_json& json) {
    return json.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string outputOf(const CalibrateOptions& options) {
    if (!options.output.empty()) return options.output;
    const std::string output = besideVideo(options.videos[0], ".json");
    refuseExisting({output, options.overwrites});
    return output;
}

/// True if a clip.json names a file that is not below its folder.
bool namesOutside(const nlohmann::ordered_json& preset) {
    const auto isOutside = [](const std::string& name) { return name.rfind("..", 0) == 0; };
    const auto imu = preset.value("imu", nlohmann::ordered_json::object());
    return isOutside(preset.value("video", "")) || isOutside(preset.value("frames_file", "")) ||
           isOutside(imu.value("file", ""));
}

/// files: with all that was opened to find the clips.
void checkFiles(const CalibrateOptions& options, const std::vector<ClipInputs>& clips,
                const std::string& output, RunFiles files) {
    for (const ClipInputs& clip : clips) {
        files.addInput(clip.files.video);
        files.addInput(clip.files.frames);
        for (const std::string& file : clip.log->files) files.addInput(file);
    }
    files.addOutput("--output", output);
    files.addOutput("--snippet", options.snippet);
    files.check(options.overwrites, options.quiet);
}

}  // namespace

void calibrateCamera(const CalibrateOptions& options) {
    if (options.json && options.output == "-") {
        throw CLI::ValidationError("--json", "the clip.json takes up standard output");
    }
    CalibrationSettings known = knownOf(options.known);
    known.range = options.range;
    const std::string output = outputOf(options);
    Search search;
    const std::vector<ClipFiles> files = filesOf(options, search);
    std::vector<ClipInputs> inputs;
    for (const ClipFiles& clip : files) {
        inputs.push_back(loadClipInputs({clip, {}}, propertiesOf(VideoReader(clip.video))));
    }
    checkFiles(options, inputs, output, std::move(search.opened));
    for (const std::string& warning : search.warnings) {
        fmt::print(stderr, "warning: {}\n", escaped(warning));
    }
    std::vector<CalibrationClip> clips;
    for (const ClipInputs& clip : inputs) {
        clips.push_back(trackClip(clip, options.seconds, !options.quiet));
    }
    const Calibration found = calibrate(clips, known, throwIfInterrupted);
    const bool isPiped = output == "-";  // then standard output is for nothing else
    if (!isPiped || !options.quiet) {
        fmt::print(isPiped ? stderr : stdout, "{}",
                   options.json ? textOf(jsonOf(found, files)) + "\n" : tableOf(found, files));
    }
    const nlohmann::ordered_json preset = presetOf(found, files, output);
    writeFile({output, options.overwrites}, textOf(preset) + "\n");
    if (!options.snippet.empty())
        writeFile({options.snippet, options.overwrites}, snippetOf(found));
    if (!options.quiet) {
        fmt::print(stderr, "written: {}\n", escaped(writtenName(output)));
        if (namesOutside(preset)) fmt::print(stderr, "{}\n", outsidePathsNote(output));
    }
    std::vector<std::string> losses;
    for (const CalibrationClip& clip : clips) {
        losses.insert(losses.end(), clip.tracks.losses.begin(), clip.tracks.losses.end());
    }
    reportLosses(losses);
}

}  // namespace framehold
