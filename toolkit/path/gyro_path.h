#pragma once

#include "motion/motion_log.h"

#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Rotation of a logged gyroscope over time. A rate is the mean since the one before it, as the
/// library takes it, so that a time found with this class is right for the library. Between rates
/// the rotation is a cubic: a straight line loses some of a fast shake's amplitude where the log is
/// slow, and a focal length is found too long.
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
        size_t end;    // index of the pose at its end
        double share;  // of the way from the pose before
    };

    Interval find(double time) const;

    /// Index of the first pose after a time from the first one's on and before the last one's.
    size_t firstAfter(double time) const;

    /// Rotation vector from the pose before to pose i > 0.
    Eigen::Vector3d turnTo(size_t i) const;

    /// Rate at a pose, rad/s: that of the parabola through it and its neighbours.
    Eigen::Vector3d rateAt(size_t i) const;

    /// Rotation vector from the start of an interval to a share of it.
    Eigen::Vector3d turnIn(const Interval& in) const;

    std::vector<Pose> poses_;  // two or more, at times that grow
    double posesPerSecond_;
};

}  // namespace framehold
