#pragma once

#include "tracking/feature_tracks.h"

#include <array>
#include <optional>
#include <utility>
#include <vector>

namespace framehold {

/// How the picture as a whole moves from a frame to the next one: it turns about its centre, grows,
/// moves on, and tilts away from the viewer as a plane does before a camera that turns. x points to
/// the right, y down, and positive rotations are clockwise for the viewer.
struct GlobalMotion {
    double centreX = 0.0;  // pixels
    double centreY = 0.0;
    double dx = 0.0;  // pixels, of what is in the centre
    double dy = 0.0;
    double rotation = 0.0;  // radians
    double logScale = 0.0;  // natural logarithm of the growth
    /// Per pixel: a feature x and y from the centre moves by (x, y) times x tiltX + y tiltY more.
    double tiltX = 0.0;
    double tiltY = 0.0;
    /// Row by row: takes pixels of the first frame to pixels of the second one, with all the freedom
    /// of a plane in space.
    std::array<double, 9> homography{1, 0, 0, 0, 1, 0, 0, 0, 1};

    /// Where a feature went beyond the motion of the whole picture, in pixels.
    std::pair<double, double> residual(const FeatureMotion& feature) const;
};

/// What most features agree on: RANSAC for a similarity, then least squares, twice, of all that
/// come near. None if fewer than twelve do.
std::optional<GlobalMotion> estimateGlobalMotion(const std::vector<FeatureMotion>& features,
                                                 int width, int height);

}  // namespace framehold
