#pragma once

#include "simulation/camera_motion.h"

#include <cstdint>
#include <vector>

namespace framehold::simulation {

/// What a simulated camera does, on top of looking at the horizon with the picture's top up.
/// Angles in degrees.
struct PathSettings {
    double shake = 1.0;       // amplitude of the hand shake about all axes
    double pan = 20.0;        // how far pans turn to and fro; positive starts to the right
    double panPeriod = 12.0;  // seconds from one pan to the next one in the same direction
    double roll = 0.0;        // degrees per second of steady roll, clockwise for the viewer
    uint32_t seed = 1;        // of the shake
};

/// Made-up motion: hand shake made of sines of random phase with the slow sway of an arm and the
/// tremor of a hand, and eased pans.
class CameraPath final : public CameraMotion {
public:
    explicit CameraPath(const PathSettings& settings);

    Eigen::Quaterniond at(double t) const override;

private:
    struct Wave {
        double amplitude;  // radians
        double frequency;  // radians per second
        double phase;
    };

    PathSettings settings_;
    std::vector<Wave> waves_[3];  // about yaw, pitch and roll
};

}  // namespace framehold::simulation
