#pragma once

#include "calibration/turn_comparison.h"

#include <functional>
#include <optional>
#include <vector>

namespace framehold {

/// First estimate of axes, time offset and focal length of a clip with its log.
struct AxisGuess {
    AxisMapping axes;
    double timeOffset;  // seconds from a frame's timestamp to its middle row
    double focal;       // pixels
    /// Share of the variance of the picture's motion, slow motion taken out, that the log leaves
    /// unexplained, 0 to 1.
    double unexplainedVariance;
    double evidence;  // higher is better; comparable within one clip only
    /// Another time offset, far from this one, at which the same axes fit about as well.
    std::optional<double> rivalOffset;
};

/// Range of a search.
struct SearchWindow {
    double centre;  // seconds, time offset of a frame's middle row
    double range;   // seconds to either side of it; may be infinite
    double focal;   // pixels; 0: unknown, to be found
};

/// Tries all 48 signed permutations of the axes at all time offsets in the window at which the log
/// covers the clip. Returns the best offset of each, best first. Empty if the log covers less than
/// half of the clip at every offset, or the clip has fewer than 20 pairs of frames with features.
/// onStep is called now and then.
///
/// For small rotations the middle of the picture moves by focal * (w_x, -w_y) and the picture turns
/// by w_z, where w is the device's rotation vector between two frames, so that a focal length is
/// the slope of a line.
std::vector<AxisGuess> searchAxes(const FeatureTracks& tracks, const GyroPath& gyro,
                                  const SearchWindow& window, const std::function<void()>& onStep);

}  // namespace framehold
