#pragma once

#include "calibration/clock_synchronization.h"
#include "inspection/motion_check.h"
#include "inspection/synchronization_curves.h"
#include "motion/clip_metadata.h"
#include "motion/motion_log.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Relation of a video to its motion log.
struct VideoInspection {
    std::string video;
    std::vector<std::string> losses;  // what of the video could not be read, for the user
    StampStatistics frames;           // without the time offset
    StampStatistics log;              // of the rates, or orientations where there are none
    double timeOffset = 0.0;          // seconds, as given or as `found` has it
    /// Where none is given and the clocks have nothing in common, if it is well determined.
    std::optional<FoundOffset> found;
    double readoutTime = 0.0;  // seconds, as given, else the library's default
    size_t uncovered = 0;      // frames outside of the log
    /// Clock of the times beside a clip.json against the video's own.
    struct TableClock {
        double drift;             // seconds per second that it gains
        double largestDeviation;  // seconds, from times with this drift
    };
    std::optional<TableClock> table;              // none without such times
    std::optional<ClockSynchronization> clock;    // none: the pictures do not follow the log
    MotionCheck motion;                           // of the whole video
    std::optional<SynchronizationCurves> curves;  // if they are asked for

    /// Time offset by `clock`, which must be there, for the first row, in seconds.
    double fittedTimeOffset() const { return clock->offset - readoutTime / 2.0; }

    /// True if the log covers no frame at all: the clocks have nothing to do with each other.
    bool isApart() const { return frames.samples > 0 && uncovered == frames.samples; }

    /// Time offset at which the log and the video start together, in seconds.
    double offsetOfStarts() const { return log.from - frames.from; }
};

/// Tracks the video's features to compare them with the log and to find the offset and drift of its
/// clock. metadata: of the camera and the frame times, as far as they are known. drawsCurves: asks
/// for `curves`. `onFrame` is called after each frame. Throws MediaError; std::runtime_error if there
/// are fewer frame times than frames.
VideoInspection inspectVideo(const std::string& video, const ClipMetadata& metadata,
                             const MotionLog& log, bool drawsCurves,
                             const std::function<void()>& onFrame);

/// Findings from a video and its log, in the order of an inspection.
std::vector<LogFinding> findingsOf(const VideoInspection& inspection);

}  // namespace framehold
