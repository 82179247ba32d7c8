#include "simulation/world.h"

#include "simulation/texture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace framehold::simulation {

namespace {

Colour sky(double azimuth, double rise) {
    const Colour blue =
        mix(Colour{0.78, 0.03, -0.03}, Colour{0.52, 0.14, -0.10}, std::clamp(rise, 0.0, 1.0));
    const double u = azimuth * 5.0;
    const double v = rise * 9.0;
    const double cloud = 0.6 * noise(u, v) + 0.3 * noise(2.0 * u, 2.0 * v + 7.0) +
                         0.1 * noise(4.0 * u, 4.0 * v + 3.0);
    return mix(blue, Colour{0.95, 0.0, 0.0}, std::clamp((cloud - 0.5) * 4.0, 0.0, 1.0));
}

/// The plain under a camera at the height of the eyes, in a direction of horizontal length 1.
Colour ground(const Eigen::Vector3d& d, double footprint) {
    const double distance = kEyeHeight / -d.z();
    const double x = d.x() * distance;
    const double y = d.y() * distance;
    return paving(x, y, footprint * std::hypot(x, y) * distance);
}

/// The building that stands at an azimuth.
struct Building {
    double left;
    double height;
    int64_t number;
};

constexpr double kBuildingWidth = 0.13;

Building buildingAt(double azimuth) {
    const double number = std::floor(azimuth / kBuildingWidth);
    const auto n = static_cast<int64_t>(number);
    return {number * kBuildingWidth, 0.08 + 0.32 * hash(n, 1) * hash(n, 2), n};
}

Colour facade(const Building& b, double azimuth, double rise, double footprint) {
    const Colour wall{mix(0.3, 0.75, hash(b.number, 3)), mix(-0.08, 0.05, hash(b.number, 4)),
                      mix(-0.05, 0.12, hash(b.number, 5))};
    const double windowWidth = kBuildingWidth / std::round(mix(4.0, 8.0, hash(b.number, 6)));
    const double windowHeight = 1.4 * windowWidth;
    const double u = (azimuth - b.left) / windowWidth;
    const double v = (b.height - rise) / windowHeight;
    const double lit = hash(b.number * 64 + static_cast<int64_t>(u), static_cast<int64_t>(v));
    const Colour window = lit > 0.8 ? Colour{0.85, -0.15, 0.05} : Colour{0.12, 0.03, -0.02};
    const double glass =
        inCell(u, 0.22, footprint / windowWidth) * inCell(v, 0.25, footprint / windowHeight);
    const double edge = coverage(azimuth - b.left - 0.003, footprint);
    return mix(Colour{0.1, 0.0, 0.0}, mix(wall, window, glass), edge);
}

}  // namespace

Colour Town::look(const Eigen::Vector3d& /*from*/, const Eigen::Vector3d& direction,
                  double footprint, double /*time*/) const {
    const Eigen::Vector3d d = perHorizontal(direction);
    const double azimuth = std::atan2(d.x(), d.y());
    const double rise = d.z();
    // Kerb of the plain, below the horizon.
    constexpr double kKerb = -0.05;
    if (rise < kKerb - footprint) return ground(d, footprint);
    const Building b = buildingAt(azimuth);
    const Colour above = rise > 0.6 ? sky(azimuth, rise)
                                    : mix(sky(azimuth, rise), facade(b, azimuth, rise, footprint),
                                          coverage(b.height - rise, footprint));
    return mix(ground({d.x(), d.y(), std::min(rise, kKerb)}, footprint), above,
               coverage(rise - kKerb, footprint));
}

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

Colour Traffic::look(const Eigen::Vector3d& from, const Eigen::Vector3d& direction,
                     double footprint, double time) const {
    const Colour behind = behind_.look(from, direction, footprint, time);
    const double rise = perHorizontal(direction).z();
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
