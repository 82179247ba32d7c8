#include "calibrate/calibrate_clip.h"

#include "calibrate/calibration_texts.h"
#include "common/interruption.h"
#include "common/progress.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kSecondsForRun = 20.0;  // that are looked at before a clip is stabilized

/// Takes the frames' times from elsewhere; the clip may have fewer frames.
void setFrameTimes(CalibrationClip& clip, const std::vector<double>& times) {
    std::vector<double>& frameTimes = clip.tracks.frameTimes;
    if (times.size() < frameTimes.size()) {
        throw std::runtime_error(fmt::format("{}: its times are those of {} frames, it has more",
                                             clip.name, times.size()));
    }
    std::copy_n(times.begin(), frameTimes.size(), frameTimes.begin());
}

/// The value if options or metadata say it.
template <class T>
std::optional<T> given(const Setting<T>& setting) {
    const bool isGiven = setting.source == Source::kOption || setting.source == Source::kMetadata;
    return isGiven ? std::optional(setting.value) : std::nullopt;
}

/// Values that were found for certain and do not belong to one recording.
ClipMetadata wellDetermined(const Calibration& calibration) {
    const auto isCertain = [](Confidence confidence) {
        return confidence == Confidence::kWellDetermined;
    };
    ClipMetadata camera;
    const auto& lens = calibration.lens;
    // A focal length and a lens that were found together mean nothing one without the other.
    if (isCertain(calibration.focal.confidence) && (!lens || isCertain(lens->k1.confidence))) {
        camera.focalLength = calibration.focal.value;
        if (lens) camera.lens = lens->lens();
    }
    if (isCertain(calibration.readout.confidence)) {
        camera.readoutTime = std::max(0.0, calibration.readout.value);
    }
    if (isCertain(calibration.axesConfidence)) camera.axes = calibration.axes;
    return camera;
}

}  // namespace

CalibrationSettings givenOf(const CameraSettings& camera, const VideoProperties& video) {
    CalibrationSettings known;
    if (const auto view = given(camera.fieldOfView))
        known.focal = focalLength(*view, video, camera.lens.value);
    known.readout = given(camera.readoutTime);
    known.timeOffset = given(camera.timeOffset);
    known.axes = given(camera.axes);
    known.lens = given(camera.lens);
    return known;
}

CalibrationClip trackClip(const ClipInputs& clip, double seconds, const ProgressTarget& target) {
    CalibrationClip tracked;
    tracked.name = clip.files.video;
    tracked.rates = clip.log->angularRates();
    TrackSettings settings;
    settings.maxFrames = static_cast<int>(std::ceil(seconds * clip.video.framesPerSecond));
    Progress progress("tracking " + clip.files.video,
                      std::min<int64_t>(clip.video.expectedFrames, settings.maxFrames), target);
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
    if (calibration.lens && calibration.lens->k1.isUsable()) {
        metadata.lens = calibration.lens->lens();
    }
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

FoundMetadata findUnknownMetadata(const CameraSettings& camera, Engine engine,
                                  const ClipInputs& clip, const ProgressTarget& progress) {
    if (clip.files.video == "-") {
        throw std::runtime_error("--auto: needs a file, standard input can be read only once");
    }
    CalibrationSettings known = givenOf(camera, clip.video);
    if (engine == Engine::kLive && !known.lens) known.lens = LensDistortion();
    Calibration calibration;
    try {
        calibration =
            calibrate({trackClip(clip, kSecondsForRun, progress)}, known, throwIfInterrupted);
    } catch (const HardlyTurns& still) {
        ClipMetadata nothing;
        nothing.warnings.emplace_back(still.what());
        return {nothing, {}};
    }
    ClipMetadata found = metadataOf(calibration, 0);
    if (!found.axes) {
        throw std::runtime_error(
            fmt::format("{}: --auto: the axes {} and {} fit about as well; give --axes",
                        clip.files.video, calibration.axes.letters(), calibration.runnerUp));
    }
    if (const auto& rival = calibration.clocks[0].rivalOffset) {
        found.warnings.push_back(fmt::format(
            "{}: the time offsets {:.4f} s and {:.4f} s fit about as well; taking the first",
            clip.files.video, calibration.clocks[0].offset.value, *rival));
    }
    if (isDistorted(calibration) && !calibration.lens) {
        found.warnings.push_back(clip.files.video + ": " + distortionText(calibration));
    }
    std::string missing;
    const auto name = [&missing](bool isKnown, const char* what) {
        if (!isKnown) missing += (missing.empty() ? "" : ", ") + std::string(what);
    };
    name(found.focalLength.has_value(), "focal length");
    name(found.readoutTime.has_value(), "readout");
    name(found.timeOffset.has_value(), "time offset");
    if (!missing.empty()) {
        found.warnings.push_back(
            fmt::format("{}: shakes too little to determine: {}", clip.files.video, missing));
    }
    return {found, wellDetermined(calibration)};
}

}  // namespace framehold
