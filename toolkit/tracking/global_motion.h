#pragma once

#include "tracking/feature_tracks.h"

#include <array>
#include <optional>
#include <utility>
#include <vector>

namespace framehold {

/// Motion of the whole picture from a frame to the next one: a similarity about the picture's centre
/// and the first-order perspective terms of a camera that turns. x points to the right, y down, and
/// positive rotations are clockwise for the viewer.
struct GlobalMotion {
    double centreX = 0.0;  // pixels, of the picture
    double centreY = 0.0;
    double dx = 0.0;  // pixels, shift of the centre
    double dy = 0.0;
    double rotation = 0.0;  // radians
    double logScale = 0.0;  // natural logarithm of the scale factor
    /// Perspective terms, per pixel: a feature at (x, y) from the centre moves by (x, y) times
    /// x tiltX + y tiltY more.
    double tiltX = 0.0;
    double tiltY = 0.0;
    /// Homography from pixels of the first frame to pixels of the second one, row by row; fitted on
    /// its own.
    std::array<double, 9> homography{1, 0, 0, 0, 1, 0, 0, 0, 1};

    /// Motion of a feature, in pixels, less that of the whole picture at its position.
    std::pair<double, double> residual(const FeatureMotion& feature) const;
};

/// Motion that most features share: RANSAC for a similarity, then least squares of all parameters,
/// twice, over the features close to it. None if fewer than twelve are. width, height: of the
/// picture, pixels.
std::optional<GlobalMotion> estimateGlobalMotion(const std::vector<FeatureMotion>& features,
                                                 int width, int height);

}  // namespace framehold
