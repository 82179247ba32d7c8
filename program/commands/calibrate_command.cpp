#include "calibrate/calibrate_clip.h"
#include "calibrate/calibration_texts.h"
#include "cli/options.h"
#include "clip/clip_inputs.h"
#include "commands/commands.h"
#include "common/interruption.h"
#include "common/output_file.h"

#include <filesystem>
#include <memory>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ostream.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

struct CalibrateOptions {
    std::vector<std::string> videos;
    std::vector<std::string> motions;  // one for each video, or none
    std::string output;                // empty: beside the first video
    std::string snippet;               // empty: none
    std::string axes;                  // letters; empty: to be found
    CalibrationSettings known;
    double seconds = 60.0;
    bool json = false;
    bool quiet = false;
};

/// Files of a clip; of a clip.json beside it only the log that it names counts.
ClipFiles filesOf(const std::string& video, std::string motion) {
    if (motion.empty()) motion = findClipFiles({video, "", "", ""}).files.motion;
    const fs::path frames = fs::path(video).parent_path() / "frames.csv";
    return {video, "", motion.empty() ? video : motion, fs::exists(frames) ? frames.string() : ""};
}

std::vector<ClipFiles> filesOf(const CalibrateOptions& options) {
    if (!options.motions.empty() && options.motions.size() != options.videos.size()) {
        throw std::runtime_error(fmt::format("--motion: {} logs for {} videos; give one for each",
                                             options.motions.size(), options.videos.size()));
    }
    std::vector<ClipFiles> files;
    for (size_t i = 0; i < options.videos.size(); ++i) {
        files.push_back(
            filesOf(options.videos[i], options.motions.empty() ? "" : options.motions[i]));
    }
    return files;
}

std::string outputOf(const CalibrateOptions& options) {
    if (!options.output.empty()) return options.output;
    const std::string output = fs::path(options.videos[0]).replace_extension(".json").string();
    if (fs::exists(output)) {
        throw std::runtime_error(output + ": is there already; name the result with --output");
    }
    return output;
}

void run(CalibrateOptions options) {
    if (!options.axes.empty()) options.known.axes = AxisMapping::fromLetters(options.axes);
    const std::string output = outputOf(options);
    const std::vector<ClipFiles> files = filesOf(options);
    std::vector<CalibrationClip> clips;
    for (const ClipFiles& clip : files) {
        const ClipInputs inputs = loadClipInputs({clip, {}}, propertiesOf(VideoReader(clip.video)));
        clips.push_back(trackClip(inputs, options.seconds, !options.quiet));
    }
    const Calibration found = calibrate(clips, options.known, throwIfInterrupted);
    fmt::print("{}", options.json ? jsonOf(found, files).dump(1) + "\n" : tableOf(found, files));
    writeFile(output, presetOf(found, files, output).dump(1) + "\n");
    if (!options.snippet.empty()) writeFile(options.snippet, snippetOf(found));
    if (!options.quiet) fmt::print(stderr, "written: {}\n", output);
}

}  // namespace

void addCalibrateCommand(Command& program) {
    auto options = std::make_shared<CalibrateOptions>();
    CalibrateOptions& o = *options;
    Command& command = program.addCommand(
        "calibrate", "Find focal length, readout, axes and time offset from clips");
    command.setNotes(
        "Handheld clips of ten seconds or more that show distant things work best. What cannot be "
        "found is left out of the result. Frame times come from a frames.csv beside VIDEO, else "
        "from the video.");
    command.setExamples(
        {"framehold calibrate walk.mp4 --motion walk.gcsv -o walk.json",
         "framehold stabilize walk.mp4 --clip walk.json -o steady.mp4",
         "framehold calibrate a.mp4 b.mp4 --motion a.gcsv b.gcsv --snippet camera.c"});
    command.addInputFile("VIDEO", o.videos, "Clips of one camera in one mode")->required();
    command.addInputFile("-m,--motion", o.motions, "Their motion logs (default: beside VIDEO)");
    command.addOutputFile("-o,--output", o.output,
                          "clip.json to write (default: VIDEO's name.json)");
    command.addOutputFile("--snippet", o.snippet, "Write C code that fills in the parameters");
    addJsonFlag(command, o.json, "Print all numbers on standard output");
    command.addNumber("--seconds", o.seconds, "Seconds of each clip to use", {1.0, 3600.0})
        ->capture_default_str();
    command
        .addNumber("--range", o.known.range, "Seconds the clocks may differ to either side",
                   {0.01, 3600.0})
        ->capture_default_str();
    addQuietFlag(command, o.quiet);

    const std::string known = "Known already";
    addFocalOption(command, o.known.focal)->group(known);
    addReadoutOption(command, o.known.readout)->group(known);
    addTimeOffsetOption(command, o.known.timeOffset)->group(known);
    addAxesOption(command, o.axes)->group(known);
    command.callback([options] { run(*options); });
}

}  // namespace framehold
