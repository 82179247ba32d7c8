#include "cli/option_checks.h"
#include "commands/commands.h"
#include "stabilize/stabilize_batch.h"

#include <filesystem>
#include <memory>

#include <CLI/CLI.hpp>

namespace framehold {

namespace {

/// Accepts files and folders that are there, and "-" for standard input.
CLI::Validator isInput() {
    return CLI::Validator(
        [](std::string& text) {
            std::error_code ignored;
            if (text == "-" || std::filesystem::exists(text, ignored)) return std::string();
            return "there is no file or folder '" + text + "'";
        },
        "PATH");
}

void addCameraOptions(CLI::App& command, StabilizeOptions& o) {
    const std::string camera = "Camera";
    command.add_option("--focal", o.focalLength, "Focal length in pixels")
        ->check(CLI::Range(1.0, 1e6))
        ->group(camera);
    command.add_option("--fov", o.fieldOfView, "Or the field of view in degrees")
        ->check(CLI::Range(0.1, 179.9))
        ->excludes("--focal")
        ->group(camera);
    command.add_option("--readout", o.readoutTime, "Rolling-shutter readout in seconds")
        ->check(CLI::Range(0.0, 1.0))
        ->group(camera);
    command.add_option("--time-offset", o.timeOffset, "Seconds to add to frame times (default 0)")
        ->check(CLI::Range(-1e6, 1e6))
        ->group(camera);
    command.add_option("--axes", o.axes, "Logged axes as device x, y, z; lower case: negated")
        ->group(camera);

    command.add_flag("--auto", o.findsUnknown, "Find in the clip itself what is not known")
        ->group(camera);

    const std::string more = "More camera options";
    command.add_option("--fov-across", o.fieldOfViewAcross, "Which side --fov spans")
        ->check(CLI::IsMember({"width", "height", "diagonal"}))
        ->capture_default_str()
        ->group(more);
    command.add_option("--gravity", o.gravity, "One made-up gravity sample X,Y,Z in m/s^2")
        ->delimiter(',')
        ->expected(3)
        ->group(more);
    command
        .add_option("--gravity-rate", o.gravityRate,
                    "Logged gravity samples per second to feed after the first one")
        ->check(CLI::Range(0.0, 1000.0))
        ->capture_default_str()
        ->group(more);
    command.add_option("--sensor-mask", o.sensorMask, "Enabled sample types as bits (5)")
        ->check(CLI::Range(1, 63))
        ->group(more);
}

void addResultOptions(CLI::App& command, BatchOptions& batch) {
    StabilizeOptions& o = batch.each;
    const std::string result = "Result";
    command.add_option("--crop", o.crop, "Percent of the picture that is shown")
        ->check(CLI::Range(1, 100))
        ->capture_default_str()
        ->group(result);
    command.add_option("--smoothing", o.smoothing, "Strength")
        ->check(CLI::Range(1, 10))
        ->capture_default_str()
        ->group(result);
    command.add_option("--delay", o.delay, "Frames to look ahead")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str()
        ->group(result);
    command.add_option("--output-size", o.outputSize, "Of the result (default: the input's size)")
        ->check(isPictureSize())
        ->group(result);
    command.add_flag("--side-by-side", o.sideBySide, "Show the source on the left of the result")
        ->group(result);
    command.add_option("--export-path", o.exportPath, "Write each frame's orientations as CSV")
        ->type_name("FILE")
        ->group(result);
    command.add_option("--report", o.report, "Write an HTML page that shows what was done")
        ->type_name("FILE")
        ->group(result);
    command.add_flag("--json", batch.json, "Print a summary on standard output")->group(result);

    const std::string more = "More result options";
    command.add_option("--encoder", o.encoder, "FFmpeg's name of it (libx264 where it fits)")
        ->group(more);
    command.add_option("--quality", o.quality, "As the encoder counts, 0 best (18 for libx264)")
        ->check(CLI::Range(0, 63))
        ->group(more);
    command.add_option("--preset", o.preset, "Of the encoder (medium for libx264)")->group(more);
    command
        .add_option("--pixel-format", o.pixelFormat,
                    "FFmpeg's name of it (yuv420p; for odd sizes in H.264 yuv444p)")
        ->group(more);
    command.add_option("--save-run", o.saveRun, "Keep what `framehold report` needs")
        ->type_name("FILE")
        ->group(more);
    command.add_option("--record-session", o.session, "Record what the library is fed to a file")
        ->type_name("FILE")
        ->group(more);
}

}  // namespace

void addStabilizeCommand(CLI::App& app) {
    auto options = std::make_shared<BatchOptions>();
    StabilizeOptions& o = options->each;
    CLI::App* command = app.add_subcommand("stabilize", "Stabilize recorded clips");
    command->footer(
        "Examples:\n"
        "  framehold stabilize walk.mp4 --motion walk.gcsv --focal 1150 -o steady.mp4\n"
        "  framehold stabilize recordings -j 2 -o 'steady/{folder}-{name}.mp4'\n"
        "\n"
        "What is not given is taken from the clip.json, then from the motion log, then from a\n"
        "default. Both are looked for beside the video: NAME.json or clip.json, NAME.gcsv, .csv,\n"
        ".txt or .log. Device axes are Android's: x right, y up, z towards the viewer.");
    command
        ->add_option("VIDEO", options->inputs,
                     "Clips, folders of clips, or - for y4m on standard input")
        ->required()
        ->check(isInput());
    command
        ->add_option("-o,--output", o.output,
                     "File; folder; pattern of {name}, {folder}, {ext}; or - for y4m on "
                     "standard output (default: {name}-stable beside VIDEO)")
        ->type_name("FILE");
    command->add_option("-m,--motion", o.motion, "Motion log (default: the telemetry in VIDEO)")
        ->check(CLI::ExistingFile);
    command->add_option("--clip", o.clip, "clip.json with the recording's metadata")
        ->check(CLI::ExistingFile);
    command->add_option("-j,--parallel", options->parallel, "Clips to stabilize at a time")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    command->add_flag("-q,--quiet", o.quiet, "Only warnings and errors");
    addCameraOptions(*command, o);
    addResultOptions(*command, *options);
    command->callback([options] { stabilizeAll(*options); });
}

}  // namespace framehold
