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

/// Square tiles, each of a shade of its own, with grouted edges.
Colour ground(const Eigen::Vector3d& d, double footprint) {
    const double distance = 1.5 / -d.z();
    const double x = d.x() * distance;
    const double y = d.y() * distance;
    const double blur = footprint * std::hypot(x, y) * distance;
    const auto cx = static_cast<int64_t>(std::floor(x));
    const auto cy = static_cast<int64_t>(std::floor(y));
    const double shade = mix(0.3, 0.5, hash(cx, cy)) + (((cx + cy) & 1) != 0 ? 0.15 : 0.0);
    const double tile = inCell(x, 0.04, blur) * inCell(y, 0.04, blur);
    const Colour near = mix(Colour{0.2, 0.0, 0.0}, Colour{shade, -0.03, 0.03}, tile);
    return mix(near, Colour{0.42, -0.02, 0.02}, std::clamp(blur * 1.5, 0.0, 1.0));
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

Colour Town::look(const Eigen::Vector3d& direction, double footprint, double /*time*/) const {
    const Eigen::Vector3d d = direction / std::hypot(direction.x(), direction.y());
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

}  // namespace framehold::simulation
