#pragma once

#include <cstdint>
#include <vector>

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
