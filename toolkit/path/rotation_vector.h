#pragma once

#include <cmath>

#include <Eigen/Geometry>

namespace framehold {

/// Rotation about the direction of a vector by its length in radians.
inline Eigen::Quaterniond rotationBy(const Eigen::Vector3d& turn) {
    return Eigen::Quaterniond(Eigen::AngleAxisd(turn.norm(), turn.stableNormalized()));
}

/// Vector whose `rotationBy` is a rotation; at most half a turn long.
inline Eigen::Vector3d rotationVector(const Eigen::Quaterniond& rotation) {
    const double sine = rotation.vec().norm();
    if (!(sine > 0.0)) return Eigen::Vector3d::Zero();
    const double half = std::atan2(sine, std::abs(rotation.w()));
    return std::copysign(2.0 * half / sine, rotation.w()) * rotation.vec();
}

}  // namespace framehold
