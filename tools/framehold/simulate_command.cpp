#include "common/interruption.h"
#include "common/output_file.h"
#include "common/progress.h"
#include "framehold/commands.h"
#include "framehold/option_checks.h"
#include "media/video_writer.h"
#include "simulation/frame_renderer.h"
#include "simulation/motion_sensors.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace framehold {

namespace {

using namespace simulation;

struct SimulateOptions {
    std::string folder = "simulated";
    PictureSize size{1280, 720};
    CameraModel camera;
    PathSettings path;
    SensorSettings sensors;
    double framesPerSecond = 30.0;
    double duration = 6.0;
    double timeOffset = 0.0;
    bool quiet = false;
};

/// Motion is logged from a while before the first frame to a while after the last one.
constexpr double kLogMargin = 1.0;
/// The camera's clock starts later than the path's, so that logged times are positive.
constexpr double kFirstFrame = 2.0;

class ClipSimulator {
public:
    explicit ClipSimulator(const SimulateOptions& options)
        : o_(options), path_(options.path),
          frames_(static_cast<int>(options.duration * options.framesPerSecond)) {
        if (frames_ < 1) throw std::runtime_error("--duration is shorter than one frame");
        std::filesystem::create_directories(o_.folder);
    }

    void run() {
        writeVideo();
        writeMotion();
        writeFrameTimes();
        writeTruth();
        writeFacts();
    }

private:
    /// As the container and frames.csv tell it.
    double timestamp(int frame) const { return frame / o_.framesPerSecond; }

    /// When the frame's first row is read, on the path's and the log's clock.
    double exposure(int frame) const { return kFirstFrame + timestamp(frame) + o_.timeOffset; }

    std::string file(const char* name) const {
        return (std::filesystem::path(o_.folder) / name).string();
    }

    template <class Write>
    void writeText(const char* name, Write write) const {
        OutputFile target(file(name));
        std::ofstream out(target.temporary());
        write(out);
        out.close();
        if (!out) throw std::runtime_error(target.path() + ": cannot be written");
        target.commit();
    }

    void writeVideo() const {
        VideoSettings settings;
        settings.width = o_.camera.width;
        settings.height = o_.camera.height;
        settings.frameRate = av_d2q(o_.framesPerSecond, 1000000);
        settings.timeBase = {1, 90000};
        settings.quality = 14;
        settings.preset = "fast";
        VideoWriter writer(file("clip.mp4"), settings);
        Progress progress("simulating", frames_, !o_.quiet);
        const Town town;
        for (int i = 0; i < frames_; ++i) {
            throwIfInterrupted();
            const Picture picture = renderFrame(town, o_.camera, path_, exposure(i));
            AvPtr<AVFrame> frame = makeNv12Frame(picture.width, picture.height);
            const auto copyRows = [&](int plane, const std::vector<uint8_t>& from, int rows) {
                for (int y = 0; y < rows; ++y) {
                    std::copy_n(from.data() + ptrdiff_t{y} * picture.width, picture.width,
                                frame->data[plane] + ptrdiff_t{y} * frame->linesize[plane]);
                }
            };
            copyRows(0, picture.luma, picture.height);
            copyRows(1, picture.chroma, picture.height / 2);
            frame->pts = std::llround(timestamp(i) * 90000.0);
            frame->pkt_duration = std::llround(90000.0 / o_.framesPerSecond);
            writer.write(*frame);
            progress.advance();
        }
        writer.finish();
    }

    void writeMotion() const {
        writeText("imu.gcsv", [this](std::ostream& out) {
            fmt::print(out,
                       "CAMERA IMU LOG\nversion,1.3\nid,simulated\norientation,XYZ\n"
                       "frame_readout_time,{:.6f}\ntscale,0.000001\ngscale,1\nascale,1\n"
                       "t,gx,gy,gz,ax,ay,az\n",
                       1000.0 * o_.camera.readout);
            const double from = kFirstFrame - kLogMargin;
            const double to = exposure(frames_ - 1) + o_.camera.readout + kLogMargin;
            for (const SensorReading& r : readSensors(path_, o_.sensors, from, to)) {
                const Eigen::Vector3d g = r.gravity / 9.81;
                fmt::print(out, "{:.3f},{:.9f},{:.9f},{:.9f},{:.9f},{:.9f},{:.9f}\n",
                           1e6 * (r.time - kFirstFrame), r.rate.x(), r.rate.y(), r.rate.z(), g.x(),
                           g.y(), g.z());
            }
        });
    }

    void writeFrameTimes() const {
        writeText("frames.csv", [this](std::ostream& out) {
            fmt::print(out, "frame,timestamp_s\n");
            for (int i = 0; i < frames_; ++i) fmt::print(out, "{},{:.9f}\n", i, timestamp(i));
        });
    }

    /// The camera's true orientation when the first row of each frame is read.
    void writeTruth() const {
        writeText("truth.csv", [this](std::ostream& out) {
            fmt::print(out, "frame,timestamp_s,x,y,z,w\n");
            for (int i = 0; i < frames_; ++i) {
                const Eigen::Quaterniond q = path_.at(exposure(i));
                fmt::print(out, "{},{:.9f},{:.12f},{:.12f},{:.12f},{:.12f}\n", i, timestamp(i),
                           q.x(), q.y(), q.z(), q.w());
            }
        });
    }

    void writeFacts() const {
        nlohmann::ordered_json facts;
        facts["name"] = "simulated";
        facts["video"] = "clip.mp4";
        facts["frames"] = frames_;
        facts["width"] = o_.camera.width;
        facts["height"] = o_.camera.height;
        facts["fps"] = o_.framesPerSecond;
        facts["imu"] = {{"file", "imu.gcsv"}};
        facts["axes"] = {{"device_x", "+x"}, {"device_y", "+y"}, {"device_z", "+z"}};
        facts["focal_px"] = o_.camera.focal;
        facts["readout_s"] = o_.camera.readout;
        facts["time_offset_s"] = o_.timeOffset;
        facts["seed"] = o_.path.seed;
        writeText("clip.json", [&](std::ostream& out) { out << facts.dump(1) << '\n'; });
    }

    const SimulateOptions& o_;
    CameraPath path_;
    int frames_;
};

}  // namespace

void addSimulateCommand(CLI::App& app) {
    auto options = std::make_shared<SimulateOptions>();
    SimulateOptions& o = *options;
    CLI::App* command = app.add_subcommand("simulate", "Render a shaky clip with its motion log");
    command->footer(
        "Example:\n"
        "  framehold simulate out --duration 4 --shake 1.5\n"
        "  framehold stabilize out/clip.mp4 --clip out/clip.json -o steady.mp4\n"
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
    command->add_option("--shake", o.path.shake, "Hand shake in degrees")
        ->check(CLI::Range(0.0, 20.0))
        ->capture_default_str();
    command->add_option("--pan", o.path.pan, "Pans in degrees to either side")
        ->check(CLI::Range(-90.0, 90.0))
        ->capture_default_str();
    command->add_option("--pan-period", o.path.panPeriod, "Seconds until a pan comes again")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    command->add_option("--roll", o.path.roll, "Steady roll in degrees per second")
        ->check(CLI::Range(-90.0, 90.0))
        ->capture_default_str();
    command->add_option("--imu-rate", o.sensors.rate, "Motion samples per second")
        ->check(CLI::Range(10.0, 10000.0))
        ->capture_default_str();
    command->add_option("--rate-noise", o.sensors.rateNoise, "Gyroscope noise in rad/s")
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str();
    command->add_option("--seed", o.path.seed, "Of the shake")->capture_default_str();
    command->add_flag("-q,--quiet", o.quiet, "No progress bar");
    command->callback([options] {
        options->camera.width = options->size.width;
        options->camera.height = options->size.height;
        ClipSimulator(*options).run();
        if (!options->quiet) fmt::print(stderr, "written: {}\n", options->folder);
    });
}

}  // namespace framehold
