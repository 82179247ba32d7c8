#pragma once

#include "motion/motion_log.h"

#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// The rotation of a logged gyroscope over time. A rate holds since the one before it, as the
/// library takes it, so that a time found with this class is right for the library.
class GyroPath {
public:
    /// At least two rates in order of time.
    explicit GyroPath(const std::vector<MotionSample>& rates);

    double firstTime() const { return poses_.front().time; }
    double lastTime() const { return poses_.back().time; }

    /// From the logged axes at a time to those at the first rate; times outside get the nearest.
    Eigen::Quaterniond at(double time) const;

    /// The integral of the rates up to a time, radians about the logged axes as they turn along.
    Eigen::Vector3d turned(double time) const;

private:
    struct Pose {
        double time;
        Eigen::Quaterniond orientation;
        Eigen::Vector3d turned;
    };

    struct Place {
        const Pose& from;
        const Pose& to;
        double share;  // of the way from `from` to `to`
    };

    Place find(double time) const;

    std::vector<Pose> poses_;
    double posesPerSecond_;
};

}  // namespace framehold
