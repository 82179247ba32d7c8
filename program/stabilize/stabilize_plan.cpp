#include "stabilize/stabilize_plan.h"

#include "common/library_constants.h"
#include "stabilize/log_samples.h"
#include "stabilize/padded_frame.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

void describeImage(int width, int height, ZPR_Image& image) {
    image.format = ZPR_FORMAT_SEMIPLANAR_1;
    image.width = width;
    image.height = height;
    image.pitch[0] = image.pitch[1] = width;
}

void setCamera(const CameraSettings& camera, StabilizePlan& plan) {
    if (camera.fieldOfView.source == Source::kDefault) {
        plan.warnings.push_back(fmt::format(
            "the focal length is not known: assuming a view of {:.1f} degrees across the width; "
            "give --focal or --fov",
            camera.fieldOfView.value.value));
    }
    plan.param.fieldOfView = camera.fieldOfView.value.value;
    plan.param.fieldOfViewMode = camera.fieldOfView.value.mode;
    plan.param.readoutTime = camera.readoutTime.value;
    plan.param.timeOffset = camera.timeOffset.value;
    plan.notes = describe(camera);
}

/// Frames keep their times; the log goes to their clock.
void takeOutDrift(double drift, MotionLog& log, ZPR_Param& param) {
    if (drift == 0.0) return;
    const double factor = 1.0 / (1.0 + drift);
    log.stretch(factor);
    param.timeOffset *= factor;
}

/// Whether an output dimension shows more than the input has. The library adds half the size
/// difference, in input pixels, to the zoom about the centre.
bool looksOutside(int input, int output, int cropPercent) {
    const double shown = input * cropPercent / 100.0;
    const int margin = (input - output) / 2;
    const double first = margin * shown / output - shown / 2.0 + output / 2.0;
    return first < 0.0 || first + shown > input;
}

void chooseSizes(const ClipOptions& options, const VideoProperties& video, StabilizePlan& plan) {
    if (options.crop == 100) {
        plan.warnings.push_back("--crop 100 leaves no margin: frames will hardly be stabilized");
    }
    if (!options.outputSize) {
        describeImage(PaddedFrame(video.width).width(), video.height, plan.param.inputImage);
        plan.param.outputImage = plan.param.inputImage;
        return;
    }
    const int width = options.outputSize->width;
    const int height = options.outputSize->height;
    if (width > video.width || height > video.height || width % 2 != 0 || height % 2 != 0) {
        throw std::runtime_error(
            fmt::format("--output-size: {}x{} is not even and at most the input's {}x{}", width,
                        height, video.width, video.height));
    }
    describeImage(video.width, video.height, plan.param.inputImage);
    describeImage(width, height, plan.param.outputImage);
    const std::string size = fmt::format("--output-size {}x{}", width, height);
    if (width % kMeshStep != 0) {
        plan.warnings.push_back(fmt::format(
            "{}: the last {} columns will be stretched; a width that is a multiple of {} avoids it",
            size, width % kMeshStep, kMeshStep));
    }
    if (looksOutside(video.width, width, options.crop) ||
        looksOutside(video.height, height, options.crop)) {
        plan.warnings.push_back(fmt::format(
            "{} with --crop {} looks outside the input: frames will not be stabilized; use a "
            "smaller --crop",
            size, options.crop));
    } else if (width != video.width || height != video.height) {
        plan.warnings.push_back(fmt::format(
            "{}: not the centre of the input is shown; the input's size does that", size));
    }
}

/// The mean of the first second.
Vec3 initialGravity(const std::vector<MotionSample>& gravity) {
    Vec3 sum{};
    double count = 0.0;
    for (const MotionSample& sample : gravity) {
        if (sample.time > gravity.front().time + 1.0) break;
        for (size_t axis = 0; axis < 3; ++axis) sum[axis] += sample.value[axis];
        count += 1.0;
    }
    for (double& v : sum) v /= count;
    return sum;
}

/// The gravity samples to feed, the first one no later than the first rate.
std::vector<MotionSample> chooseGravity(const ClipOptions& options, const ClipInputs& clip,
                                        const MotionLog& log, StabilizePlan& plan) {
    const double start = log.rates.front().time;
    const auto made = [&](const Vec3& g, const std::string& source) {
        plan.notes.push_back(
            fmt::format("one made-up gravity sample, {:g},{:g},{:g} m/s^2 in "
                        "device axes ({})",
                        g[0], g[1], g[2], source));
        return std::vector<MotionSample>{{start, g}};
    };
    if (!options.gravity.empty()) {
        return made({options.gravity[0], options.gravity[1], options.gravity[2]}, "--gravity");
    }
    if (log.gravity.empty()) {
        const std::string without = plan.motionLog + " has no gravity; ";
        if (const auto& hint = clip.metadata.gravityHint) {
            return made(*hint, without + clip.files.metadata);
        }
        return made({kStandardGravity, 0.0, 0.0}, without + "taking the picture's top for up");
    }
    std::vector<MotionSample> gravity = {{start, initialGravity(log.gravity)}};
    if (options.gravityRate > 0.0) {
        const auto later = thinned(log.gravity, options.gravityRate);
        gravity.insert(gravity.end(), later.begin() + 1, later.end());
    }
    return gravity;
}

/// Puts the log in device axes and says what it is.
void applyAxes(const ClipOptions& options, const Setting<AxisMapping>& axes, MotionLog& log,
               StabilizePlan& plan) {
    plan.axes = axes.value.letters();
    const bool orientations = feedsOrientations(log, options.sensorMask);
    plan.notes.push_back(
        fmt::format("{}: {}, {} {} at {:.0f} Hz, axes {} ({})", fmt::join(log.files, " and "),
                    log.format, orientations ? log.orientations.size() : log.rates.size(),
                    orientations ? "orientations" : "samples",
                    orientations ? samplesPerSecond(log.orientations) : samplesPerSecond(log.rates),
                    plan.axes, axes.origin));
    for (const std::string& note : log.notes) {
        plan.notes.push_back(fmt::format("{}: {}", plan.motionLog, note));
    }
    const size_t late = orientations ? log.outOfOrder.orientations : log.outOfOrder.rates;
    if (late > 0) {
        plan.warnings.push_back(fmt::format("{}: {} samples were out of order and have been sorted",
                                            plan.motionLog, late));
    }
    log.toDeviceAxes(axes.value);
}

/// Averages or leaves out what the library cannot hold.
template <class Sample>
void thin(std::vector<Sample>& samples, const char* how, const ClipOptions& options,
          const VideoProperties& video, StabilizePlan& plan) {
    const double limit =
        largestSampleRate(options.delay, video.framesPerSecond, plan.param.readoutTime);
    if (samplesPerSecond(samples) <= limit) return;
    samples = thinned(samples, limit);
    plan.notes.push_back(
        fmt::format("{} to {:.0f} samples per second, as many as the library holds with --delay {}",
                    how, samplesPerSecond(samples), options.delay));
}

void chooseSamples(const ClipOptions& options, const ClipInputs& clip, MotionLog& log,
                   StabilizePlan& plan) {
    if (feedsOrientations(log, options.sensorMask)) {
        plan.param.sensorMask = options.sensorMask.value_or(ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1));
        thin(log.orientations, "thinned", options, clip.video, plan);
        plan.samples = samplesOf(log.orientations, plan.param.sensorMask);
        return;
    }
    plan.param.sensorMask = options.sensorMask.value_or(ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) |
                                                        ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1));
    thin(log.rates, "averaged", options, clip.video, plan);
    plan.samples =
        samplesOf(chooseGravity(options, clip, log, plan), log.rates, plan.param.sensorMask);
}

}  // namespace

double largestSampleRate(int delayFrames, double framesPerSecond, double readoutTime) {
    // What the public header says of ZPR_Param::delayFrames.
    double records = 256.0;
    const double wanted = (delayFrames * kDelayFramePeriod + 1.0) * kSensorRate;
    while (records < wanted) records *= 2.0;
    // From one frame before the output frame to a sample past the newest frame's readout; some
    // frames come late.
    constexpr double kSlack = 1.05;
    const double seconds = kSlack * ((delayFrames + 1) / framesPerSecond + readoutTime);
    return (records - 2.0) / seconds;
}

StabilizePlan makePlan(const ClipOptions& options, const ClipInputs& clip,
                       const ClipMetadata& found) {
    StabilizePlan plan{};
    ZPR_GetDefaultParam(&plan.param);
    const ClipMetadata& metadata = clip.metadata;
    plan.warnings = metadata.warnings;
    plan.warnings.insert(plan.warnings.end(), found.warnings.begin(), found.warnings.end());
    if (!clip.log) {
        throw std::runtime_error(
            "no motion log: give --motion, or --clip with one that names it; the video itself has "
            "no telemetry");
    }
    plan.motionLog = clip.files.motion;
    MotionLog log = *clip.log;

    chooseSizes(options, clip.video, plan);
    const CameraSettings camera = resolveCamera(options.camera, clip, found);
    setCamera(camera, plan);
    takeOutDrift(camera.clockDrift.value, log, plan.param);
    plan.param.cropPercent = options.crop;
    plan.param.smoothingLevel = options.smoothing;
    plan.param.delayFrames = options.delay;
    plan.frameTimes = metadata.frameTimes;
    applyAxes(options, camera.axes, log, plan);
    chooseSamples(options, clip, log, plan);
    return plan;
}

}  // namespace framehold
