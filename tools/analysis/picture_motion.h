#pragma once

#include "analysis/feature_tracks.h"

#include <optional>
#include <vector>

namespace framehold {

/// How most of a picture moved from one frame to the next: a point at (u, v) pixels from the
/// picture's centre by (right + growth * u - turn * v, down + turn * u + growth * v).
struct PictureMotion {
    double right;   // pixels
    double down;    // pixels
    double turn;    // radians, clockwise for the viewer
    double growth;  // share
};

/// The motion that most features agree on; none if fewer than eight are there.
std::optional<PictureMotion> picturesMotion(const std::vector<FeatureMotion>& features, int width,
                                            int height);

/// The middle of some values, which it reorders; 0 if there are none.
double median(std::vector<double>& values);

}  // namespace framehold
