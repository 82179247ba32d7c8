#pragma once

#include "simulation/camera_motion.h"

#include <vector>

#include <Eigen/Geometry>

namespace framehold::simulation {

struct SensorSettings {
    double rate = 200.0;                                 // samples per second
    double rateNoise = 0.0;                              // rad/s, standard deviation
    double gravityNoise = 0.0;                           // m/s^2, standard deviation
    uint32_t seed = 1;                                   // of the noise
    Eigen::Vector3d rateBias = Eigen::Vector3d::Zero();  // rad/s, in device axes
};

/// A gyroscope and an accelerometer read at the same time, in device axes.
struct SensorReading {
    double time;              // seconds
    Eigen::Vector3d rate;     // rad/s: the mean over the time since the reading before
    Eigen::Vector3d gravity;  // m/s^2, pointing up
};

/// What the sensors of a phone that moves so read from `from` to `to`. Without noise and
/// bias the rates, applied each from the reading before it to its own time, give the motion exactly.
std::vector<SensorReading> readSensors(const CameraMotion& motion, const SensorSettings& settings,
                                       double from, double to);

}  // namespace framehold::simulation
