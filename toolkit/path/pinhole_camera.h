#pragma once

#include "common/lens_distortion.h"

#include <cmath>

#include <Eigen/Geometry>

namespace framehold {

/// Camera with a rolling shutter, as the library has it: pixel (width / 2, height / 2) is on the
/// optical axis, the picture's x axis is device -y and its y axis device -x, the camera looks along
/// device -z, and row y is read at the frame's time + readout * y / height. Beyond the library's it
/// may have a lens that is no pinhole's.
struct PinholeCamera {
    int width = 0;  // pixels
    int height = 0;
    double focal = 0.0;     // pixels, in the middle of the picture
    double readout = 0.0;   // seconds; 0 for a camera that reads all rows at once
    LensDistortion lens{};  // of distances in focal lengths

    /// Time at which row y is read, in seconds.
    double rowTime(double frameTime, double y) const { return frameTime + readout * y / height; }

    /// Direction in device coordinates that is seen at a pixel, not normalised.
    Eigen::Vector3d ray(const Eigen::Vector2d& pixel) const {
        const Eigen::Vector3d straight(-(pixel.y() - height / 2.0), -(pixel.x() - width / 2.0),
                                       -focal);
        return lens.isNone() ? straight : bent(straight);
    }

    /// Pixel that sees a direction in device coordinates; without a lens, of one before the camera
    /// (z < 0). What is beyond the lens's largest angle comes out beyond its largest radius.
    Eigen::Vector2d project(const Eigen::Vector3d& direction) const {
        if (!lens.isNone()) return projectBent(direction);
        const double scale = focal / -direction.z();
        return {width / 2.0 - scale * direction.y(), height / 2.0 - scale * direction.x()};
    }

    /// Derivatives of project.
    Eigen::Matrix<double, 2, 3> projectSlopes(const Eigen::Vector3d& direction) const;

    /// True if the lens's model holds for all of the picture.
    bool isCovered() const {
        return std::hypot(width, height) / 2.0 < focal * lens.largestRadius();
    }

private:
    /// Direction that a lens bends to one of a pinhole.
    Eigen::Vector3d bent(const Eigen::Vector3d& straight) const;
    Eigen::Vector2d projectBent(const Eigen::Vector3d& direction) const;
};

/// Output camera of a size that shows as much as fits of the middle of the source that the crop, a
/// fraction, leaves.
PinholeCamera cropped(const PinholeCamera& source, int width, int height, double crop);

/// Largest angle that a straightened picture spans from side to side, in radians: wider ones are
/// stretched to more than four times towards the sides.
inline constexpr double kWidestStraight = 2.0943951023931953;

/// Output camera of a size that shows straight lines as such: the widest whose picture, while nothing
/// turns, is inside the middle of the source that the crop, a fraction, leaves; and no wider than
/// kWidestStraight.
PinholeCamera straightened(const PinholeCamera& source, int width, int height, double crop);

}  // namespace framehold
