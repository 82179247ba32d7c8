#pragma once

#include "simulation/world.h"

#include <cstdint>

namespace framehold::simulation {

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
