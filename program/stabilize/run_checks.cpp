#include "stabilize/run_checks.h"

#include "common/interruption.h"
#include "inspection/motion_check.h"
#include "measures/clip_measures.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Replaces the video's timestamps in samples by those of the frames' table.
void useTable(const std::string& video, const std::vector<double>& table,
              std::vector<FeatureTracks>& samples) {
    const std::vector<double> timestamps = frameTimestamps(video);
    if (timestamps.empty()) return;
    for (FeatureTracks& sample : samples) {
        for (double& time : sample.frameTimes) {
            // Halfway between two frames, so that rounding does not matter.
            const double slack = 0.25 * (timestamps.back() - timestamps.front()) /
                                 static_cast<double>(std::max<size_t>(1, timestamps.size() - 1));
            const auto frame = static_cast<size_t>(
                std::lower_bound(timestamps.begin(), timestamps.end(), time - slack) -
                timestamps.begin());
            time = table[std::min(frame, table.size() - 1)];
        }
    }
}

}  // namespace

std::optional<LogFinding> checkBeforeRun(const StabilizeOptions& options, const ClipInputs& clip,
                                         ClipSettings& settings, RunMessages& messages) {
    const std::string& video = clip.files.video;
    if (video == "-") {
        messages.note(
            "standard input is not compared with the motion log before the run: it can be read "
            "only once");
        return std::nullopt;
    }
    std::vector<FeatureTracks> samples = trackSamples(video, {}, throwIfInterrupted);
    if (samples.empty()) return std::nullopt;  // the run itself says what is wrong with the video
    const std::vector<double>& table = clip.metadata.frameTimes;
    if (!table.empty()) useTable(video, table, samples);
    CameraSettings& camera = settings.camera;
    const LensDistortion& lens = camera.lens.value;
    const double focal = focalLength(camera.fieldOfView.value, clip.video, lens);
    const std::vector<MotionSample> rates = clip.log->angularRates();
    // The live engine leaves them in, which is said elsewhere: the log fits all the same.
    const LensShiftTrack shifts(*clip.log, clip.video.width);
    const auto checked = [&] {
        return checkMotion(samples, rates,
                           {focal, camera.readoutTime.value, camera.timeOffset.value,
                            camera.clockDrift.value, camera.axes.value, lens, shifts},
                           throwIfInterrupted);
    };
    MotionCheck check = checked();
    const std::optional<FoundOffset> found = check.foundOffset;
    if (found && found->isCertain() && camera.timeOffset.source == Source::kDefault) {
        camera.timeOffset = {found->timeOffset, Source::kFound, "found in the clip"};
        messages.note(
            "the frames' clock is not the log's; the time offset was looked for in all of the "
            "log: " +
            describe(*found));
        check = checked();
    }
    for (const LogFinding& finding : check.findings) {
        if (finding.severity == Severity::kFatal && !options.force) {
            throw std::runtime_error(clip.files.motion + ": " + finding.text +
                                     (check.fittingOffset ? "; --auto finds what fits" : "") +
                                     "; --force goes on as it is");
        }
        messages.warn(clip.files.motion + ": " + finding.text);
    }
    return check.findings.empty() ? std::nullopt : std::optional(check.findings.front());
}

ShakeComparison::ShakeComparison(const VideoProperties& video) {
    // As many parts as before the run; of an unknown number of frames, one in every 20 seconds.
    constexpr double kUnknownPeriod = 20.0;
    const SampleSettings samples;
    partLength_ = std::max<int64_t>(10, std::llround(samples.window * video.framesPerSecond));
    const int64_t parts = samples.windows;
    partPeriod_ = video.expectedFrames > 0
                      ? std::max(partLength_, (video.expectedFrames - partLength_) / (parts - 1))
                      : std::llround(kUnknownPeriod * video.framesPerSecond);
}

bool ShakeComparison::isInPart(int64_t frame) const { return frame % partPeriod_ < partLength_; }

void ShakeComparison::Side::add(const ShakeComparison& comparison, const AVFrame& frame,
                                double time) {
    if (comparison.isInPart(frames++)) tracker.add(frame, time);
    if (frames % comparison.partPeriod_ == comparison.partLength_) parts.push_back(tracker.take());
}

std::optional<ShakeAmounts> ShakeComparison::measure() {
    constexpr double kCutoff = 1.0;  // Hz, as measures have it
    if (source_.frames % partPeriod_ < partLength_) {
        for (Side* side : {&source_, &result_}) side->parts.push_back(side->tracker.take());
    }
    double before = 0.0, after = 0.0, frames = 0.0;
    for (size_t i = 0; i < std::min(source_.parts.size(), result_.parts.size()); ++i) {
        // In less than a period of the cutoff, shake cannot be told from slower motion.
        const std::vector<double>& times = source_.parts[i].frameTimes;
        if (times.empty() || times.back() - times.front() < 1.0 / kCutoff) continue;
        const auto source = displacementOf(source_.parts[i], kCutoff);
        const auto result = displacementOf(result_.parts[i], kCutoff);
        if (!source || !result) continue;
        const auto count = static_cast<double>(source_.parts[i].frameTimes.size());
        before += count * std::pow(*source / source_.parts[i].width, 2);
        after += count * std::pow(*result / result_.parts[i].width, 2);
        frames += count;
    }
    if (frames == 0.0) return std::nullopt;
    return ShakeAmounts{std::sqrt(before / frames), std::sqrt(after / frames)};
}

void warnOfShake(const ShakeAmounts& shake, RunMessages& messages) {
    if (!shake.isWorse()) return;
    messages.lose(fmt::format(
        "the result is shakier than the source: {:.3f} % of its width RMS, the source {:.3f} %; "
        "fast pans need a smaller --crop or less --smoothing; framehold inspect says whether the "
        "log fits",
        100.0 * shake.after, 100.0 * shake.before));
}

}  // namespace framehold
