#include "simulation/camera_motion.h"

#include "common/angles.h"
#include "common/library_constants.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace framehold::simulation {

namespace {

/// A number from 0 up to and without 1; the same on every platform, unlike the standard
/// distributions.
double uniform(std::mt19937& random) { return static_cast<double>(random()) / 4294967296.0; }

/// Angle of pans at a time, in radians to the right: a sine pressed flat at its ends, so that the
/// camera rests between them. degrees: to either side; period: seconds.
double panAt(double degrees, double period, double t) {
    const double swing = std::sin(2.0 * kPi * t / period);
    const double eased = std::sin(kPi / 2.0 * std::sin(kPi / 2.0 * swing));
    return toRadians(degrees) * eased;
}

Eigen::AngleAxisd panned(double degrees, double period, double t) {
    return {-panAt(degrees, period, t), Eigen::Vector3d::UnitZ()};
}

/// angles: about yaw, pitch and roll.
Eigen::Quaterniond turned(const double (&angles)[3]) {
    using Eigen::AngleAxisd;
    using Eigen::Vector3d;
    return AngleAxisd(angles[0], Vector3d::UnitZ()) * AngleAxisd(angles[1], Vector3d::UnitX()) *
           AngleAxisd(angles[2], Vector3d::UnitY()) * levelOrientation();
}

}  // namespace

CameraPath::CameraPath(const PathSettings& settings) : settings_(settings) {
    // Frequencies in Hz and shares of the amplitude, as hand-held recordings show them.
    constexpr double kBands[][2] = {{0.4, 0.45}, {0.9, 0.45}, {1.7, 0.35}, {2.6, 0.3},
                                    {4.1, 0.2},  {6.3, 0.12}, {9.7, 0.06}};
    constexpr double kAxisShare[3] = {1.0, 0.8, 0.5};
    std::mt19937 random(settings.seed);
    for (int axis = 0; axis < 3; ++axis) {
        for (const auto& [hertz, share] : kBands) {
            const double frequency = 2.0 * kPi * hertz * (0.85 + 0.3 * uniform(random));
            const double amplitude = toRadians(settings.shake) * share * kAxisShare[axis];
            waves_[axis].push_back({amplitude, frequency, 2.0 * kPi * uniform(random)});
        }
    }
}

Eigen::Quaterniond CameraPath::at(double t) const {
    double angle[3] = {0.0, 0.0, 0.0};
    for (int axis = 0; axis < 3; ++axis) {
        for (const Wave& w : waves_[axis]) {
            angle[axis] += w.amplitude * std::sin(w.frequency * t + w.phase);
        }
    }
    angle[0] -= panAt(settings_.pan, settings_.panPeriod, t);
    angle[2] += toRadians(settings_.tilt) + toRadians(settings_.roll) * t;
    return turned(angle);
}

Eigen::Quaterniond CameraPath::steadyAt(double t) const {
    return turned({-panAt(settings_.pan, settings_.panPeriod, t), 0.0,
                   toRadians(settings_.tilt) + toRadians(settings_.roll) * t});
}

RecordedMotion::RecordedMotion(const std::vector<TimedRate>& rates, double pan, double panPeriod)
    : pan_(pan), panPeriod_(panPeriod) {
    Eigen::Quaterniond orientation = levelOrientation();
    double before = rates.front().time;
    for (const auto& [time, rate] : rates) {
        const double angle = rate.norm() * (time - before);
        orientation = orientation * Eigen::AngleAxisd(angle, rate.stableNormalized());
        poses_.push_back({time, orientation.normalized()});
        before = time;
    }
}

Eigen::Quaterniond RecordedMotion::recordedAt(double t) const {
    const auto after = std::upper_bound(poses_.begin(), poses_.end(), t,
                                        [](double time, const Pose& p) { return time < p.time; });
    if (after == poses_.begin()) return poses_.front().orientation;
    if (after == poses_.end()) return poses_.back().orientation;
    const Pose& from = *(after - 1);
    return from.orientation.slerp((t - from.time) / (after->time - from.time), after->orientation);
}

Eigen::Quaterniond RecordedMotion::at(double t) const {
    return panned(pan_, panPeriod_, t) * recordedAt(t);
}

Eigen::Quaterniond RecordedMotion::steadyAt(double t) const {
    constexpr double kStep = 0.01;  // seconds
    const int reach = static_cast<int>(3.0 * kSteadySpan / kStep);
    const Eigen::Quaterniond middle = recordedAt(t);
    Eigen::Vector4d sum = Eigen::Vector4d::Zero();
    for (int i = -reach; i <= reach; ++i) {
        const Eigen::Vector4d q = recordedAt(t + i * kStep).coeffs();
        const double weight = std::exp(-0.5 * std::pow(i * kStep / kSteadySpan, 2));
        sum += (q.dot(middle.coeffs()) < 0.0 ? -weight : weight) * q;
    }
    return panned(pan_, panPeriod_, t) * Eigen::Quaterniond(sum.normalized());
}

namespace {

/// Vertical and sideways motion of steps, and how they turn the camera, each about 1 at most.
struct StepPhase {
    double bounce;
    double sway;
    double jolt;
};

StepPhase stepsAt(double pace, double t) {
    // The pace changes by a few per cent over some seconds; so does the strength of the steps.
    const double steps = pace * t + 0.12 * std::sin(0.9 * t) + 0.07 * std::sin(2.3 * t + 1.0);
    const double strength = 1.0 + 0.12 * std::sin(1.3 * t + 2.0) + 0.08 * std::sin(3.1 * t);
    const double phase = 2.0 * kPi * steps;
    // The foot's landing is sharper than the rise: a harmonic in the vertical motion.
    return {strength * (0.85 * std::sin(phase) + 0.2 * std::sin(2.0 * phase + 0.6)),
            strength * std::sin(phase / 2.0 + 0.4),
            strength * (0.6 * std::sin(phase + 1.2) + 0.4 * std::sin(2.0 * phase + 2.0))};
}

}  // namespace

Eigen::Vector3d WalkingMotion::positionAt(double t) const {
    const StepPhase step = stepsAt(settings_.pace, t);
    return steadyPositionAt(t) +
           0.01 * Eigen::Vector3d(settings_.sway * step.sway, 0.0, settings_.bounce * step.bounce);
}

Eigen::Quaterniond WalkingMotion::at(double t) const {
    // Degrees for each centimetre: the arm gives way to part of a step.
    constexpr double kPitch = 0.12;
    constexpr double kRoll = 0.15;
    const StepPhase step = stepsAt(settings_.pace, t);
    using Eigen::AngleAxisd;
    using Eigen::Vector3d;
    return carried_->at(t) *
           AngleAxisd(toRadians(kPitch * settings_.bounce) * step.jolt, -Vector3d::UnitY()) *
           AngleAxisd(toRadians(kRoll * settings_.sway) * step.sway, Vector3d::UnitZ());
}

namespace {

/// Normally distributed; the same on every platform, unlike the standard distributions.
class Noise {
public:
    explicit Noise(uint32_t seed) : random_(seed) {}

    Eigen::Vector3d vector(double deviation) {
        Eigen::Vector3d v;
        for (int i = 0; i < 3; ++i) v[i] = deviation * normal();
        return v;
    }

private:
    /// Sum of twelve uniform numbers, less its mean.
    double normal() {
        double sum = -6.0;
        for (int i = 0; i < 12; ++i) sum += uniform(random_);
        return sum;
    }

    std::mt19937 random_;
};

}  // namespace

std::vector<SensorReading> readSensors(const CameraMotion& motion, const SensorSettings& settings,
                                       double from, double to) {
    constexpr double kMoment = 0.002;  // seconds
    Noise noise(settings.seed);
    std::vector<SensorReading> readings;
    Eigen::Quaterniond before = motion.at(from - 1.0 / settings.rate);
    for (int i = 0;; ++i) {
        const double time = from + i / settings.rate;
        if (time > to) return readings;
        const Eigen::Quaterniond now = motion.at(time);
        const Eigen::AngleAxisd turn(before.conjugate() * now);
        // What an accelerometer feels: gravity and how the camera is accelerated.
        const Eigen::Vector3d acceleration =
            (motion.positionAt(time + kMoment) - 2.0 * motion.positionAt(time) +
             motion.positionAt(time - kMoment)) /
            (kMoment * kMoment);
        const Eigen::Vector3d up =
            now.conjugate() * (Eigen::Vector3d(0.0, 0.0, kStandardGravity) + acceleration);
        readings.push_back({time, turn.axis() * turn.angle() * settings.rate, up});
        readings.back().rate += settings.rateBias + noise.vector(settings.rateNoise);
        readings.back().gravity += noise.vector(settings.gravityNoise);
        before = now;
    }
}

}  // namespace framehold::simulation
