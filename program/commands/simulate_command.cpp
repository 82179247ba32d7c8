#include "cli/option_checks.h"
#include "commands/commands.h"
#include "simulate/simulate_clip.h"

#include <cmath>
#include <memory>

#include <fmt/format.h>

#include <CLI/CLI.hpp>

namespace framehold {

namespace {

void addPathOptions(CLI::App& command, SimulateOptions& o) {
    const std::string group = "Camera path";
    CLI::Option* motion =
        command.add_option("--motion", o.motion, "Follow the angular rates of this motion log")
            ->check(CLI::ExistingFile)
            ->group(group);
    command.add_option("--from", o.from, "Seconds into that log at which the clip starts")
        ->check(CLI::Range(0.0, 1e6))
        ->needs(motion)
        ->capture_default_str()
        ->group(group);
    const auto madeUp = [&](const char* name, double& value, const char* help, double low,
                            double high) {
        command.add_option(name, value, help)
            ->check(CLI::Range(low, high))
            ->excludes(motion)
            ->capture_default_str()
            ->group(group);
    };
    madeUp("--shake", o.path.shake, "Hand shake in degrees", 0.0, 20.0);
    madeUp("--pan", o.path.pan, "Pans in degrees to either side", -90.0, 90.0);
    madeUp("--pan-period", o.path.panPeriod, "Seconds until a pan comes again", 0.1, 3600.0);
    madeUp("--roll", o.path.roll, "Steady roll in degrees per second", -90.0, 90.0);
}

void addSensorOptions(CLI::App& command, SimulateOptions& o) {
    const std::string group = "More about the motion log";
    command.add_option("--imu-rate", o.sensors.rate, "Samples per second")
        ->check(CLI::Range(10.0, 10000.0))
        ->capture_default_str()
        ->group(group);
    CLI::Option* noise =
        command.add_option("--rate-noise", o.sensors.rateNoise, "Gyroscope noise in rad/s")
            ->check(CLI::Range(0.0, 1.0))
            ->capture_default_str()
            ->group(group);
    command
        .add_option("--noise-density", o.noiseDensity,
                    "Or its density in rad/s per root Hz; a phone has about 0.0002")
        ->check(CLI::Range(0.0, 0.1))
        ->excludes(noise)
        ->group(group);
    command.add_option("--rate-bias", o.rateBias, "Gyroscope bias X,Y,Z in rad/s, in device axes")
        ->delimiter(',')
        ->expected(3)
        ->group(group);
    command.add_option("--axes", o.axes, "Axes of the log, as stabilize takes them")
        ->capture_default_str()
        ->group(group);
}

void fillSensors(SimulateOptions& o) {
    o.sensors.seed = o.path.seed;
    // White noise, sampled at its full bandwidth of half the rate.
    if (o.noiseDensity > 0.0) o.sensors.rateNoise = o.noiseDensity * std::sqrt(o.sensors.rate / 2);
    if (!o.rateBias.empty()) o.sensors.rateBias = Eigen::Map<Eigen::Vector3d>(o.rateBias.data());
}

}  // namespace

void addSimulateCommand(CLI::App& app) {
    auto options = std::make_shared<SimulateOptions>();
    SimulateOptions& o = *options;
    CLI::App* command = app.add_subcommand("simulate", "Render a shaky clip with its motion log");
    command->footer(
        "Example:\n"
        "  framehold simulate out --duration 4 --shake 1.5\n"
        "  framehold stabilize out/clip.mp4 --clip out/clip.json -o steady.mp4\n"
        "  framehold simulate out --motion walk.gcsv --from 3 --axes YxZ --metadata truth\n"
        "\n"
        "Writes clip.mp4, imu.gcsv, frames.csv, clip.json and truth.csv (the true orientation of\n"
        "each frame) to FOLDER. The same options give the same clip.");
    command->add_option("FOLDER", o.folder, "Where the files go")->capture_default_str();
    command->add_option("--size", o.size, "Of the picture")
        ->check(isPictureSize())
        ->capture_default_str();
    command->add_option("--fps", o.framesPerSecond, "Frames per second")
        ->check(CLI::Range(1.0, 240.0))
        ->capture_default_str();
    command->add_option("--duration", o.duration, "Seconds")
        ->check(CLI::Range(0.0, 3600.0))
        ->capture_default_str();
    command->add_option("--focal", o.camera.focal, "Focal length in pixels")
        ->check(CLI::Range(1.0, 1e6))
        ->capture_default_str();
    command->add_option("--readout", o.camera.readout, "Rolling-shutter readout in seconds")
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str();
    command->add_option("--time-offset", o.timeOffset, "Seconds from a timestamp to its first row")
        ->check(CLI::Range(-0.9, 0.9))
        ->capture_default_str();
    command
        ->add_option("--clock-drift", o.clockDrift, "Millionths that the log's clock runs faster")
        ->check(CLI::Range(-1e4, 1e4))
        ->capture_default_str();
    command->add_option("--moving", o.moving, "Share of the picture covered by moving things")
        ->check(CLI::Range(0.0, 0.5))
        ->capture_default_str();
    command->add_option("--seed", o.path.seed, "Of the shake, the noise and the moving things")
        ->capture_default_str();
    command
        ->add_option("--metadata", o.metadataFolder,
                     "Folder for clip.json, frames.csv and truth.csv (default: FOLDER); the log "
                     "then tells neither axes nor readout")
        ->type_name("DIR");
    command->add_flag("-q,--quiet", o.quiet, "No progress bar");
    addPathOptions(*command, o);
    addSensorOptions(*command, o);
    command->callback([options] {
        options->camera.width = options->size.width;
        options->camera.height = options->size.height;
        fillSensors(*options);
        simulateClip(*options);
        if (!options->quiet) fmt::print(stderr, "written: {}\n", options->folder);
    });
}

}  // namespace framehold
