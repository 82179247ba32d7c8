#pragma once

#include <cstdint>

#include <Eigen/Geometry>

namespace framehold::simulation {

/// Colour: luma 0 to 1, chroma -0.5 to 0.5.
struct Colour {
    double luma;
    double cb;
    double cr;
};

/// Height of the origin, where a camera that does not move is, above the ground; metres.
constexpr double kEyeHeight = 1.5;

/// Scene that a camera sees.
class World {
public:
    virtual ~World() = default;

    /// Colour seen from a point (metres, world coordinates, z up) in a direction (any length) at a
    /// time, averaged over about `footprint` radians.
    virtual Colour look(const Eigen::Vector3d& from, const Eigen::Vector3d& direction,
                        double footprint, double time) const = 0;
};

/// A town on a plain: tiled ground, buildings with windows around the horizon, clouds. It is
/// infinitely far away: it looks the same from everywhere.
class Town final : public World {
public:
    Colour look(const Eigen::Vector3d& from, const Eigen::Vector3d& direction, double footprint,
                double time) const override;
};

/// World with objects that move before it, in lanes one above the other, each lane at a speed of its
/// own. They are infinitely far away, like the town.
class Traffic final : public World {
public:
    /// behind: borrowed. share: of the picture that the objects cover on average, 0 to 0.5.
    Traffic(const World& behind, double share, uint32_t seed)
        : behind_(behind), share_(share), seed_(seed) {}

    Colour look(const Eigen::Vector3d& from, const Eigen::Vector3d& direction, double footprint,
                double time) const override;

private:
    const World& behind_;
    double share_;
    uint32_t seed_;
};

}  // namespace framehold::simulation
