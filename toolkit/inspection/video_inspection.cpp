#include "inspection/video_inspection.h"

#include "common/interruption.h"
#include "common/text_fields.h"
#include "tracking/feature_tracks.h"
#include "tracking/global_motion.h"
#include "zpr_framehold.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

std::vector<PictureMotion> pictureMotions(const FeatureTracks& tracks) {
    std::vector<PictureMotion> motions;
    for (const auto& features : tracks.motions) {
        const auto motion = estimateGlobalMotion(features, tracks.width, tracks.height);
        motions.push_back(motion ? PictureMotion({motion->dx, motion->dy, motion->rotation})
                                 : PictureMotion());
    }
    return motions;
}

/// Compares the times beside a clip.json to the video's own.
VideoInspection::TableClock compareClocks(const std::vector<double>& table,
                                          const std::vector<double>& video) {
    const double videoSpan = video.back() - video.front();
    const double ratio = videoSpan > 0.0 ? (table.back() - table.front()) / videoSpan : 1.0;
    VideoInspection::TableClock clock{ratio - 1.0, 0.0};
    for (size_t i = 0; i < video.size(); ++i) {
        const double expected = table.front() + ratio * (video[i] - video.front());
        clock.largestDeviation = std::max(clock.largestDeviation, std::abs(table[i] - expected));
    }
    return clock;
}

size_t countUncovered(const std::vector<double>& frameTimes, const VideoInspection& inspection) {
    return static_cast<size_t>(
        std::count_if(frameTimes.begin(), frameTimes.end(), [&](double time) {
            const double first = time + inspection.timeOffset;
            return first < inspection.log.from ||
                   first + inspection.readoutTime > inspection.log.to;
        }));
}

}  // namespace

VideoInspection inspectVideo(const std::string& video, const ClipMetadata& metadata,
                             const MotionLog& log, bool drawsCurves,
                             const std::function<void()>& onFrame) {
    constexpr double kRange = 0.1;  // seconds
    TrackSettings settings;
    settings.maxFeatures = 200;
    const FeatureTracks tracks = trackFeatures(video, settings, onFrame);
    const LogStatistics statistics = logStatistics(log);

    VideoInspection result;
    result.video = video;
    result.losses = tracks.losses;
    result.log = log.rates.empty() ? statistics.orientations : statistics.rates.stamps;
    result.timeOffset = metadata.timeOffset.value_or(0.0);
    ZPR_Param defaults{};
    ZPR_GetDefaultParam(&defaults);
    result.readoutTime =
        metadata.readoutTime.value_or(log.readoutTime.value_or(defaults.readoutTime));
    std::vector<double> times = tracks.frameTimes;
    if (!metadata.frameTimes.empty() && !times.empty()) {
        if (metadata.frameTimes.size() < times.size()) {
            throw std::runtime_error(fmt::format("{}: has {} frames, frames.csv has {}", video,
                                                 times.size(), metadata.frameTimes.size()));
        }
        times.assign(metadata.frameTimes.begin(),
                     metadata.frameTimes.begin() + static_cast<ptrdiff_t>(times.size()));
        result.table = compareClocks(times, tracks.frameTimes);
    }
    result.frames = stampStatistics(times, 0);
    result.uncovered = countUncovered(times, result);

    FeatureTracks onTable = tracks;
    onTable.frameTimes = times;
    CheckedCamera camera{metadata.focalLength,
                         result.readoutTime,
                         result.timeOffset,
                         metadata.clockDrift.value_or(0.0),
                         metadata.axes.value_or(log.orientation),
                         metadata.lens.value_or(LensDistortion()),
                         {log, tracks.width}};
    const std::vector<MotionSample> derived =
        log.rates.empty() ? log.angularRates() : std::vector<MotionSample>();
    const std::vector<MotionSample>& rates = log.rates.empty() ? derived : log.rates;
    if (times.size() > 1) result.motion = checkMotion({onTable}, rates, camera, throwIfInterrupted);
    const std::optional<FoundOffset> found = result.motion.foundOffset;
    if (found && found->isCertain() && !metadata.timeOffset) {
        result.found = found;
        result.timeOffset = camera.timeOffset = found->timeOffset;
        result.uncovered = countUncovered(times, result);
        result.motion = checkMotion({onTable}, rates, camera, throwIfInterrupted);
    }
    // Only near an offset that fits is the regression, which is free to choose anything, certain.
    if (const auto around = result.motion.fittingOffset) {
        result.clock = synchronizeClocks(times, pictureMotions(tracks), rates, *around, kRange);
    }
    if (drawsCurves && times.size() > 1) {
        const double offset = result.clock ? result.fittedTimeOffset() : result.timeOffset;
        result.curves = synchronizationCurves(onTable, rates, camera, offset);
    }
    return result;
}

std::vector<LogFinding> findingsOf(const VideoInspection& v) {
    std::vector<LogFinding> findings;
    const auto add = [&](Severity severity, const std::string& text) {
        findings.push_back({severity, text});
    };
    if (v.found) {
        add(Severity::kNote,
            "the frames' clock is not the log's; stabilize finds the time offset by itself as "
            "well: " +
                describe(*v.found));
    }
    if (v.isApart() && v.motion.findings.empty()) {
        add(Severity::kFatal,
            fmt::format("no frame has motion: the log runs from {} to {}, the frames on the same "
                        "clock from {} to {}; --time-offset {:.3f} lets both start together, to "
                        "go on from",
                        durationText(v.log.from), durationText(v.log.to),
                        durationText(v.frames.from + v.timeOffset),
                        durationText(v.frames.to + v.timeOffset), v.offsetOfStarts()));
    } else if (v.uncovered > 0 && !v.isApart()) {
        add(Severity::kWarning,
            fmt::format("{} of {} frames are outside of the log and will only be cropped: start "
                        "the log before the video and stop it after",
                        v.uncovered, v.frames.samples));
    }
    constexpr double kUsualFrameJitter = 0.2;
    if (v.frames.jitter > kUsualFrameJitter * v.frames.step) {
        add(Severity::kNote, "the frame rate varies: frames keep their times");
    }
    findings.insert(findings.end(), v.motion.findings.begin(), v.motion.findings.end());
    if (!v.clock) {
        if (v.motion.findings.empty()) {
            add(Severity::kNote,
                "the camera hardly turns: the log cannot be compared with the "
                "pictures");
        }
        return findings;
    }
    constexpr double kNoticeable = 0.004;  // seconds; a quarter of a usual readout
    const double wrong = v.fittedTimeOffset() - v.timeOffset;
    if (v.motion.findings.empty() && std::abs(wrong) > kNoticeable + 3.0 * v.clock->offsetError) {
        add(Severity::kWarning,
            fmt::format("the time offset is wrong by {:.1f} ms: --time-offset {:.4f} fits the "
                        "pictures; framehold calibrate finds it more exactly",
                        1e3 * wrong, v.fittedTimeOffset()));
    }
    if (v.clock->drift) {
        const double apart = *v.clock->drift * v.frames.seconds();
        const bool certain = std::abs(*v.clock->drift) > 3.0 * v.clock->driftError;
        if (certain && std::abs(apart) > kNoticeable) {
            add(Severity::kWarning,
                fmt::format("the clocks drift apart by {:.1f} ms from the first frame to the last: "
                            "divide the log's times since its first sample by {:.6f}, or write "
                            "frame times of the sensors' clock to a frames.csv",
                            1e3 * apart, 1.0 + *v.clock->drift));
        }
    }
    return findings;
}

}  // namespace framehold
