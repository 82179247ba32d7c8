#pragma once

#include "motion/motion_log.h"

#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Rotation of a logged gyroscope over time. A rate holds since the one before it, as the library
/// takes it, so that a time found with this class is right for the library.
class GyroPath {
public:
    /// rates: in rad/s, at least two, in order of time.
    explicit GyroPath(const std::vector<MotionSample>& rates);

    // Times of the first and the last rate, in seconds.
    double firstTime() const { return poses_.front().time; }
    double lastTime() const { return poses_.back().time; }

    /// Rotation from the logged axes at a time to those at the first rate; times outside get the
    /// nearest.
    Eigen::Quaterniond at(double time) const;

    /// Integral of the rates up to a time, in radians about the logged axes, which turn along.
    Eigen::Vector3d turned(double time) const;

private:
    struct Pose {
        Eigen::Quaterniond orientation;
        Eigen::Vector3d turned;
        double time;
    };

    struct Interval {
        const Pose& from;
        const Pose& to;
        double share;  // from `from` (0) to `to` (1)
    };

    Interval find(double time) const;

    std::vector<Pose> poses_;  // at times that grow
};

}  // namespace framehold
