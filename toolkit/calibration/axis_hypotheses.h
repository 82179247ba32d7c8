#pragma once

#include "calibration/axis_search.h"
#include "calibration/calibration.h"

#include <vector>

namespace framehold {

/// Axes with the first estimates of all clips.
struct AxisHypothesis {
    AxisMapping axes;
    std::vector<AxisGuess> guesses;  // one for each clip
    double evidence = 0.0;           // sum of theirs

    /// Mean over the clips.
    double explainedVariance() const;
};

/// All axes that are possible for all clips, most likely first. gyros: of the clips, in logged axes.
/// onStep is called now and then. Throws std::runtime_error if a log does not fit its clip, see `calibrate`.
std::vector<AxisHypothesis> findAxes(const std::vector<CalibrationClip>& clips,
                                     const std::vector<GyroPath>& gyros,
                                     const CalibrationSettings& settings,
                                     const std::function<void()>& onStep);

}  // namespace framehold
