#pragma once

#include "motion/motion_log.h"

#include <array>
#include <optional>
#include <vector>

namespace framehold {

/// Motion of the picture between two frames: to the right and down in pixels, and clockwise in rad.
/// None where it is not known.
using PictureMotion = std::optional<std::array<double, 3>>;

/// Relation of a video's clock to a motion log's.
struct ClockSynchronization {
    /// Seconds to add to a frame's timestamp for the time, on the log's clock, at which the middle of
    /// the picture was read.
    double offset;
    double offsetError;  // standard error, seconds
    /// Share of the variance of the pictures' motion that the log explains, 0 to 1.
    double explainedVariance;
    /// Seconds per second by which the log's clock is faster than the video's, and the standard error;
    /// none if the clip is too short or moves too little.
    std::optional<double> drift;
    double driftError;
};

/// Finds the offset with the largest explained variance of a linear regression of the pictures'
/// three motions on the camera's three rotations between frames, whatever focal length and axes are;
/// and the drift from the offsets of up to eight parts of the clip.
/// frameTimes: seconds, one more than motions. rates: in order of time, in any axes; each one
/// stands for the time since the one before it, as the library takes it.
/// around, range: centre and half width of the offsets to try, seconds. None if the log explains
/// less than a third of the variance at the best offset, or covers less than four fifths of the
/// motions.
std::optional<ClockSynchronization> synchronizeClocks(const std::vector<double>& frameTimes,
                                                      const std::vector<PictureMotion>& motions,
                                                      const std::vector<MotionSample>& rates,
                                                      double around, double range);

}  // namespace framehold
