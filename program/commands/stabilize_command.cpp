#include "cli/options.h"
#include "cli/settings_file.h"
#include "commands/commands.h"
#include "common/image_sequence.h"
#include "common/text_fields.h"
#include "stabilize/stabilize_batch.h"
#include "watch/watch_folder.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Accepts files and folders that are there, patterns of image sequences, and "-" for standard input.
CLI::Validator isInput() {
    return CLI::Validator(
        [](std::string& text) {
            std::error_code ignored;
            const bool isThere = std::filesystem::exists(text, ignored) || isImageSequence(text);
            if (text == "-" || isThere) return std::string();
            return "there is no file or folder '" + text + "'";
        },
        "");
}

CLI::Validator isFolder() {
    return CLI::Validator(
        [](std::string& text) {
            std::error_code ignored;
            const bool isThere = std::filesystem::is_directory(text, ignored);
            return isThere ? std::string() : "there is no folder '" + text + "'";
        },
        "");
}

void addCameraOptions(Command& command, StabilizeOptions& options) {
    ClipOptions& o = options.clip;
    const std::string camera = "Camera";
    addFocalOption(command, o.camera.focalLength)->group(camera);
    command
        .addNumber("--fov", o.camera.fieldOfView, "Or the field of view in degrees", {0.1, 179.9})
        ->excludes("--focal")
        ->group(camera);
    addReadoutOption(command, o.camera.readoutTime)->group(camera);
    addTimeOffsetOption(command, o.camera.timeOffset)->default_str("0")->group(camera);
    addAxesOption(command, o.camera.axes)->group(camera);

    command.add_flag("--auto", options.findsUnknown, "Find in the clip itself what is not known")
        ->group(camera);
    command
        .add_flag("--force", options.force,
                  "Go on with a motion log that does not fit the pictures")
        ->group("More camera options");

    const std::string more = "More camera options";
    addLensOptions(command, o.camera.lens, more);
    command
        .addChoice("--fov-across", o.camera.fieldOfViewAcross, "Which side --fov spans",
                   {"width", "height", "diagonal"})
        ->capture_default_str()
        ->group(more);
    command.addVector("--gravity", o.gravity, "One made-up gravity sample X,Y,Z in m/s^2")
        ->group(more);
    command
        .addNumber("--gravity-rate", o.gravityRate,
                   "Logged gravity samples per second to feed after the first one", {0.0, 1000.0})
        ->capture_default_str()
        ->group(more);
    command.addNumber("--sensor-mask", o.sensorMask, "Enabled sample types as bits", {1, 63})
        ->default_str("5")
        ->group(more);
}

void addResultOptions(Command& command, BatchOptions& batch) {
    StabilizeOptions& o = batch.each;
    const std::string result = "Result";
    command
        .addNumberOrWord("--crop", o.clip.crop, "Percent of the picture shown", {1, 100}, "auto",
                         std::to_string(kAutoCrop))
        ->capture_default_str()
        ->group(result);
    command.addChoice("--zoom", o.clip.zoom, "Zoom where there is room", {"fixed", "dynamic"})
        ->capture_default_str()
        ->group(result);
    command.add_flag("--straighten", o.clip.straightens, "Show straight lines as such")
        ->group(result);
    command
        .addNumberOrWord("--smoothing", o.clip.smoothing, "Strength; auto: 9, live as needed",
                         {1, 10}, "auto", std::to_string(kAutoSmoothing))
        ->default_str("auto")
        ->group(result);
    command
        .addNumberOrWord("--horizon", o.clip.horizon, "Percent of roll to level; lock: all",
                         {0.0, 100.0}, "lock", "100")
        ->capture_default_str()
        ->group(result);
    command
        .addPictureSize("--output-size", o.clip.outputSize,
                        "Size of the result (default: the input's size)")
        ->group(result);
    command.addOutputFile("--report", o.report, "Write an HTML page that shows what was done")
        ->group(result);

    const std::string more = "More result options";
    addJsonFlag(command, batch.json, "Print a summary on standard output")->group(more);
    addDelayOption(command, o.clip.delay, "Frames to look ahead, if live")
        ->default_str("30")
        ->group(more);
    command.addOutputFile("--export-path", o.exportPath, "Write each frame's orientations as CSV")
        ->group(more);
    command.add_flag("--side-by-side", o.sideBySide, "Show the source on the left of the result")
        ->group(more);
    command
        .add_flag("--again", o.takesResults, "Stabilize clips, too, that are results themselves")
        ->group(more);
    command
        .addText("--encoder", o.encoder,
                 "FFmpeg's name of the encoder (default: libx264 where it fits)")
        ->group(more);
    command.addNumber("--quality", o.quality, "As the encoder counts, 0 best", {0, 63})
        ->default_str("18 for libx264")
        ->group(more);
    command.addText("--preset", o.preset, "The encoder's preset")
        ->default_str("medium for libx264")
        ->group(more);
    command.addKeyValues("--encoder-option", o.encoderOptions, "Any option of the encoder by name")
        ->group(more);
    command
        .addText(
            "--pixel-format", o.pixelFormat,
            "FFmpeg's name of the pixel format (default: yuv420p; yuv444p for odd sizes in H.264)")
        ->group(more);
    command.addOutputFile("--save-run", o.saveRun, "Write what framehold report --run reads")
        ->group(more);
    command
        .addOutputFile("--record-session", o.session,
                       "Record the calls of the library to this file")
        ->group(more);
}

constexpr const char* kWhereSettingsComeFrom =
    "What is not given is taken from the clip.json, then from the motion log, then from a "
    "default. Both are looked for beside the video: NAME.json or clip.json, NAME.gcsv, "
    ".csv, .txt or .log. ";

/// Options for what is the same for every clip of a batch.
void addBatchOptions(Command& command, BatchOptions& batch) {
    StabilizeOptions& o = batch.each;
    command
        .add_flag("--no-motion", o.files.ignoresMotion,
                  "Stabilize by the pictures alone, as where there is no log")
        ->group("More camera options");
    addOutsidePathsFlag(command, o.files.allowsOutsidePaths)->group("More camera options");
    command.addNumber("-j,--parallel", batch.parallel, "Clips to stabilize at a time", {1, 64})
        ->capture_default_str();
    addQuietFlag(command, o.quiet, "Only warnings and errors");
    command
        .addChoice("--engine", o.engineName, "With the whole clip known, or as live on a phone",
                   {"offline", "live"})
        ->default_str("offline; live for pipes");
    addCameraOptions(command, o);
    addResultOptions(command, batch);
    addSettingsOptions(command, batch.saveSettings);
}

/// Camera options with the values that were found.
std::vector<std::pair<std::string, std::string>> cameraOptions(const ClipMetadata& found) {
    std::vector<std::pair<std::string, std::string>> options;
    if (found.focalLength) options.emplace_back("focal", fmt::format("{:.2f}", *found.focalLength));
    if (found.lens) {
        const auto& k = found.lens->coefficients();
        options.emplace_back("lens-model", nameOf(found.lens->model()));
        options.emplace_back("lens", fmt::format("{:.6f},{:.6f}", k[0], k[1]));
    }
    if (found.readoutTime) {
        options.emplace_back("readout", fmt::format("{:.6f}", *found.readoutTime));
    }
    if (found.axes) options.emplace_back("axes", found.axes->letters());
    return options;
}

/// Saves the settings where that is asked for, and says what of the camera is among them.
void saveIfAsked(const Command& command, const BatchOptions& batch,
                 const std::optional<ClipMetadata>& found = {}) {
    if (batch.saveSettings.empty()) return;
    const auto more = cameraOptions(found.value_or(ClipMetadata()));
    saveSettings(command, {batch.saveSettings, batch.each.overwrites}, more);
    if (!batch.each.findsUnknown || batch.each.quiet) return;
    std::string text;
    for (const auto& [name, value] : more) text += fmt::format(" --{} {}", name, value);
    if (!text.empty()) {
        text = "options, and what was found of the camera:" + text;
    } else {
        text = found ? "options only: nothing of the camera was found well determined"
                     : "options only: what --auto finds is written with a single clip";
    }
    fmt::print(stderr, "{}: {}\n", escaped(batch.saveSettings), text);
}

}  // namespace

void addStabilizeCommand(Command& program) {
    auto options = std::make_shared<BatchOptions>();
    StabilizeOptions& o = options->each;
    Command& command = program.addCommand("stabilize", "Stabilize recorded clips");
    command.setNotes(std::string(kWhereSettingsComeFrom) +
                     "Device axes are Android's: x right, y up, z towards the viewer.");
    command.setExamples(
        {"framehold stabilize walk.mp4 --motion walk.gcsv --focal 1150 -o steady.mp4",
         "framehold stabilize recordings -j 2 -o 'steady/{folder}-{name}.mp4'",
         "framehold stabilize frames/%04d.png --fps 30 -m imu.gcsv -o steady.mp4"});
    command
        .addPath("VIDEO", options->inputs, "Clips, folders, image sequences; - is standard input",
                 "PATH")
        ->required()
        ->check(isInput());
    command.addResult("-o,--output", o.output,
                      "File, folder, pattern with {name}, {folder} and {ext}, or - for y4m on "
                      "standard output (default: {name}-stable beside VIDEO)");
    addSequenceRateOption(command, options->sequenceRate);
    CLI::Option* motion = command.addInputFile("-m,--motion", o.files.motion,
                                               "Motion log (default: the telemetry in VIDEO)");
    command.addInputFile("--clip", o.files.metadata, "clip.json with the recording's metadata");
    CLI::Option* overwrite = addOverwriteFlag(command, o.overwrites);
    command
        .add_flag("--skip-existing", options->skipsExisting,
                  "Leave out clips whose results are there and whole")
        ->excludes(overwrite);
    addBatchOptions(command, *options);
    motion->excludes("--no-motion");
    command.callback([options, &command] {
        useSequenceRate(options->inputs, options->sequenceRate);
        stabilizeAll(*options, [&](const std::optional<ClipMetadata>& found) {
            saveIfAsked(command, *options, found);
        });
    });
}

void addWatchCommand(Command& program) {
    auto options = std::make_shared<WatchOptions>();
    options->batch.skipsExisting = true;
    Command& command =
        program.addCommand("watch", "Stabilize recordings as they arrive in a folder");
    command.setNotes(std::string(kWhereSettingsComeFrom) +
                     "A recording is taken when its files have stayed as they are for a while. "
                     "Those whose results "
                     "are there are left out, so the command can be started again at any time.");
    command.setExamples({"framehold watch recordings -o 'steady/{folder}-{name}.mp4' --auto"});
    command.addPath("FOLDER", options->folder, "Folder to watch, with those in it", "FOLDER")
        ->required()
        ->check(isFolder());
    command.addOutputFile("-o,--output", options->batch.each.output,
                          "Folder, or pattern with {name}, {folder} and {ext} (default: "
                          "{name}-stable beside the video)");
    command
        .addNumber("--settle", options->settleSeconds,
                   "Seconds for which a recording has to stay as it is", {0.1, 3600.0})
        ->capture_default_str();
    addBatchOptions(command, options->batch);
    command.callback([options, &command] {
        saveIfAsked(command, options->batch);
        watchFolder(*options);
    });
}

}  // namespace framehold
