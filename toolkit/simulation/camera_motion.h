#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <Eigen/Geometry>

namespace framehold::simulation {

/// Orientation and position of a simulated camera over time.
class CameraMotion {
public:
    virtual ~CameraMotion() = default;

    /// Rotation from device to world at a time in seconds; the world's z axis points up.
    virtual Eigen::Quaterniond at(double t) const = 0;

    /// Place in the world in metres.
    virtual Eigen::Vector3d positionAt(double /*t*/) const { return Eigen::Vector3d::Zero(); }

    /// Orientation and position that the person wanted: without the shake and the steps.
    virtual Eigen::Quaterniond steadyAt(double t) const = 0;
    virtual Eigen::Vector3d steadyPositionAt(double t) const { return positionAt(t); }
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
    double tilt = 0.0;        // degrees of roll from the start, clockwise for the viewer
};

/// Synthetic motion: hand shake as a sum of sines of random phase, from the sway of an arm to the
/// tremor of a hand, and eased pans.
class CameraPath final : public CameraMotion {
public:
    explicit CameraPath(const PathSettings& settings);

    Eigen::Quaterniond at(double t) const override;
    Eigen::Quaterniond steadyAt(double t) const override;

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
/// after the last one it rests. The whole is turned by pans. What was wanted is taken to be the
/// recorded path averaged with Gaussian weights of deviation `kSteadySpan`, and the pans.
class RecordedMotion final : public CameraMotion {
public:
    static constexpr double kSteadySpan = 0.5;  // seconds

    /// At least one rate, in order of time. pan and panPeriod: see PathSettings.
    explicit RecordedMotion(const std::vector<TimedRate>& rates, double pan = 0.0,
                            double panPeriod = 12.0);

    Eigen::Quaterniond at(double t) const override;
    Eigen::Quaterniond steadyAt(double t) const override;

private:
    struct Pose {
        double time;
        Eigen::Quaterniond orientation;
    };

    Eigen::Quaterniond recordedAt(double t) const;

    std::vector<Pose> poses_;
    double pan_;
    double panPeriod_;
};

/// How somebody walks along world y.
struct WalkSettings {
    double speed = 1.4;   // metres per second
    double pace = 1.9;    // steps per second
    double bounce = 2.5;  // centimetres up and down from the mean height, at each step
    double sway = 2.0;    // centimetres to either side, once in two steps
};

/// Somebody who runs.
constexpr WalkSettings kRun{3.0, 2.7, 4.0, 2.5};

/// A camera carried by somebody who walks: steps are added to where it is, and a little of them to
/// how it is turned. Each step is like the others but for a slow change of pace and strength.
class WalkingMotion final : public CameraMotion {
public:
    WalkingMotion(std::unique_ptr<CameraMotion> carried, const WalkSettings& settings)
        : carried_(std::move(carried)), settings_(settings) {}

    Eigen::Quaterniond at(double t) const override;
    Eigen::Vector3d positionAt(double t) const override;
    Eigen::Quaterniond steadyAt(double t) const override { return carried_->steadyAt(t); }
    Eigen::Vector3d steadyPositionAt(double t) const override {
        return {0.0, settings_.speed * t, 0.0};
    }

private:
    std::unique_ptr<CameraMotion> carried_;
    WalkSettings settings_;
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
    Eigen::Vector3d gravity;  // m/s^2, pointing up; with the acceleration of the camera
};

/// Readings of a phone's sensors in a motion, from `from` to `to` in seconds. Without noise and bias
/// the rates, applied each from the reading before it to its own time, give the motion exactly.
std::vector<SensorReading> readSensors(const CameraMotion& motion, const SensorSettings& settings,
                                       double from, double to);

}  // namespace framehold::simulation
