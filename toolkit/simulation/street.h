#pragma once

#include "simulation/world.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <Eigen/Geometry>

namespace framehold::simulation {

/// Thing on the ground of a street: an upright cylinder with a ball on it or around its top.
struct StreetThing {
    enum class Kind { kNone, kPost, kTree, kPerson, kPillar };

    Kind kind = Kind::kNone;
    Eigen::Vector2d centre;   // metres; y from the start of its section of the street
    double radius = 0.0;      // metres, of the cylinder
    double height = 0.0;      // metres above the ground, of the cylinder
    double ballRadius = 0.0;  // metres
    double ballHeight = 0.0;  // metres from the ground to the ball's centre
    int64_t pattern = 0;      // which of its kind's patterns it has

    /// Radius of the upright cylinder around all of it, in metres.
    double reach() const { return std::max(radius, ballRadius); }
};

/// A street along world y between two rows of houses, with posts, trees, people and pillars a few
/// metres from its middle: what is near moves in the picture when the camera moves. The town is
/// far behind it. A camera stays within a metre of the middle.
class Street final : public World {
public:
    static constexpr double kHalfWidth = 7.0;      // metres from the middle to the houses
    static constexpr double kSectionLength = 4.0;  // metres
    enum Side { kLeft, kRight };

    Street();

    /// What stands on a side of a section: the street from y = number * kSectionLength on.
    const StreetThing& thingIn(int64_t section, Side side) const;

    Colour look(const Eigen::Vector3d& from, const Eigen::Vector3d& direction, double footprint,
                double time) const override;

private:
    struct Ray;
    struct Layers;

    static void addThing(const Ray& ray, const StreetThing& thing, const Eigen::Vector3d& foot,
                         Layers& layers);
    /// What stands within a distance.
    void addThings(const Ray& ray, double end, Layers& layers) const;
    static void addHouses(const Ray& ray, double distance, Layers& layers);

    static constexpr int64_t kSections = 64;  // until things come again
    std::array<std::array<StreetThing, 2>, kSections> things_;
    Town far_;
};

}  // namespace framehold::simulation
