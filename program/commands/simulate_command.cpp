#include "cli/options.h"
#include "commands/commands.h"
#include "simulate/simulate_clip.h"

#include <cmath>
#include <memory>

#include <fmt/format.h>

namespace framehold {

namespace {

void addPathOptions(Command& command, SimulateOptions& o) {
    const std::string group = "Camera path";
    CLI::Option* motion =
        command.addInputFile("--motion", o.motion, "Follow the angular rates of this motion log")
            ->group(group);
    command
        .addNumber("--from", o.from, "Seconds into that log at which the clip starts", {0.0, 1e6})
        ->needs(motion)
        ->capture_default_str()
        ->group(group);
    const auto madeUp = [&](const char* name, double& value, const char* help, double low,
                            double high) {
        command.addNumber(name, value, help, {low, high})
            ->excludes(motion)
            ->capture_default_str()
            ->group(group);
    };
    madeUp("--shake", o.path.shake, "Hand shake in degrees", 0.0, 20.0);
    madeUp("--pan", o.path.pan, "Pans in degrees to either side", -90.0, 90.0);
    madeUp("--pan-period", o.path.panPeriod, "Seconds until a pan comes again", 0.1, 3600.0);
    madeUp("--roll", o.path.roll, "Steady roll in degrees per second", -90.0, 90.0);
}

void addSensorOptions(Command& command, SimulateOptions& o) {
    const std::string group = "More about the motion log";
    command.addNumber("--imu-rate", o.sensors.rate, "Samples per second", {10.0, 10000.0})
        ->capture_default_str()
        ->group(group);
    CLI::Option* noise =
        command
            .addNumber("--rate-noise", o.sensors.rateNoise, "Gyroscope noise in rad/s", {0.0, 1.0})
            ->capture_default_str()
            ->group(group);
    command
        .addNumber("--noise-density", o.noiseDensity,
                   "Or its density in rad/s per root Hz; a phone has about 0.0002", {0.0, 0.1})
        ->excludes(noise)
        ->group(group);
    command.addVector("--rate-bias", o.rateBias, "Gyroscope bias X,Y,Z in rad/s, in device axes")
        ->group(group);
    addAxesOption(command, o.axes)->capture_default_str()->group(group);
}

void fillSensors(SimulateOptions& o) {
    o.sensors.seed = o.path.seed;
    // White noise, sampled at its full bandwidth of half the rate.
    if (o.noiseDensity > 0.0) o.sensors.rateNoise = o.noiseDensity * std::sqrt(o.sensors.rate / 2);
    if (!o.rateBias.empty()) o.sensors.rateBias = Eigen::Map<Eigen::Vector3d>(o.rateBias.data());
}

}  // namespace

void addSimulateCommand(Command& program) {
    auto options = std::make_shared<SimulateOptions>();
    SimulateOptions& o = *options;
    Command& command = program.addCommand("simulate", "Render a shaky clip with its motion log");
    command.setNotes(
        "Writes clip.mp4, imu.gcsv, frames.csv, clip.json and truth.csv (the true orientation "
        "of each frame) to FOLDER. The same options give the same clip.");
    command.setExamples({"framehold simulate out --duration 4 --shake 1.5",
                         "framehold stabilize out/clip.mp4 --clip out/clip.json -o steady.mp4",
                         "framehold simulate out --motion walk.gcsv --from 3 --metadata truth"});
    command.addPath("FOLDER", o.folder, "Where the files go", "DIR")->capture_default_str();
    command.addPictureSize("--size", o.size, "Size of the picture")->capture_default_str();
    command.addNumber("--fps", o.framesPerSecond, "Frames per second", {1.0, 240.0})
        ->capture_default_str();
    command.addNumber("--duration", o.duration, "Length of the clip in seconds", {0.0, 3600.0})
        ->capture_default_str();
    addFocalOption(command, o.camera.focal)->capture_default_str();
    addReadoutOption(command, o.camera.readout)->capture_default_str();
    command
        .addNumber("--time-offset", o.timeOffset, "Seconds from a timestamp to its first row",
                   {-0.9, 0.9})
        ->capture_default_str();
    command
        .addNumber("--clock-drift", o.clockDrift, "Millionths that the log's clock runs faster",
                   {-1e4, 1e4})
        ->capture_default_str();
    command
        .addNumber("--moving", o.moving, "Share of the picture covered by moving things",
                   {0.0, 0.5})
        ->capture_default_str();
    command
        .addNumber("--seed", o.path.seed,
                   "Random seed of the shake, the noise and the moving things", {0, 4294967295.0})
        ->capture_default_str();
    command.addPath("--metadata", o.metadataFolder,
                    "Folder for clip.json, frames.csv and truth.csv (default: FOLDER); the log "
                    "then has neither axes nor readout",
                    "DIR");
    addOverwriteFlag(command, o.overwrites);
    addQuietFlag(command, o.quiet);
    addPathOptions(command, o);
    addSensorOptions(command, o);
    command.callback([options] {
        options->camera.width = options->size.width;
        options->camera.height = options->size.height;
        fillSensors(*options);
        simulateClip(*options);
        if (!options->quiet) fmt::print(stderr, "written: {}\n", options->folder);
    });
}

}  // namespace framehold
