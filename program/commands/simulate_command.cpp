#include "cli/options.h"
#include "commands/commands.h"
#include "simulate/simulate_clip.h"

#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

#include <fmt/format.h>

namespace framehold {

namespace {

void addPathOptions(Command& command, SimulateOptions& o, std::optional<double>& pan) {
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
    command
        .addNumber("--pan", pan, "Pans in degrees to either side; 20, or 0 with --motion",
                   {-90.0, 90.0})
        ->group(group);
    command
        .addNumber("--pan-period", o.path.panPeriod, "Seconds until a pan comes again",
                   {0.1, 3600.0})
        ->capture_default_str()
        ->group(group);
    madeUp("--tilt", o.path.tilt, "Roll in degrees at the start", -180.0, 180.0);
    madeUp("--roll", o.path.roll, "Steady roll in degrees per second", -90.0, 90.0);
}

/// What is said of somebody's steps.
struct WalkOptions {
    bool walks = false;
    bool runs = false;
    std::optional<double> speed, pace, bounce, sway;

    std::optional<simulation::WalkSettings> settings() const {
        if (!walks && !runs) {
            if (speed || pace || bounce || sway) {
                throw CLI::RequiresError("--speed, --pace, --bounce or --sway", "--walk or --run");
            }
            return std::nullopt;
        }
        simulation::WalkSettings walk = runs ? simulation::kRun : simulation::WalkSettings{};
        walk.speed = speed.value_or(walk.speed);
        walk.pace = pace.value_or(walk.pace);
        walk.bounce = bounce.value_or(walk.bounce);
        walk.sway = sway.value_or(walk.sway);
        return walk;
    }
};

void addWalkOptions(Command& command, WalkOptions& o) {
    const std::string path = "Camera path";
    CLI::Option* walk =
        command.add_flag("--walk", o.walks, "Walk through a street with things near and far")
            ->group(path);
    command.add_flag("--run", o.runs, "Run through it")->excludes(walk)->group(path);
    const auto step = [&](const char* name, std::optional<double>& value, const char* help,
                          double high) {
        command.addNumber(name, value, help, {0.0, high})->group("More about walking");
    };
    step("--speed", o.speed, "Metres per second; walking 1.4, running 3", 10.0);
    step("--pace", o.pace, "Steps per second; walking 1.9, running 2.7", 5.0);
    step("--bounce", o.bounce, "Centimetres up and down; walking 2.5, running 4", 30.0);
    step("--sway", o.sway, "Centimetres to either side; walking 2, running 2.5", 30.0);
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

/// True if a folder is not in or below that of the metadata.
bool namesOutside(const std::filesystem::path& folder, const std::filesystem::path& metadata) {
    return *std::filesystem::relative(folder, metadata).begin() == "..";
}

}  // namespace

void addSimulateCommand(Command& program) {
    auto options = std::make_shared<SimulateOptions>();
    auto pan = std::make_shared<std::optional<double>>();
    auto walk = std::make_shared<WalkOptions>();
    SimulateOptions& o = *options;
    Command& command = program.addCommand("simulate", "Render a shaky clip with its motion log");
    command.setNotes(
        "Writes clip.mp4, imu.gcsv, frames.csv, clip.json, truth.csv (how the camera is turned and "
        "where it is at each frame) and steady.csv (the same without shake and steps) to FOLDER. "
        "The same options give the same clip.");
    command.setExamples({"framehold simulate out --duration 4 --shake 1.5",
                         "framehold stabilize out/clip.mp4 --clip out/clip.json -o steady.mp4",
                         "framehold simulate out --walk --size 640x360 --focal 500",
                         "framehold simulate out --motion walk.gcsv --from 3 --metadata truth"});
    command.addPath("FOLDER", o.folder, "Where the files go", "DIR")->capture_default_str();
    command.addPictureSize("--size", o.size, "Size of the picture")->capture_default_str();
    command.addNumber("--fps", o.framesPerSecond, "Frames per second", {1.0, 240.0})
        ->capture_default_str();
    command.addNumber("--duration", o.duration, "Length of the clip in seconds", {0.0, 3600.0})
        ->capture_default_str();
    addFocalOption(command, o.camera.focal)->capture_default_str();
    addLensOptions(command, o.lens, "More about the camera");
    addReadoutOption(command, o.camera.readout)->capture_default_str();
    command
        .addNumber(
            "--lens-shift", o.camera.lensShift,
            "Pixels that the lens moves the picture to any side, as optical stabilization does; "
            "written to lens_shifts.csv",
            {0.0, 200.0})
        ->capture_default_str()
        ->group("More about the camera");
    command
        .addNumber("--time-offset", o.timeOffset, "Seconds from a timestamp to its first row",
                   {-0.9, 0.9})
        ->capture_default_str();
    command
        .addNumber("--clock-drift", o.clockDrift, "Millionths that the log's clock runs faster",
                   {-1e4, 1e4})
        ->capture_default_str();
    command.addNumber("--moving", o.moving, "Share of the picture that moves", {0.0, 0.5})
        ->capture_default_str();
    command
        .addNumber("--seed", o.path.seed,
                   "Random seed of the shake, the noise and the moving things", {0, 4294967295.0})
        ->capture_default_str();
    command.addPath("--metadata", o.metadataFolder,
                    "Folder for clip.json and the .csv tables (default: FOLDER); the log "
                    "then has neither axes nor readout",
                    "DIR");
    addOverwriteFlag(command, o.overwrites);
    addQuietFlag(command, o.quiet);
    addPathOptions(command, o, *pan);
    addWalkOptions(command, *walk);
    addSensorOptions(command, o);
    command.callback([options, pan, walk] {
        options->walk = walk->settings();
        options->path.pan = pan->value_or(options->motion.empty() ? options->path.pan : 0.0);
        options->camera.width = options->size.width;
        options->camera.height = options->size.height;
        options->camera.lens = options->lens.lens().value_or(LensDistortion());
        fillSensors(*options);
        simulateClip(*options);
        if (options->quiet) return;
        fmt::print(stderr, "written: {}\n", options->folder);
        const std::filesystem::path metadata = options->metadataFolder;
        if (!metadata.empty() && namesOutside(options->folder, metadata)) {
            fmt::print(stderr, "{}\n", outsidePathsNote((metadata / "clip.json").string()));
        }
    });
}

}  // namespace framehold
