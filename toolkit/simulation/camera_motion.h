#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Geometry>

namespace framehold::simulation {

/// Orientation of a simulated camera over time.
class CameraMotion {
public:
    virtual ~CameraMotion() = default;

    /// Rotation from device to world at a time in seconds; the world's z axis points up.
    virtual Eigen::Quaterniond at(double t) const = 0;
};

/// Orientation of a camera that looks along world y, with the picture's right along world x and its
/// top up.
inline Eigen::Quaterniond levelOrientation() {
    Eigen::Matrix3d axes;
    axes.col(0) = Eigen::Vector3d::UnitZ();   // device x: up in the picture
    axes.col(1) = -Eigen::Vector3d::UnitX();  // device y: left in the picture
    axes.col(2) = -Eigen::Vector3d::UnitY();  // device z: towards the viewer
    return Eigen::Quaterniond(axes);
}

/// Motion of a simulated camera about `levelOrientation`. Angles in degrees.
struct PathSettings {
    double shake = 1.0;       // amplitude of the hand shake about all axes
    double pan = 20.0;        // how far pans turn to and fro; positive starts to the right
    double panPeriod = 12.0;  // seconds from one pan to the next one in the same direction
    double roll = 0.0;        // degrees per second of steady roll, clockwise for the viewer
    uint32_t seed = 1;        // of the shake
};

/// Synthetic motion: hand shake as a sum of sines of random phase, from the sway of an arm to the
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

/// An angular rate in device axes, rad/s, that held since the rate before it.
struct TimedRate {
    double time;  // seconds
    Eigen::Vector3d rate;
};

/// Motion of a camera by recorded angular rates, level at the first rate; before the first rate and
/// after the last one it rests.
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

/// Errors and rate of simulated sensors.
struct SensorSettings {
    double rate = 200.0;                                 // samples per second
    double rateNoise = 0.0;                              // rad/s, standard deviation
    double gravityNoise = 0.0;                           // m/s^2, standard deviation
    uint32_t seed = 1;                                   // of the noise
    Eigen::Vector3d rateBias = Eigen::Vector3d::Zero();  // rad/s, in device axes
};

/// Reading of a gyroscope and an accelerometer at the same time, in device axes.
struct SensorReading {
    double time;              // seconds
    Eigen::Vector3d rate;     // rad/s: the mean over the time since the reading before
    Eigen::Vector3d gravity;  // m/s^2, pointing up
};

/// Readings of a phone's sensors in a motion, from `from` to `to` in seconds. Without noise and bias
/// the rates, applied each from the reading before it to its own time, give the motion exactly.
std::vector<SensorReading> readSensors(const CameraMotion& motion, const SensorSettings& settings,
                                       double from, double to);

}  // namespace framehold::simulation
