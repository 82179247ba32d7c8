#include "simulation/camera_path.h"

#include "simulation/uniform.h"

#include <cmath>

namespace framehold::simulation {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;

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
            const double amplitude = settings.shake * kDegree * share * kAxisShare[axis];
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
    angle[0] -= settings_.pan * kDegree * eased;
    angle[2] += settings_.roll * kDegree * t;

    using Eigen::AngleAxisd;
    using Eigen::Vector3d;
    return AngleAxisd(angle[0], Vector3d::UnitZ()) * AngleAxisd(angle[1], Vector3d::UnitX()) *
           AngleAxisd(angle[2], Vector3d::UnitY()) * levelOrientation();
}

}  // namespace framehold::simulation
