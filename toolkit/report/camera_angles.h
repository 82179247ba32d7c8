#pragma once

#include "math/quaternion.h"

#include <optional>
#include <vector>

namespace framehold {

/// Direction and roll of a camera, in degrees, against a reference orientation of its own.
struct CameraAngles {
    double pan = 0.0;   // to the right
    double tilt = 0.0;  // up
    double roll = 0.0;  // clockwise, as the photographer sees it
};

/// Angles of orientations (device to world) against `reference`, one for each; none where there is
/// no orientation. Pan and roll are unwrapped: they go on beyond half a turn. Within a degree or so of
/// looking straight up or down against the reference, pan and roll are not well defined.
std::vector<std::optional<CameraAngles>> cameraAngles(
    const std::vector<std::optional<qlx::zpr_framehold::Quaternion>>& orientations,
    const qlx::zpr_framehold::Quaternion& reference);

}  // namespace framehold
