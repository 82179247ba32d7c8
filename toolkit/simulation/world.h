#pragma once

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

}  // namespace framehold::simulation
