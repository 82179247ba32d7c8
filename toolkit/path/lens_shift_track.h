#pragma once

#include "motion/motion_log.h"
#include "tracking/feature_tracks.h"

#include <vector>

#include <Eigen/Core>

namespace framehold {

/// Shift of the picture over time by a lens that moves against shake.
class LensShiftTrack {
public:
    /// A lens at rest.
    LensShiftTrack() = default;

    /// shifts: in order of time. scale: pixels of the video in a pixel of theirs.
    LensShiftTrack(std::vector<LensShift> shifts, double scale);

    /// The shifts that a log holds, on its clock. width: of the video, in pixels.
    LensShiftTrack(const MotionLog& log, int width);

    bool isAtRest() const { return shifts_.empty(); }

    /// Pixels of the video, to the right and down: between samples on a straight line, outside of them
    /// that of the nearest.
    Eigen::Vector2d at(double time) const;

    /// Moves features to where a lens at rest would show them. timeOffset: seconds from a frame's
    /// time to its first row. readout: seconds from that to the last row.
    void takeOut(double timeOffset, double readout, FeatureTracks& tracks) const;

    /// Largest shift along either axis, in pixels.
    double largest() const { return largestShift(shifts_); }

private:
    std::vector<LensShift> shifts_;
};

}  // namespace framehold
