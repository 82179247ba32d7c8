#include "gstreamer/clip_motion.h"

#include "common/angles.h"
#include "common/library_constants.h"
#include "gstreamer/stabilizer_session.h"
#include "motion/log_pairing.h"
#include "motion/motion_log_reader.h"
#include "motion/sensor_samples.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <initializer_list>
#include <iterator>
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

/// The log of a video: the telemetry in it, else what an app has written beside it.
void findMotion(const std::string& video, ClipData& clip) {
    clip.log = readVideoTelemetry(video);
    clip.motionFile = video;
    if (clip.log) return;
    PairedLogs logs;
    const std::string name = std::filesystem::path(video).replace_extension().string();
    for (const char* extension : {".gcsv", ".csv", ".txt", ".log"}) {
        const std::string log = name + extension;
        if (logs.motion.empty() && std::filesystem::exists(log)) logs.motion = log;
    }
    if (logs.motion.empty()) logs = findPairedLogs(video);
    if (logs.motion.empty()) {
        throw std::runtime_error(video + " holds no telemetry, and no motion log is beside it");
    }
    clip.log = readMotionLog(logs.motion);
    clip.motionFile = std::move(logs.motion);
    if (clip.metadata.frameTimes.empty() && !logs.frames.empty()) {
        clip.metadata.frameTimes = readFrameTimes(logs.frames);
    }
}

/// Seconds of the frames' clock in a second of the log's.
double clockFactor(const ClipData& clip) {
    return 1.0 / (1.0 + clip.metadata.clockDrift.value_or(0.0));
}

/// Focal length in pixels of a pinhole with an angle across a side.
double focalLengthOf(double degrees, int mode, const StreamProperties& stream) {
    double side = stream.width;
    if (mode == ZPR_FOV_HEIGHT) side = stream.height;
    if (mode == ZPR_FOV_DIAGONAL) side = std::hypot(stream.width, stream.height);
    return side / 2.0 / std::tan(toRadians(degrees / 2.0));
}

void setFieldOfView(const ElementSettings& settings, const ClipData& clip,
                    const StreamProperties& stream, ZPR_Param& param) {
    const ClipMetadata& metadata = clip.metadata;
    const auto inPixels = [&](double focalLength) {
        param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
        param.fieldOfView = focalLength;
    };
    if (settings.focalLength) return inPixels(*settings.focalLength);
    if (!settings.fieldOfView && metadata.focalLength) {
        // Metadata is that of the clip's own size; the video may have been scaled since.
        const double scale =
            metadata.width ? static_cast<double>(stream.width) / *metadata.width : 1.0;
        return inPixels(*metadata.focalLength * scale);
    }
    param.fieldOfViewMode = settings.fieldOfViewMode;
    if (settings.fieldOfView) param.fieldOfView = *settings.fieldOfView;
    if (stream.paddedWidth() == stream.width) return;
    // The angle is that of the frame without its padding.
    inPixels(focalLengthOf(param.fieldOfView, param.fieldOfViewMode, stream));
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

ClipData loadClip(const ElementSettings& settings, const std::string& video) {
    ClipData clip;
    if (!settings.clipFile.empty()) {
        clip.metadata = naming("clip-file", [&] { return readClipMetadata(settings.clipFile); });
    }
    const bool isNamed = !settings.motionFile.empty();
    if (isNamed || clip.metadata.motionLog) {
        clip.motionFile = isNamed ? settings.motionFile : *clip.metadata.motionLog;
        clip.log = naming(isNamed ? "motion-file" : "clip-file",
                          [&] { return readMotionLog(clip.motionFile); });
    } else if (settings.motionFromVideo && !video.empty()) {
        naming("motion-from-video", [&] { findMotion(video, clip); });
    }
    return clip;
}

int StreamProperties::paddedWidth() const {
    if (!keepsSize()) return width;
    return (width + kMeshStep - 1) / kMeshStep * kMeshStep;
}

ZPR_Param libraryParam(const ElementSettings& settings, const ClipData& clip,
                       const StreamProperties& stream) {
    const ClipMetadata& metadata = clip.metadata;
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = imageOf(stream.paddedWidth(), stream.height);
    param.outputImage =
        stream.keepsSize() ? param.inputImage : imageOf(stream.outputWidth, stream.outputHeight);
    setFieldOfView(settings, clip, stream, param);
    const std::optional<double> logged = clip.log ? clip.log->readoutTime : std::nullopt;
    param.readoutTime = settings.readoutTime.value_or(
        metadata.readoutTime.value_or(logged.value_or(param.readoutTime)));
    // Not the library's default, which is that of one phone's live camera.
    param.timeOffset =
        settings.timeOffset.value_or(metadata.timeOffset.value_or(0.0)) * clockFactor(clip);
    param.sensorMask = static_cast<int>(settings.sensorMask);
    param.cropPercent = settings.crop;
    param.smoothingLevel =
        settings.smoothing == kAutoSmoothing ? kStrongestChosen : settings.smoothing;
    param.delayFrames = settings.delay;
    return param;
}

std::vector<std::string> parameterWarnings(const ElementSettings& settings, const ClipData& clip,
                                           const StreamProperties& stream) {
    std::vector<std::string> warnings = clip.metadata.warnings;
    if (!settings.focalLength && !settings.fieldOfView && !clip.metadata.focalLength) {
        warnings.emplace_back(
            "field-of-view: not known, a view of 65.4 degrees across the width is assumed; set "
            "focal-length, field-of-view or clip-file");
    }
    if (clip.metadata.lens && !clip.metadata.lens->isNone()) {
        warnings.emplace_back("clip-file: its lens is ignored, a pinhole is assumed");
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

AxisMapping axesOf(const ElementSettings& settings, const ClipData& clip) {
    if (!settings.axes.empty()) {
        return naming("axes", [&] { return AxisMapping::fromLetters(settings.axes); });
    }
    if (clip.metadata.axes) return *clip.metadata.axes;
    return clip.log ? clip.log->orientation : AxisMapping();
}

std::vector<ZPR_SensorData> logSamples(const ElementSettings& settings, const ClipData& clip,
                                       double framesPerSecond, ZPR_Param& param) {
    MotionLog log = *clip.log;
    log.stretch(clockFactor(clip));
    naming("axes", [&] { log.toDeviceAxes(axesOf(settings, clip)); });
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
    log.toDeviceAxes(axes);
    const OrientationSample& turned = log.orientations.front();
    const double values[] = {turned.x, turned.y, turned.z, turned.w};
    std::copy(std::begin(values), std::end(values), v);
}

}  // namespace framehold
