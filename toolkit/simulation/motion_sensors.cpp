#include "simulation/motion_sensors.h"

#include "simulation/uniform.h"

#include <cmath>

namespace framehold::simulation {

namespace {

constexpr double kStandardGravity = 9.81;

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
