#include "gstreamer/clip_motion.h"

#include "common/library_constants.h"
#include "gstreamer/stabilizer_session.h"
#include "motion/sensor_samples.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Calls a function; its errors get the name of the property that has led to it.
template <class Function>
auto naming(const char* property, const Function& function) {
    try {
        return function();
    } catch (const std::exception& error) {
        throw std::runtime_error(fmt::format("{}: {}", property, error.what()));
    }
}

/// The camera and its clock: properties go before what the clip's files say.
CameraSettings cameraOf(const ElementSettings& settings, const ClipInputs& clip) {
    std::optional<FieldOfView> view;
    if (settings.fieldOfView) view = {*settings.fieldOfView, settings.fieldOfViewMode};
    if (settings.focalLength) view = {*settings.focalLength, ZPR_FOV_FOCAL_LENGTH};
    std::optional<AxisMapping> axes;
    if (!settings.axes.empty()) {
        axes = naming("axes", [&] { return AxisMapping::fromLetters(settings.axes); });
    }
    CameraSettings camera = knownCamera(clip);
    if (camera.fieldOfView.source == Source::kDefault) {
        camera.fieldOfView.value.mode = settings.fieldOfViewMode;
    }
    camera.fieldOfView.prefer(view, settings.focalLength ? "focal-length" : "field-of-view");
    camera.readoutTime.prefer(settings.readoutTime, "readout-time");
    camera.timeOffset.prefer(settings.timeOffset, "time-offset");
    camera.axes.prefer(axes, "axes");
    return camera;
}

ZPR_Image imageOf(int width, int height) {
    ZPR_Image image{};
    image.format = ZPR_FORMAT_SEMIPLANAR_1;
    image.width = width;
    image.height = height;
    image.pitch[0] = image.pitch[1] = width;
    return image;
}

std::optional<int> maskOf(const ElementSettings& settings) {
    if (settings.sensorMask == kAutoMask) return std::nullopt;
    return static_cast<int>(settings.sensorMask);
}

}  // namespace

ClipInputs loadClip(const ElementSettings& settings, const std::string& video) {
    ClipFiles named;
    named.video = video.empty() ? "-" : video;
    named.metadata = settings.clipFile;
    named.motion = settings.motionFile;
    const char* finder = settings.clipFile.empty() ? "motion-from-video" : "clip-file";
    FoundClip found = naming(finder, [&] { return findClipFiles(named); });
    const char* reader = settings.motionFile.empty() ? finder : "motion-file";
    ClipInputs clip = naming(reader, [&] {
        const bool isKnown = !video.empty();
        return loadClipInputs(std::move(found),
                              isKnown ? propertiesOf(VideoReader(video)) : VideoProperties());
    });
    if (!clip.log && !video.empty()) {
        throw std::runtime_error("motion-from-video: " + video +
                                 " holds no telemetry, and no motion log is beside it");
    }
    return clip;
}

int StreamProperties::paddedWidth() const {
    if (!keepsSize()) return width;
    return (width + kMeshStep - 1) / kMeshStep * kMeshStep;
}

ZPR_Param libraryParam(const ElementSettings& settings, const ClipInputs& clip,
                       const StreamProperties& stream) {
    const CameraSettings camera = cameraOf(settings, clip);
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = imageOf(stream.paddedWidth(), stream.height);
    param.outputImage =
        stream.keepsSize() ? param.inputImage : imageOf(stream.outputWidth, stream.outputHeight);
    FieldOfView view = camera.fieldOfView.value;
    if (stream.paddedWidth() != stream.width) {
        // The angle is that of the frame without its padding.
        view = {focalLength(view, clip.video), ZPR_FOV_FOCAL_LENGTH};
    }
    param.fieldOfView = view.size;
    param.fieldOfViewMode = view.mode;
    param.readoutTime = camera.readoutTime.value;
    param.timeOffset = camera.timeOffset.value * camera.clockFactor();
    param.sensorMask = static_cast<int>(settings.sensorMask);
    param.cropPercent = settings.crop;
    param.smoothingLevel =
        settings.smoothing == kAutoSmoothing ? kStrongestChosen : settings.smoothing;
    param.delayFrames = settings.delay;
    return param;
}

std::vector<std::string> parameterWarnings(const ElementSettings& settings, const ClipInputs& clip,
                                           const StreamProperties& stream) {
    const CameraSettings camera = cameraOf(settings, clip);
    std::vector<std::string> warnings = clip.metadata.warnings;
    if (camera.fieldOfView.source == Source::kDefault) {
        warnings.emplace_back(
            "field-of-view: not known, a view of 65.4 degrees across the width is assumed; set "
            "focal-length, field-of-view or clip-file");
    }
    if (!camera.lens.value.isNone()) {
        warnings.push_back(camera.lens.origin + ": its lens is ignored, a pinhole is assumed");
    }
    if (settings.crop == 100) {
        warnings.emplace_back("crop: 100 leaves no margin: frames will hardly be stabilized");
    }
    if (looksOutside(stream.width, stream.outputWidth, settings.crop) ||
        looksOutside(stream.height, stream.outputHeight, settings.crop)) {
        warnings.push_back(fmt::format(
            "crop: {} with an output of {}x{} looks outside the input of {}x{}: frames will not be "
            "stabilized; set a smaller crop",
            settings.crop, stream.outputWidth, stream.outputHeight, stream.width, stream.height));
    }
    return warnings;
}

AxisMapping axesOf(const ElementSettings& settings, const ClipInputs& clip) {
    return cameraOf(settings, clip).axes.value;
}

std::vector<ZPR_SensorData> logSamples(const ElementSettings& settings, const ClipInputs& clip,
                                       double framesPerSecond, ZPR_Param& param) {
    const CameraSettings camera = cameraOf(settings, clip);
    MotionLog log = *clip.log;
    log.stretch(camera.clockFactor());
    naming("axes", [&] { log.toDeviceAxes(camera.axes.value); });
    const SensorTypes types = chooseSensors(maskOf(settings), "sensor-mask", log);
    param.sensorMask = types.mask;
    limitRate(log, types, largestSampleRate(settings.delay, framesPerSecond, param.readoutTime));
    std::optional<Vec3> gravity;
    if (log.gravity.empty()) gravity = clip.metadata.gravityHint.value_or(kPictureTop);
    return sensorSamples(log, types, gravity, 0.0);
}

void toDeviceAxes(const AxisMapping& axes, ZPR_SensorData& sample) {
    double* v = sample.value;
    if (sample.type < ZPR_SENSOR_ROTATION_1) {
        const Vec3 device = axes.toDevice({v[0], v[1], v[2]});
        std::copy(device.begin(), device.end(), v);
        return;
    }
    MotionLog log;
    log.orientations = {{sample.timestamp, v[3], v[0], v[1], v[2]}};
    naming("axes", [&] { log.toDeviceAxes(axes); });
    const OrientationSample& turned = log.orientations.front();
    const double values[] = {turned.x, turned.y, turned.z, turned.w};
    std::copy(std::begin(values), std::end(values), v);
}

}  // namespace framehold
