#include "simulate/simulate_clip.h"

#include "cli/run_files.h"
#include "common/interruption.h"
#include "common/library_constants.h"
#include "common/output_file.h"
#include "common/progress.h"
#include "media/video_writer.h"
#include "motion/axis_mapping.h"
#include "motion/motion_log_reader.h"
#include "simulation/camera.h"
#include "simulation/camera_motion.h"
#include "simulation/street.h"
#include "simulation/world.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <utility>

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <nlohmann/json.hpp>

namespace framehold {

namespace {

using namespace simulation;

/// Motion is logged from a while before the first frame to a while after the last one.
constexpr double kLogMargin = 1.0;
/// The camera's clock starts later than the path's, so that logged times are positive.
constexpr double kFirstFrame = 2.0;

/// The motion of the log in the options from some time on, which becomes the time of the first frame.
std::unique_ptr<CameraMotion> recordedMotion(const SimulateOptions& o, MotionLog log) {
    if (log.rates.empty()) throw std::runtime_error(o.motion + ": holds no angular rates");
    log.toDeviceAxes(log.orientation);
    const double start = log.rates.front().time + o.from;
    const double needed = start + std::max(o.timeOffset, 0.0) + o.duration + o.camera.readout;
    if (o.from + std::min(o.timeOffset, 0.0) < 0.0 || needed > log.rates.back().time) {
        throw std::runtime_error(fmt::format(
            "{}: lasts {:.3f} s, too short for --from {:g}, --duration {:g} and --time-offset {:g}",
            o.motion, log.rates.back().time - log.rates.front().time, o.from, o.duration,
            o.timeOffset));
    }
    std::vector<TimedRate> rates;
    for (const MotionSample& s : log.rates) {
        rates.push_back({s.time - start + kFirstFrame, {s.value[0], s.value[1], s.value[2]}});
    }
    return std::make_unique<RecordedMotion>(rates, o.path.pan, o.path.panPeriod);
}

AvPtr<AVFrame> frameOf(const Picture& picture) {
    AvPtr<AVFrame> frame = makeNv12Frame(picture.width, picture.height);
    const auto copyRows = [&](int plane, const std::vector<uint8_t>& from, int rows) {
        for (int y = 0; y < rows; ++y) {
            std::copy_n(from.data() + ptrdiff_t{y} * picture.width, picture.width,
                        frame->data[plane] + ptrdiff_t{y} * frame->linesize[plane]);
        }
    };
    copyRows(0, picture.luma, picture.height);
    copyRows(1, picture.chroma, picture.height / 2);
    return frame;
}

class ClipSimulator {
public:
    explicit ClipSimulator(const SimulateOptions& options)
        : o_(options), axes_(AxisMapping::fromLetters(options.axes)),
          frames_(static_cast<int>(options.duration * options.framesPerSecond)) {
        if (frames_ < 1) throw std::runtime_error("--duration is shorter than one frame");
        const auto& camera = o_.camera;
        requireCovered("--lens", camera.lens, camera.focal, camera.width, camera.height);
        RunFiles files;
        if (o_.motion.empty()) {
            motion_ = std::make_unique<CameraPath>(o_.path);
        } else {
            MotionLog log = readMotionLog(o_.motion);
            for (const std::string& file : log.files) files.addInput(file);
            motion_ = recordedMotion(o_, std::move(log));
        }
        if (o_.walk) motion_ = std::make_unique<WalkingMotion>(std::move(motion_), *o_.walk);
        addOutputs(files);
        files.check(o_.overwrites, o_.quiet);
        std::filesystem::create_directories(o_.folder);
        if (hidesMetadata()) std::filesystem::create_directories(o_.metadataFolder);
    }

    void run() {
        writeVideo();
        writeMotion();
        if (o_.camera.lensShift > 0.0) writeLensShifts();
        writeFrameTimes();
        writePath("truth.csv", [this](double t) {
            return Pose{motion_->at(t), motion_->positionAt(t)};
        });
        writePath("steady.csv", [this](double t) {
            return Pose{motion_->steadyAt(t), motion_->steadyPositionAt(t)};
        });
        writeMetadata();
    }

private:
    /// As the container and frames.csv have it.
    double timestamp(int frame) const { return frame / o_.framesPerSecond; }

    /// When the frame's first row is read, on the path's and the log's clock.
    double exposure(int frame) const { return kFirstFrame + timestamp(frame) + o_.timeOffset; }

    bool hidesMetadata() const { return !o_.metadataFolder.empty(); }

    std::string clipFile(const char* name) const {
        return (std::filesystem::path(o_.folder) / name).string();
    }

    std::string metadataFile(const char* name) const {
        return (std::filesystem::path(hidesMetadata() ? o_.metadataFolder : o_.folder) / name)
            .string();
    }

    /// The path of a file of the clip as seen from the folder of the metadata.
    std::string fromMetadata(const char* name) const {
        if (!hidesMetadata()) return name;
        return std::filesystem::relative(clipFile(name), o_.metadataFolder).string();
    }

    void addOutputs(RunFiles& files) const {
        for (const char* name : {"clip.mp4", "imu.gcsv"}) files.addOutput("FOLDER", clipFile(name));
        for (const char* name : {"frames.csv", "truth.csv", "steady.csv", "clip.json"}) {
            files.addOutput(hidesMetadata() ? "--metadata" : "FOLDER", metadataFile(name));
        }
        if (o_.camera.lensShift > 0.0) {
            files.addOutput(hidesMetadata() ? "--metadata" : "FOLDER",
                            metadataFile("lens_shifts.csv"));
        }
    }

    template <class Write>
    void writeText(const std::string& path, Write write) const {
        OutputFile target({path, o_.overwrites});
        write(target.stream());
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
        settings.isResult = false;
        VideoWriter writer({clipFile("clip.mp4"), o_.overwrites}, settings);
        Progress progress("simulating", frames_, !o_.quiet);
        const Town town;
        const Street street;
        const World& scene = o_.walk ? static_cast<const World&>(street) : town;
        const Traffic traffic(scene, o_.moving, o_.path.seed);
        const World& world = o_.moving > 0.0 ? traffic : scene;
        for (int i = 0; i < frames_; ++i) {
            throwIfInterrupted();
            AvPtr<AVFrame> frame = frameOf(renderFrame(world, o_.camera, *motion_, exposure(i)));
            frame->pts = std::llround(timestamp(i) * 90000.0);
            frame->pkt_duration = std::llround(90000.0 / o_.framesPerSecond);
            writer.write(*frame);
            progress.advance();
        }
        writer.finish();
    }

    void writeMotion() const {
        writeText(clipFile("imu.gcsv"), [this](std::ostream& out) {
            fmt::print(out, "CAMERA IMU LOG\nversion,1.3\nid,simulated\n");
            if (!hidesMetadata()) {
                fmt::print(out, "orientation,{}\nframe_readout_time,{:.6f}\n", o_.axes,
                           1000.0 * o_.camera.readout);
            }
            fmt::print(out, "tscale,0.000001\ngscale,1\nascale,1\nt,gx,gy,gz,ax,ay,az\n");
            const double clock = 1e6 * (1.0 + 1e-6 * o_.clockDrift);
            for (const SensorReading& r :
                 readSensors(*motion_, o_.sensors, loggedFrom(), loggedTo())) {
                const Vec3 rate = axes_.toLogged({r.rate.x(), r.rate.y(), r.rate.z()});
                const Vec3 gravity = axes_.toLogged({r.gravity.x(), r.gravity.y(), r.gravity.z()});
                fmt::print(out, "{:.3f},{:.9f},{:.9f},{:.9f},{:.9f},{:.9f},{:.9f}\n",
                           clock * (r.time - kFirstFrame), rate[0], rate[1], rate[2],
                           gravity[0] / kStandardGravity, gravity[1] / kStandardGravity,
                           gravity[2] / kStandardGravity);
            }
        });
    }

    /// A second before the first frame to a second after the last, on the log's clock.
    double loggedFrom() const { return kFirstFrame - kLogMargin; }
    double loggedTo() const { return exposure(frames_ - 1) + o_.camera.readout + kLogMargin; }
    double loggedTime(double time) const {
        return (1.0 + 1e-6 * o_.clockDrift) * (time - kFirstFrame);
    }

    void writeLensShifts() const {
        constexpr double kStep = 0.005;  // seconds
        writeText(metadataFile("lens_shifts.csv"), [this](std::ostream& out) {
            fmt::print(out, "time_s,x_px,y_px\n");
            for (double time = loggedFrom(); time <= loggedTo(); time += kStep) {
                const Eigen::Vector2d shift = o_.camera.lensShiftAt(time);
                fmt::print(out, "{:.9f},{:.6f},{:.6f}\n", loggedTime(time), shift.x(), shift.y());
            }
        });
    }

    void writeFrameTimes() const {
        writeText(metadataFile("frames.csv"), [this](std::ostream& out) {
            fmt::print(out, "frame,timestamp_s\n");
            for (int i = 0; i < frames_; ++i) fmt::print(out, "{},{:.9f}\n", i, timestamp(i));
        });
    }

    struct Pose {
        Eigen::Quaterniond orientation;
        Eigen::Vector3d position;
    };

    /// A path of the camera, as it is when the first row of each frame is read.
    template <class PoseAt>
    void writePath(const char* name, PoseAt poseAt) const {
        writeText(metadataFile(name), [&](std::ostream& out) {
            fmt::print(out, "frame,timestamp_s,x,y,z,w,right_m,forward_m,up_m\n");
            for (int i = 0; i < frames_; ++i) {
                const auto [q, p] = poseAt(exposure(i));
                fmt::print(out, "{},{:.9f},{:.12f},{:.12f},{:.12f},{:.12f},{:.6f},{:.6f},{:.6f}\n",
                           i, timestamp(i), q.x(), q.y(), q.z(), q.w(), p.x(), p.y(), p.z());
            }
        });
    }

    void writeMetadata() const {
        nlohmann::ordered_json metadata;
        metadata["name"] = "simulated";
        metadata["video"] = fromMetadata("clip.mp4");
        metadata["frames"] = frames_;
        metadata["width"] = o_.camera.width;
        metadata["height"] = o_.camera.height;
        metadata["fps"] = o_.framesPerSecond;
        metadata["imu"] = {{"file", fromMetadata("imu.gcsv")}};
        metadata["axes"] = {
            {"device_x", axes_.term(0)}, {"device_y", axes_.term(1)}, {"device_z", axes_.term(2)}};
        metadata["focal_px"] = o_.camera.focal;
        metadata["readout_s"] = o_.camera.readout;
        if (o_.camera.lensShift > 0.0) metadata["lens_shifts_file"] = "lens_shifts.csv";
        if (!o_.camera.lens.isNone()) {
            metadata["lens"]["model"] = nameOf(o_.camera.lens.model());
            for (size_t i = 0; i < 4; ++i) {
                metadata["lens"][fmt::format("k{}", i + 1)] = o_.camera.lens.coefficients()[i];
            }
        }
        metadata["time_offset_s"] = o_.timeOffset;
        metadata["clock_drift_ppm"] = o_.clockDrift;
        if (!o_.motion.empty()) metadata["motion"] = {{"file", o_.motion}, {"from_s", o_.from}};
        metadata["moving_share"] = o_.moving;
        metadata["seed"] = o_.path.seed;
        writeText(metadataFile("clip.json"), [&](std::ostream& out) {
            out << metadata.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                << '\n';
        });
    }

    const SimulateOptions& o_;
    AxisMapping axes_;
    std::unique_ptr<CameraMotion> motion_;
    int frames_;
};

}  // namespace

void simulateClip(const SimulateOptions& options) { ClipSimulator(options).run(); }

}  // namespace framehold
