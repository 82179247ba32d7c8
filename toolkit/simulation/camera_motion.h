#pragma once

#include <Eigen/Geometry>

namespace framehold::simulation {

/// The orientation of a simulated camera at any time.
class CameraMotion {
public:
    virtual ~CameraMotion() = default;

    /// Device to world; the world's z axis points up, and at rest the camera looks along +y.
    virtual Eigen::Quaterniond at(double t) const = 0;
};

/// Looking along world y, the picture's right is world x and its top is up.
inline Eigen::Quaterniond levelOrientation() {
    Eigen::Matrix3d axes;
    axes.col(0) = Eigen::Vector3d::UnitZ();   // device x: up in the picture
    axes.col(1) = -Eigen::Vector3d::UnitX();  // device y: left in the picture
    axes.col(2) = -Eigen::Vector3d::UnitY();  // device z: towards the viewer
    return Eigen::Quaterniond(axes);
}

}  // namespace framehold::simulation
