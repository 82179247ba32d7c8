#include "simulation/traffic.h"

#include "simulation/texture.h"

#include <cmath>

namespace framehold::simulation {

namespace {

constexpr double kLaneHeight = 0.16;   // tangent of the angle above the horizon
constexpr double kThingHeight = 0.75;  // of its lane
constexpr double kBob = 0.1;           // of the lane, up and down
constexpr double kSpacing = 0.35;      // radians from one thing to the next in its lane

/// A pattern that sticks to a thing; u and v run from 0 to 1 over it.
Colour paint(double u, double v, int64_t lane, int64_t number) {
    const double body = mix(0.35, 0.8, hash(number, 11 * lane));
    const double spots = noise(9.0 * u + 31.0 * static_cast<double>(number),
                               6.0 * v + 17.0 * static_cast<double>(lane));
    return {std::clamp(body + 0.9 * (spots - 0.5), 0.0, 1.0), mix(-0.15, 0.15, hash(lane, number)),
            mix(-0.15, 0.15, hash(number, lane + 7))};
}

}  // namespace

Colour Traffic::look(const Eigen::Vector3d& direction, double footprint, double time) const {
    const Colour behind = behind_.look(direction, footprint, time);
    const double rise = direction.z() / std::hypot(direction.x(), direction.y());
    const double azimuth = std::atan2(direction.x(), direction.y());
    const double laneNumber = std::floor(rise / kLaneHeight);
    const auto lane = static_cast<int64_t>(laneNumber);
    const int64_t salt = lane * 1000 + seed_;

    // To the left or to the right, 0.1 to 0.5 radians per second, each lane bobbing in its own way.
    const double speed = mix(0.1, 0.5, hash(salt, 1)) * (hash(salt, 2) < 0.5 ? -1.0 : 1.0);
    const double bob = kBob * std::sin(mix(2.0, 9.0, hash(salt, 3)) * time);
    const double along = (azimuth - speed * time) / kSpacing + hash(salt, 4);
    const double number = std::floor(along);
    const double width = share_ / kThingHeight;
    const double u = (along - number) / width;
    const double v = (rise / kLaneHeight - laneNumber - 0.5 - bob) / kThingHeight + 0.5;
    if (u >= 1.0 || v < 0.0 || v >= 1.0) return behind;
    const double edge = coverage(u * (1.0 - u) * width * kSpacing, footprint) *
                        coverage(v * (1.0 - v) * kThingHeight * kLaneHeight, footprint);
    return mix(behind, paint(u, v, lane, static_cast<int64_t>(number)), edge);
}

}  // namespace framehold::simulation
