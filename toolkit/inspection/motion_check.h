#pragma once

#include "calibration/calibration.h"
#include "common/lens_distortion.h"
#include "inspection/log_findings.h"
#include "motion/axis_mapping.h"
#include "motion/motion_log.h"
#include "path/lens_shift_track.h"
#include "tracking/feature_tracks.h"

#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Camera and clock that a log is to be used with.
struct CheckedCamera {
    std::optional<double> focal;  // pixels; none: not known
    double readoutTime = 0.0;     // seconds
    double timeOffset = 0.0;      // seconds, from a timestamp to the first row
    double clockDrift = 0.0;      // seconds that the log's clock gains per second
    AxisMapping axes;             // from logged to device axes
    LensDistortion lens{};        // of no use without a focal length
    LensShiftTrack shifts{};      // on the log's clock
};

/// Time offset that was found by the pictures alone, in all of a log.
struct FoundOffset {
    double timeOffset = 0.0;      // seconds, from a timestamp to the first row
    double deviation = INFINITY;  // seconds, standard
    double explained = 0.0;       // share of the shake's variance, with the log at this offset
    // The next best offset, and what that explains.
    double rivalTimeOffset = 0.0;
    double rivalExplained = 0.0;
    /// Well determined if the clip shakes enough to tell it to 2 ms; unobservable if another offset comes
    /// near.
    Confidence confidence = Confidence::kUnobservable;

    bool isCertain() const { return confidence == Confidence::kWellDetermined; }
};

/// The offset, how certain it is and why, for the user.
std::string describe(const FoundOffset& found);

/// How well a log fits the pictures of its clip.
struct MotionCheck {
    double shake = 0.0;  // pixels from a frame to the next, RMS over the picture
    /// Share of the shake's variance that the log explains: 1 all, 0 nothing, below 0 less than
    /// nothing. None if the picture cannot be compared with the log.
    std::optional<double> explained;
    bool isHarmful = false;  // true if the result would be shakier than the source
    /// Offset from a timestamp to its middle row at which the log fits, seconds; none if it fits
    /// nowhere, or differently in parts of the clip.
    std::optional<double> fittingOffset;
    /// Where the log covers no frame: the offset at which it fits. None if it fits nowhere, or
    /// differently in parts of the clip.
    std::optional<FoundOffset> foundOffset;
    std::vector<LogFinding> findings;  // the worst first
};

/// Compares the motion in samples of a clip with what the log predicts. Where that differs, looks
/// for axes, focal length, unit and time offset that fit, in all of a log of half an hour and in as
/// much of a longer one; and for frames that are missing between the samples. Each finding names the
/// option that mends it.
/// samples: with the frames' own times. rates: in logged axes. onStep is called now and then.
MotionCheck checkMotion(const std::vector<FeatureTracks>& samples,
                        const std::vector<MotionSample>& rates, const CheckedCamera& camera,
                        const std::function<void()>& onStep = {});

}  // namespace framehold
