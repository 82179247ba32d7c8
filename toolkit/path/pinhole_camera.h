#pragma once

#include <Eigen/Geometry>

namespace framehold {

/// Pinhole camera with a rolling shutter, as the library has it: pixel (width / 2, height / 2) is on
/// the optical axis, the picture's x axis is device -y and its y axis device -x, the camera looks
/// along device -z, and row y is read at the frame's time + readout * y / height.
struct PinholeCamera {
    int width = 0;  // pixels
    int height = 0;
    double focal = 0.0;    // pixels
    double readout = 0.0;  // seconds; 0 for a camera that reads all rows at once

    /// Time at which row y is read, in seconds.
    double rowTime(double frameTime, double y) const { return frameTime + readout * y / height; }

    /// Direction in device coordinates that is seen at a pixel, not normalised.
    Eigen::Vector3d ray(const Eigen::Vector2d& pixel) const {
        return {-(pixel.y() - height / 2.0), -(pixel.x() - width / 2.0), -focal};
    }

    /// Pixel that sees a direction in device coordinates, which is before the camera (z < 0).
    Eigen::Vector2d project(const Eigen::Vector3d& direction) const {
        const double scale = focal / -direction.z();
        return {width / 2.0 - scale * direction.y(), height / 2.0 - scale * direction.x()};
    }
};

}  // namespace framehold
