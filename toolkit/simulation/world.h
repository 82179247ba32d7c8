#pragma once

#include <cstdint>

#include <Eigen/Geometry>

namespace framehold::simulation {

/// A colour, each component 0 to 1 (chroma -0.5 to 0.5).
struct Colour {
    double luma;
    double cb;
    double cr;
};

/// What a camera sees in every direction, infinitely far away.
class World {
public:
    virtual ~World() = default;

    /// The colour in a direction (world coordinates, z up, any length) at a time, averaged over
    /// about `footprint` radians.
    virtual Colour look(const Eigen::Vector3d& direction, double footprint, double time) const = 0;
};

/// A town on a plain: tiled ground, buildings with windows around the horizon, clouds.
class Town final : public World {
public:
    Colour look(const Eigen::Vector3d& direction, double footprint, double time) const override;
};

/// A world with things that move on their own before it, each at a speed of its own, in lanes one
/// above the other.
class Traffic final : public World {
public:
    /// share: of the picture that the moving things cover on average, 0 to 0.5.
    Traffic(const World& behind, double share, uint32_t seed)
        : behind_(behind), share_(share), seed_(seed) {}

    Colour look(const Eigen::Vector3d& direction, double footprint, double time) const override;

private:
    const World& behind_;
    double share_;
    uint32_t seed_;
};

}  // namespace framehold::simulation
