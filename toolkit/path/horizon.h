#pragma once

#include "motion/motion_log.h"
#include "path/orientation_track.h"

#include <optional>
#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Samples of gravity: those of the accelerometer; where there are none, what the orientations say of
/// it. Empty if the log has neither.
std::vector<MotionSample> gravityOf(const MotionLog& log);

/// Horizon over a clip. A track's world has no vertical of its own, and drifts: up is what the
/// accelerometer feels over some seconds around a time, turned to that world. Level is the nearest of
/// the four ways to hold the device that most of the clip is held in.
class Horizon {
public:
    /// gravity: at least one sample, in device axes and on the track's clock. times: of the frames,
    /// at least one.
    Horizon(const OrientationTrack& track, const std::vector<MotionSample>& gravity,
            const std::vector<double>& times);

    /// False if what the accelerometer feels has no direction that lasts, as where gravity has been
    /// taken out of it.
    bool isKnown() const { return isKnown_; }

    /// Direction of up in the track's world at a time, of length 1.
    Eigen::Vector3d upAt(double time) const;

    /// Angle by which an orientation (device -> world) is rolled out of level, in radians; none where
    /// it looks so far up or down that there is no level.
    std::optional<double> rollOf(const Eigen::Quaterniond& orientation, double time) const;

    /// The orientation turned about its optical axis by a share of its roll: to level for 1. Less, and
    /// at last not at all, where it looks far up or down, or is rolled on purpose.
    Eigen::Quaterniond levelled(const Eigen::Quaterniond& orientation, double time,
                                double share) const;

private:
    std::vector<double> times_;         // seconds, of `ups_`
    std::vector<Eigen::Vector3d> ups_;  // m/s^2, in the track's world
    bool isKnown_ = false;
    double held_ = 0.0;  // direction in the picture plane that is up where the picture is level,
                         // radians from device x towards device y
};

}  // namespace framehold
