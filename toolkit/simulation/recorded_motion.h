#pragma once

#include "simulation/camera_motion.h"

#include <vector>

namespace framehold::simulation {

/// An angular rate in device axes, rad/s, that held since the rate before it.
struct TimedRate {
    double time;  // seconds
    Eigen::Vector3d rate;
};

/// A camera that turns as a recorded gyroscope did, level at the first rate; before the first rate
/// and after the last one it rests.
class RecordedMotion final : public CameraMotion {
public:
    /// At least one rate, in order of time.
    explicit RecordedMotion(const std::vector<TimedRate>& rates);

    Eigen::Quaterniond at(double t) const override;

private:
    struct Pose {
        double time;
        Eigen::Quaterniond orientation;
    };

    std::vector<Pose> poses_;
};

}  // namespace framehold::simulation
