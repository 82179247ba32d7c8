#include "framehold/commands.h"
#include "framehold/option_checks.h"
#include "framehold/stabilize_clip.h"

#include <filesystem>
#include <memory>
#include <stdexcept>

#include <CLI/CLI.hpp>

namespace framehold {

namespace {

std::string defaultOutput(const std::string& video) {
    const std::filesystem::path path(video);
    return (path.parent_path() / (path.stem().string() + "-stable.mp4")).string();
}

void stabilize(StabilizeOptions options) {
    if (options.output.empty()) options.output = defaultOutput(options.video);
    std::error_code ignored;
    if (std::filesystem::equivalent(options.video, options.output, ignored)) {
        throw std::runtime_error(options.output + ": is the input itself");
    }
    RunDisplay display;
    display.observePath = !options.exportPath.empty();
    RunRecord record;
    stabilizeClip(options, display, record);
}

}  // namespace

void addStabilizeCommand(CLI::App& app) {
    auto options = std::make_shared<StabilizeOptions>();
    StabilizeOptions& o = *options;
    CLI::App* command = app.add_subcommand("stabilize", "Stabilize a recorded clip");
    command->footer(
        "Examples:\n"
        "  framehold stabilize walk.mp4 --motion walk.gcsv --focal 1150 -o steady.mp4\n"
        "  framehold stabilize clip.mp4 --clip clip.json --smoothing 10 --crop 75\n"
        "\n"
        "What is not given is taken from the clip.json, then from the motion log, then from a\n"
        "default. Device axes are Android's: x right, y up, z towards the viewer of the screen.");
    command->add_option("VIDEO", o.video, "The clip; any file that FFmpeg reads")
        ->required()
        ->check(CLI::ExistingFile);
    command->add_option("-o,--output", o.output, "Result (default: VIDEO's name with -stable.mp4)");
    command->add_option("-m,--motion", o.motion, "Motion log (default: the telemetry in VIDEO)")
        ->check(CLI::ExistingFile);
    command->add_option("--clip", o.clip, "clip.json with the recording's facts")
        ->check(CLI::ExistingFile);

    const std::string camera = "Camera";
    command->add_option("--focal", o.focalLength, "Focal length in pixels")
        ->check(CLI::Range(1.0, 1e6))
        ->group(camera);
    command->add_option("--fov", o.fieldOfView, "Or the field of view in degrees")
        ->check(CLI::Range(0.1, 179.9))
        ->excludes("--focal")
        ->group(camera);
    command->add_option("--fov-across", o.fieldOfViewAcross, "Which side --fov spans")
        ->check(CLI::IsMember({"width", "height", "diagonal"}))
        ->capture_default_str()
        ->group(camera);
    command->add_option("--readout", o.readoutTime, "Rolling-shutter readout in seconds")
        ->check(CLI::Range(0.0, 1.0))
        ->group(camera);
    command->add_option("--time-offset", o.timeOffset, "Seconds to add to frame times (default 0)")
        ->check(CLI::Range(-1e6, 1e6))
        ->group(camera);
    command
        ->add_option("--axes", o.axes, "Logged axes as device x, y, z; lower case: negated (XYZ)")
        ->group(camera);
    command->add_option("--gravity", o.gravity, "One made-up gravity sample X,Y,Z in m/s^2")
        ->delimiter(',')
        ->expected(3)
        ->group(camera);
    command
        ->add_option("--gravity-rate", o.gravityRate,
                     "Logged gravity samples per second to feed after the first one")
        ->check(CLI::Range(0.0, 1000.0))
        ->capture_default_str()
        ->group(camera);
    command->add_option("--sensor-mask", o.sensorMask, "Enabled sample types as bits (5)")
        ->check(CLI::Range(1, 63))
        ->group(camera);

    const std::string result = "Result";
    command->add_option("--crop", o.crop, "Percent of the picture that is shown")
        ->check(CLI::Range(1, 100))
        ->capture_default_str()
        ->group(result);
    command->add_option("--smoothing", o.smoothing, "Strength, 1 to 10")
        ->check(CLI::Range(1, 10))
        ->capture_default_str()
        ->group(result);
    command->add_option("--delay", o.delay, "Frames to look ahead")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str()
        ->group(result);
    command->add_option("--output-size", o.outputSize, "Of the result (default: the input's size)")
        ->check(isPictureSize())
        ->group(result);
    command->add_option("--quality", o.quality, "H.264 constant rate factor, 0 best to 51")
        ->check(CLI::Range(0, 51))
        ->capture_default_str()
        ->group(result);
    command->add_option("--preset", o.preset, "H.264 encoder preset, ultrafast to veryslow")
        ->capture_default_str()
        ->group(result);
    command->add_option("--record-session", o.session, "Record what the library is fed to a file")
        ->group(result);
    command
        ->add_option("--export-path", o.exportPath,
                     "Write measured and corrected orientation of each frame to this .csv file")
        ->group(result);
    command->add_flag("-q,--quiet", o.quiet, "Only warnings and errors")->group(result);
    command->callback([options] { stabilize(*options); });
}

}  // namespace framehold
