#pragma once

#include "inspection/motion_check.h"

#include <vector>

namespace framehold {

/// Turns of a clip by its pictures and by its log, to be drawn over each other.
struct SynchronizationCurves {
    /// Mean rates between two frames, in rad/s about device axes.
    struct Turn {
        double time;  // of the earlier frame, seconds on the frames' clock
        Vec3 seen;
        Vec3 logged;
    };
    /// Share of the shake's variance that the log explains at a time offset.
    struct Share {
        double timeOffset;  // seconds, from a timestamp to the first row
        double explained;   // 1 at most; may be far below 0
    };

    double timeOffset = 0.0;    // seconds, at which the turns are compared
    double focal = 0.0;         // pixels, that the pictures' turns are calculated with
    bool isFocalKnown = false;  // else `focal` is the one that fits the log best
    std::vector<Turn> turns;    // of the frames with enough features that the log covers
    std::vector<Share> shares;  // around `timeOffset`, in order; empty if there are too few turns
};

/// Compares at a time offset, and at others up to half a second before and after it.
/// rates: in logged axes. camera: its own time offset is of no use.
SynchronizationCurves synchronizationCurves(const FeatureTracks& tracks,
                                            const std::vector<MotionSample>& rates,
                                            const CheckedCamera& camera, double timeOffset);

}  // namespace framehold
