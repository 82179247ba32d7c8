#include "clip/clip_settings.h"

#include "common/library_constants.h"
#include "motion/sensor_samples.h"

#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

void warnAboutOutputSize(const PictureSize& video, ClipSettings& settings) {
    const auto& [width, height] = settings.output;
    const std::string size = fmt::format("--output-size {}x{}", width, height);
    if (width % kMeshStep != 0) {
        settings.warnings.push_back(fmt::format(
            "{}: the last {} columns will be stretched; a width that is a multiple of {} avoids it",
            size, width % kMeshStep, kMeshStep));
    }
    if (looksOutside(video.width, width, settings.crop) ||
        looksOutside(video.height, height, settings.crop)) {
        settings.warnings.push_back(fmt::format(
            "{} with --crop {} looks outside the input: frames will not be stabilized; use a "
            "smaller --crop",
            size, settings.crop));
    } else if (width != video.width || height != video.height) {
        settings.warnings.push_back(fmt::format(
            "{}: not the centre of the input is shown; the input's size does that", size));
    }
}

void chooseSizes(const std::optional<PictureSize>& output, const PictureSize& video,
                 ClipSettings& settings) {
    if (!output) {
        const int steps = (video.width + kMeshStep - 1) / kMeshStep;
        settings.input = settings.output = {steps * kMeshStep, video.height};
        return;
    }
    settings.input = video;
    settings.output = *output;
    const auto& [width, height] = *output;
    if (width > video.width || height > video.height || width % 2 != 0 || height % 2 != 0) {
        throw std::runtime_error(
            fmt::format("--output-size: {}x{} is not even and at most the input's {}x{}", width,
                        height, video.width, video.height));
    }
    warnAboutOutputSize(video, settings);
}

/// One sample in place of logged gravity: what the user wants, else what is known of a log without.
std::optional<Setting<Vec3>> madeUpGravity(const std::vector<double>& option,
                                           const ClipInputs& clip) {
    if (!option.empty()) {
        return Setting<Vec3>{{option[0], option[1], option[2]}, Source::kOption, "--gravity"};
    }
    if (!clip.log->gravity.empty()) return std::nullopt;
    const std::string without = clip.files.motion + " has no gravity; ";
    if (const auto& hint = clip.metadata.gravityHint) {
        return Setting<Vec3>{*hint, Source::kMetadata, without + clip.files.metadata};
    }
    return Setting<Vec3>{{kStandardGravity, 0.0, 0.0},
                         Source::kDefault,
                         without + "taking the picture's top for up"};
}

void warnAboutInputs(const ClipInputs& clip, ClipSettings& settings) {
    if (!clip.log) return;
    const auto& view = settings.camera.fieldOfView;
    if (view.source == Source::kDefault) {
        settings.warnings.push_back(fmt::format(
            "the focal length is not known: assuming a view of {:.1f} degrees across the width; "
            "give --focal or --fov",
            view.value.size));
    }
    if (settings.engine == Engine::kLive && !clip.log->lensShifts.empty()) {
        settings.warnings.push_back(
            clip.files.motion +
            ": the lens moved against the shake, which only --engine offline takes into account");
    }
    const OutOfOrder& late = clip.log->outOfOrder;
    const size_t count = settings.feedsOrientations() ? late.orientations : late.rates;
    if (count == 0) return;
    settings.warnings.push_back(fmt::format("{}: {} samples were out of order and have been sorted",
                                            clip.files.motion, count));
}

ZPR_Image imageOf(const PictureSize& size) {
    ZPR_Image image{};
    image.format = ZPR_FORMAT_SEMIPLANAR_1;
    image.width = size.width;
    image.height = size.height;
    image.pitch[0] = image.pitch[1] = size.width;
    return image;
}

/// Decides on what only the library needs.
void resolveLive(const ClipOptions& options, const ClipInputs& clip, ClipSettings& settings) {
    constexpr int kDefaultDelay = 30;  // frames
    if (!clip.log) {
        throw std::runtime_error(
            "no motion log: give --motion, or --clip with one that names it; the video itself has "
            "no telemetry. Only --engine offline does without");
    }
    if (options.straightens) {
        throw std::runtime_error("--straighten: only --engine offline knows lenses");
    }
    const auto& lens = settings.camera.lens;
    if (!lens.value.isNone()) {
        settings.warnings.push_back(
            fmt::format("the lens ({}) is ignored: --engine live knows none, --engine offline does",
                        lens.origin));
    }
    settings.delay = options.delay.value_or(kDefaultDelay);
    chooseSizes(options.outputSize, {clip.video.width, clip.video.height}, settings);
    if (settings.input.width != clip.video.width) {
        // An angle is that of the video, without what pads it.
        settings.view = {focalLength(settings.view, clip.video), ZPR_FOV_FOCAL_LENGTH};
    }
    settings.largestSampleRate = largestSampleRate(settings.delay, clip.video.framesPerSecond,
                                                   settings.camera.readoutTime.value);
    const SensorTypes types = chooseSensors(options.sensorMask, "--sensor-mask", *clip.log);
    settings.sensorMask = types.mask;
    settings.motionType = types.motion;
    settings.gravityType = types.gravity;
    settings.gravity = madeUpGravity(options.gravity, clip);
    settings.gravityRate = options.gravityRate;
}

/// Only gravity tells what is level.
void requireGravity(const ClipInputs& clip) {
    if (!clip.log) {
        throw std::runtime_error(
            "--horizon needs a motion log with gravity: give --motion, or --clip with one that "
            "names "
            "it");
    }
    if (clip.log->gravity.empty() && clip.log->orientations.empty()) {
        throw std::runtime_error(
            "--horizon: " + clip.files.motion +
            " holds neither an accelerometer nor orientations, which tell what "
            "is level");
    }
}

/// Without a log nothing is known of when rows are read, unless the user knows. The sensors are those
/// that the library would be fed, for the parameters that a run records.
void resolveOffline(const ClipOptions& options, const ClipInputs& clip, ClipSettings& settings) {
    settings.input = {clip.video.width, clip.video.height};
    settings.output = options.outputSize.value_or(settings.input);
    settings.horizon = options.horizon;
    settings.zooms = options.zoom == "dynamic";
    if (settings.horizon > 0.0) requireGravity(clip);
    settings.straightens = options.straightens;
    Setting<double>& readout = settings.camera.readoutTime;
    if (!clip.log && readout.source == Source::kDefault)
        readout = {0.0, Source::kDefault, "no log"};
    settings.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
    if (!clip.log || !clip.log->rates.empty()) return;
    settings.motionType = ZPR_SENSOR_ROTATION_1;
    settings.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1);
}

}  // namespace

const char* nameOf(Engine engine) { return engine == Engine::kLive ? "live" : "offline"; }

ClipSettings resolveSettings(const ClipOptions& options, const ClipInputs& clip,
                             const ClipMetadata& found) {
    ClipSettings settings;
    settings.engine = options.engine;
    settings.warnings = clip.metadata.warnings;
    settings.warnings.insert(settings.warnings.end(), found.warnings.begin(), found.warnings.end());
    settings.crop = options.crop;
    if (settings.crop == 100) {
        settings.warnings.push_back(
            "--crop 100 leaves no margin: frames will hardly be stabilized");
    }
    constexpr int kDefaultSmoothing = 9;
    const bool isAuto = options.smoothing == kAutoSmoothing;
    settings.smoothing = isAuto ? kDefaultSmoothing : options.smoothing;
    settings.choosesSmoothing = isAuto && settings.engine == Engine::kLive;
    settings.camera = resolveCamera(options.camera, clip, found);
    settings.view = settings.camera.fieldOfView.value;
    if (settings.engine == Engine::kLive) {
        resolveLive(options, clip, settings);
    } else {
        resolveOffline(options, clip, settings);
    }
    warnAboutInputs(clip, settings);
    return settings;
}

ZPR_Param paramOf(const ClipSettings& settings) {
    const CameraSettings& camera = settings.camera;
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = imageOf(settings.input);
    param.outputImage = imageOf(settings.output);
    param.fieldOfView = settings.view.size;
    param.fieldOfViewMode = settings.view.mode;
    param.readoutTime = camera.readoutTime.value;
    param.timeOffset = camera.timeOffset.value * settings.camera.clockFactor();
    param.sensorMask = settings.sensorMask;
    param.cropPercent = settings.crop;
    param.smoothingLevel = settings.smoothing;
    param.delayFrames = settings.delay;
    return param;
}

}  // namespace framehold
