#include "report/camera_angles.h"

#include "common/angles.h"

#include <algorithm>
#include <cmath>

namespace framehold {

using qlx::zpr_framehold::Quaternion;

namespace {

/// `angle` plus as many turns as bring it next to `neighbour`.
double near(double neighbour, double angle) {
    return angle + 360.0 * std::round((neighbour - angle) / 360.0);
}

/// `turn`: from the camera's device axes to those of the reference, of which x is the picture's
/// upward direction, -y its right and -z where the camera looks.
CameraAngles anglesOf(const Quaternion& turn) {
    double m[9];
    turn.toRotationMatrix(m);
    const double right = m[5];  // of the looking direction -(m[2], m[5], m[8])
    const double up = -m[2];
    const double ahead = m[8];
    const double pan = std::atan2(right, ahead);
    const double tilt = std::asin(std::clamp(up, -1.0, 1.0));
    // The picture's right, -(m[1], m[4], m[7]), against the level right of this pan and tilt.
    const double level = std::cos(pan) * m[4] - std::sin(pan) * m[7];
    const double raised =
        -std::cos(tilt) * m[1] - std::sin(tilt) * (std::sin(pan) * m[4] + std::cos(pan) * m[7]);
    return {toDegrees(pan), toDegrees(tilt), toDegrees(std::atan2(-raised, level))};
}

}  // namespace

std::vector<std::optional<CameraAngles>> cameraAngles(
    const std::vector<std::optional<Quaternion>>& orientations, const Quaternion& reference) {
    std::vector<std::optional<CameraAngles>> result;
    CameraAngles before;
    for (const std::optional<Quaternion>& orientation : orientations) {
        if (!orientation) {
            result.push_back(std::nullopt);
            continue;
        }
        CameraAngles now = anglesOf(reference.inverse() * *orientation);
        now.pan = near(before.pan, now.pan);
        now.roll = near(before.roll, now.roll);
        result.push_back(now);
        before = now;
    }
    return result;
}

}  // namespace framehold
