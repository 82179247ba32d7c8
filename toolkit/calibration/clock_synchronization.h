#pragma once

#include "motion/motion_log.h"

#include <array>
#include <optional>
#include <vector>

namespace framehold {

/// How the picture moved between two frames: to the right and down in pixels, and clockwise in rad.
/// None where that could not be seen.
using PictureMotion = std::optional<std::array<double, 3>>;

/// Relation of a video's clock to a motion log's.
struct ClockSynchronization {
    /// Seconds to add to a frame's timestamp to get to the time on the log's clock when the middle of
    /// the picture was read.
    double offset;
    double offsetError;  // standard error, seconds
    /// Share of the variance of the pictures' motion that the log explains, 0 to 1.
    double explainedVariance;
    /// By how much the log's clock is faster than the video's (1e-6: a microsecond each second), and
    /// the standard error; none if the clip is too short or moves too little to tell.
    std::optional<double> drift;
    double driftError;
};

/// Finds the offset at which a linear map from the camera's three rotations between frames to the
/// pictures' three motions leaves least, whatever focal length and axes are; and the drift from the
/// offsets of up to eight parts of the clip.
/// frameTimes: seconds, one more than motions. rates: in order of time, in any axes; each one
/// stands for the time since the one before it, as the library takes it.
/// around, range: of the offsets to try, seconds. None if the log explains less than a third of the
/// motion at its best, or covers less than four fifths of it.
std::optional<ClockSynchronization> synchronizeClocks(const std::vector<double>& frameTimes,
                                                      const std::vector<PictureMotion>& motions,
                                                      const std::vector<MotionSample>& rates,
                                                      double around, double range);

}  // namespace framehold
