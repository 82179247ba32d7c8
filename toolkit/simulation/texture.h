// Patterns that the made-up worlds are painted with.
#pragma once

#include "simulation/world.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace framehold::simulation {

inline double mix(double a, double b, double t) { return a + (b - a) * t; }

inline Colour mix(const Colour& a, const Colour& b, double t) {
    return {mix(a.luma, b.luma, t), mix(a.cb, b.cb, t), mix(a.cr, b.cr, t)};
}

/// A number from 0 to 1 that looks random, from two whole ones.
inline double hash(int64_t x, int64_t y) {
    auto h = static_cast<uint64_t>(x) * 0x9E3779B97F4A7C15u ^
             static_cast<uint64_t>(y) * 0xC2B2AE3D27D4EB4Fu;
    h ^= h >> 29;
    h *= 0xBF58476D1CE4E5B9u;
    h ^= h >> 32;
    return static_cast<double>(h >> 11) / 9007199254740992.0;
}

/// Smooth noise, 0 to 1, that changes over a length of 1.
inline double noise(double x, double y) {
    const double ix = std::floor(x);
    const double iy = std::floor(y);
    const auto ease = [](double t) { return t * t * (3.0 - 2.0 * t); };
    const double tx = ease(x - ix);
    const double ty = ease(y - iy);
    const auto cx = static_cast<int64_t>(ix);
    const auto cy = static_cast<int64_t>(iy);
    return mix(mix(hash(cx, cy), hash(cx + 1, cy), tx),
               mix(hash(cx, cy + 1), hash(cx + 1, cy + 1), tx), ty);
}

/// Share of a footprint around a point that lies on the positive side of an edge at `distance`.
inline double coverage(double distance, double footprint) {
    return std::clamp(distance / footprint + 0.5, 0.0, 1.0);
}

/// Share of a footprint around `x` that lies within `margin` and 1 - `margin` of its unit cell.
inline double inCell(double x, double margin, double footprint) {
    const double t = x - std::floor(x);
    return coverage(t - margin, footprint) * coverage(1.0 - margin - t, footprint);
}

/// A direction scaled so that its horizontal part has length 1: z is the rise of a line of sight.
/// Lines straight up or down rise steeply, not endlessly.
inline Eigen::Vector3d perHorizontal(const Eigen::Vector3d& direction) {
    constexpr double kSteepest = 1e9;
    return direction /
           std::max(std::hypot(direction.x(), direction.y()), std::fabs(direction.z()) / kSteepest);
}

/// Square tiles of 1 m, each of a shade of its own, with grouted edges. blur: metres.
inline Colour paving(double x, double y, double blur) {
    const auto cx = static_cast<int64_t>(std::floor(x));
    const auto cy = static_cast<int64_t>(std::floor(y));
    const double shade = mix(0.3, 0.5, hash(cx, cy)) + (((cx + cy) & 1) != 0 ? 0.15 : 0.0);
    const double tile = inCell(x, 0.04, blur) * inCell(y, 0.04, blur);
    const Colour near = mix(Colour{0.2, 0.0, 0.0}, Colour{shade, -0.03, 0.03}, tile);
    return mix(near, Colour{0.42, -0.02, 0.02}, std::clamp(blur * 1.5, 0.0, 1.0));
}

}  // namespace framehold::simulation
