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
    // Pans are a sine pressed flat at its ends, so that the camera rests between them.
    const double swing = std::sin(2.0 * kPi * t / settings_.panPeriod);
    const double eased = std::sin(kPi / 2.0 * std::sin(kPi / 2.0 * swing));
    angle[0] -= toRadians(settings_.pan) * eased;
    angle[2] += toRadians(settings_.roll) * t;

    using Eigen::AngleAxisd;
    using Eigen::Vector3d;
    return AngleAxisd(angle[0], Vector3d::UnitZ()) * AngleAxisd(angle[1], Vector3d::UnitX()) *
           AngleAxisd(angle[2], Vector3d::UnitY()) * levelOrientation();
}

RecordedMotion::RecordedMotion(const std::vector<TimedRate>& rates) {
    Eigen::Quaterniond orientation = levelOrientation();
    double before = rates.front().time;
    for (const auto& [time, rate] : rates) {
        const double angle = rate.norm() * (time - before);
        orientation = orientation * Eigen::AngleAxisd(angle, rate.stableNormalized());
        poses_.push_back({time, orientation.normalized()});
        before = time;
    }
}

Eigen::Quaterniond RecordedMotion::at(double t) const {
    const auto after = std::upper_bound(poses_.begin(), poses_.end(), t,
                                        [](double time, const Pose& p) { return time < p.time; });
    if (after == poses_.begin()) return poses_.front().orientation;
    if (after == poses_.end()) return poses_.back().orientation;
    const Pose& from = *(after - 1);
    return from.orientation.slerp((t - from.time) / (after->time - from.time), after->orientation);
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
    Noise noise(settings.seed);
    std::vector<SensorReading> readings;
    Eigen::Quaterniond before = motion.at(from - 1.0 / settings.rate);
    for (int i = 0;; ++i) {
        const double time = from + i / settings.rate;
        if (time > to) return readings;
        const Eigen::Quaterniond now = motion.at(time);
        const Eigen::AngleAxisd turn(before.conjugate() * now);
        const Eigen::Vector3d up = now.conjugate() * Eigen::Vector3d(0.0, 0.0, kStandardGravity);
        readings.push_back({time, turn.axis() * turn.angle() * settings.rate, up});
        readings.back().rate += settings.rateBias + noise.vector(settings.rateNoise);
        readings.back().gravity += noise.vector(settings.gravityNoise);
        before = now;
    }
}

}  // namespace framehold::simulation
