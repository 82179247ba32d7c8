#include "calibrate/calibrate_clip.h"

#include "common/angles.h"
#include "common/interruption.h"
#include "common/progress.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kSecondsForRun = 20.0;  // that are looked at before a clip is stabilized

/// The focal length that options or metadata says, in pixels of the video.
std::optional<double> knownFocal(const CameraOptions& options, const ClipMetadata& metadata,
                                 const VideoProperties& video) {
    if (options.focalLength) return options.focalLength;
    if (options.fieldOfView) {
        double side = video.width;
        if (options.fieldOfViewAcross == "height") side = video.height;
        if (options.fieldOfViewAcross == "diagonal") side = std::hypot(side, video.height);
        return side / 2.0 / std::tan(toRadians(*options.fieldOfView / 2.0));
    }
    if (!metadata.focalLength) return std::nullopt;
    return *metadata.focalLength * (metadata.width ? double(video.width) / *metadata.width : 1.0);
}

/// Takes the frames' times from elsewhere; the clip may have fewer frames.
void setFrameTimes(CalibrationClip& clip, const std::vector<double>& times) {
    std::vector<double>& frameTimes = clip.tracks.frameTimes;
    if (times.size() < frameTimes.size()) {
        throw std::runtime_error(fmt::format("{}: its times are those of {} frames, it has more",
                                             clip.name, times.size()));
    }
    std::copy_n(times.begin(), frameTimes.size(), frameTimes.begin());
}

template <class T>
std::optional<T> firstOf(const std::optional<T>& a, const std::optional<T>& b) {
    return a ? a : b;
}

}  // namespace

CalibrationClip trackClip(const ClipInputs& clip, double seconds, bool showProgress) {
    CalibrationClip tracked;
    tracked.name = clip.files.video;
    tracked.rates = clip.log->angularRates();
    TrackSettings settings;
    settings.maxFrames = static_cast<int>(std::ceil(seconds * clip.video.framesPerSecond));
    Progress progress("tracking " + clip.files.video,
                      std::min<int64_t>(clip.video.expectedFrames, settings.maxFrames),
                      showProgress);
    tracked.tracks = trackFeatures(clip.files.video, settings, [&progress] {
        throwIfInterrupted();
        progress.advance();
    });
    const std::vector<double>& times = clip.metadata.frameTimes;
    if (!times.empty()) setFrameTimes(tracked, times);
    return tracked;
}

ClipMetadata metadataOf(const Calibration& calibration, size_t clip) {
    ClipMetadata metadata;
    metadata.width = calibration.width;
    const auto take = [](std::optional<double>& to, const CalibratedValue& finding) {
        if (finding.isUsable()) to = finding.value;
    };
    take(metadata.focalLength, calibration.focal);
    // Noise can make a readout of about 0 a negative one.
    if (calibration.readout.isUsable())
        metadata.readoutTime = std::max(0.0, calibration.readout.value);
    take(metadata.timeOffset, calibration.clocks[clip].offset);
    if (calibration.clocks[clip].drift.value != 0.0) {
        take(metadata.clockDrift, calibration.clocks[clip].drift);
    }
    if (calibration.axesConfidence != Confidence::kUnobservable) metadata.axes = calibration.axes;
    return metadata;
}

ClipMetadata findUnknownMetadata(const CameraOptions& options, const ClipInputs& clip,
                                 bool showProgress) {
    if (clip.files.video == "-") {
        throw std::runtime_error("--auto: needs a file, standard input can be read only once");
    }
    if (!clip.log) return {};
    const ClipMetadata& metadata = clip.metadata;
    CalibrationSettings known;
    known.focal = knownFocal(options, metadata, clip.video);
    known.readout = firstOf(options.readoutTime, metadata.readoutTime);
    known.timeOffset = firstOf(options.timeOffset, metadata.timeOffset);
    known.axes = metadata.axes;
    if (options.axes) known.axes = AxisMapping::fromLetters(*options.axes);
    ClipMetadata found = metadataOf(
        calibrate({trackClip(clip, kSecondsForRun, showProgress)}, known, throwIfInterrupted), 0);
    std::string missing;
    const auto name = [&missing](bool isKnown, const char* what) {
        if (!isKnown) missing += (missing.empty() ? "" : ", ") + std::string(what);
    };
    name(found.focalLength.has_value(), "focal length");
    name(found.readoutTime.has_value(), "readout");
    name(found.timeOffset.has_value(), "time offset");
    name(found.axes.has_value(), "axes");
    if (!missing.empty()) {
        found.warnings.push_back(
            fmt::format("{}: shakes too little to tell: {}", clip.files.video, missing));
    }
    return found;
}

}  // namespace framehold
