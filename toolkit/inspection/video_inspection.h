#pragma once

#include "calibration/clock_synchronization.h"
#include "inspection/log_findings.h"
#include "motion/clip_metadata.h"
#include "motion/motion_log.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// How a video and its motion log go together.
struct VideoInspection {
    std::string video;
    StampStatistics frames;    // on the log's clock but for the time offset
    StampStatistics motion;    // of what steers: rates, or orientations where there are none
    double timeOffset = 0.0;   // seconds, as given
    double readoutTime = 0.0;  // seconds, as given, else the library's default
    size_t uncovered = 0;      // frames that the log does not reach
    /// By how much the clock of the times beside clip.json is faster than the video's own, and
    /// the largest deviation from that in seconds; none without such times.
    struct TableClock {
        double drift;
        double largestDeviation;
    };
    std::optional<TableClock> table;
    std::optional<ClockSynchronization> clock;  // none: the pictures do not follow the log
    double searchRange = 0.0;                   // of offsets, seconds to both sides

    /// What `clock` says of the time offset, which is that of the first row.
    double fittedTimeOffset() const { return clock->offset - readoutTime / 2.0; }

    /// Whether no frame has any motion, for the clocks are not the same.
    bool isApart() const { return frames.samples > 0 && uncovered == frames.samples; }

    /// The time offset at which the log and the video start together.
    double offsetOfStarts() const { return motion.from - frames.from; }
};

/// Tracks the video's features to find its clock's offset and drift. metadata: frame times, time offset
/// and readout where they are known. `onFrame` is called for each frame. Throws MediaError;
/// std::runtime_error if the metadata have fewer frame times than the video.
VideoInspection inspectVideo(const std::string& video, const ClipMetadata& metadata,
                             const MotionLog& log, const std::function<void()>& onFrame);

/// What will go wrong, with what to do.
std::vector<LogFinding> findingsOf(const VideoInspection& inspection);

}  // namespace framehold
