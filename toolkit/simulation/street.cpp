#include "simulation/street.h"

#include "simulation/texture.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace framehold::simulation {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNearest = 0.2;          // metres: what is nearer is not seen
constexpr double kFarthestThing = 60.0;   // metres: things fade before
constexpr double kFarthestFront = 400.0;  // metres: houses fade before
constexpr double kFade = 0.25;            // of these distances
constexpr double kTallest = 4.6;          // metres: no thing is higher

/// Share that is seen of what fades at a distance.
double fadeAt(double distance, double farthest) {
    return std::clamp((farthest - distance) / (kFade * farthest), 0.0, 1.0);
}

/// `grain` of noise in the pattern of something, blurred away where it is too fine to be seen.
/// size and blur: metres.
double grain(double u, double v, double size, double blur) {
    const double share = 1.0 - blur / size;
    return share > 0.0 ? share * (noise(u / size, v / size) - 0.5) : 0.0;
}

Colour brighter(const Colour& c, double luma) {
    return {std::clamp(c.luma + luma, 0.0, 1.0), c.cb, c.cr};
}

constexpr double kHouseWidth = 9.0;  // metres
constexpr double kStorey = 3.0;      // metres
constexpr double kGardenWall = 2.2;  // metres

/// Height of a house in metres; some are but garden walls.
double houseHeight(int64_t number, int side) {
    const double size = hash(number, 21 + side);
    return size < 0.3 ? kGardenWall : mix(5.0, 16.0, size);
}

/// Colour of a house at a place on its front; blur in metres along and up.
Colour houseFront(int64_t number, int side, double along, double up, double blurAlong,
                  double blurUp) {
    const int64_t salt = 2 * number + side;
    const Colour wall{mix(0.35, 0.75, hash(salt, 3)), mix(-0.08, 0.05, hash(salt, 4)),
                      mix(-0.05, 0.12, hash(salt, 5))};
    const double blur = std::max(blurAlong, blurUp);
    const Colour plaster =
        brighter(wall, 0.25 * grain(along, up, 0.7, blur) + 0.2 * grain(along, up, 0.15, blur));
    if (houseHeight(number, side) == kGardenWall) return plaster;
    const double windowWidth = kHouseWidth / std::round(mix(3.0, 6.0, hash(salt, 6)));
    const double u = along / windowWidth;
    const double v = up / kStorey;
    const double lit =
        hash(salt * 64 + static_cast<int64_t>(std::floor(u)), static_cast<int64_t>(std::floor(v)));
    const Colour dark{0.14, 0.03, -0.02};
    const Colour pane = mix(lit > 0.75 ? Colour{0.85, -0.12, 0.05} : dark, dark,
                            std::clamp(blurAlong / windowWidth, 0.0, 1.0));
    const double glass =
        inCell(u, 0.25, blurAlong / windowWidth) * inCell(v, 0.25, blurUp / kStorey);
    return mix(plaster, pane, glass);
}

/// Colour of a thing at a point of its surface, given from the foot of its axis.
Colour paintOf(const StreetThing& thing, const Eigen::Vector3d& point, bool isBall, double blur) {
    const auto n = static_cast<double>(thing.pattern);
    const double light = 0.12 * point.x() / (isBall ? thing.ballRadius : thing.radius);
    const double around =
        isBall ? point.x() + 0.6 * point.z() : std::atan2(point.x(), point.y()) * thing.radius;
    const double up = isBall ? point.y() - 0.6 * point.z() : point.z();
    const auto patterned = [&](const Colour& base, double size, double contrast) {
        return brighter(base, light + contrast * grain(around + 7.0 * n, up, size, blur));
    };
    using Kind = StreetThing::Kind;
    switch (thing.kind) {
        case Kind::kTree:
            return isBall ? patterned({0.34, -0.10, -0.08}, 0.18, 0.7)
                          : patterned({0.28, -0.04, 0.04}, 0.08, 0.4);
        case Kind::kPerson: {
            const bool isCoat = point.z() > 0.8;
            const Colour cloth{mix(0.2, 0.7, hash(thing.pattern, isCoat ? 31 : 32)),
                               mix(-0.15, 0.15, hash(thing.pattern, 33)),
                               mix(-0.15, 0.15, hash(thing.pattern, 34))};
            return isBall ? patterned({0.6, -0.06, 0.08}, 0.08, 0.3)
                          : patterned(isCoat ? cloth : Colour{cloth.luma, 0.03, -0.02}, 0.12, 0.5);
        }
        case Kind::kPillar:
            // Posters.
            return isBall ? patterned({0.25, 0.0, 0.0}, 0.3, 0.2)
                          : patterned({mix(0.3, 0.9,
                                           hash(std::llround(around / 0.6 + 9.0 * n),
                                                std::llround(up / 0.8))),
                                       mix(-0.2, 0.2, hash(thing.pattern, 35)), 0.05},
                                      0.1, 0.6);
        default:
            return patterned({0.22, 0.02, -0.02}, 0.25, 0.3);
    }
}

StreetThing makeThing(int64_t section, int side) {
    const auto random = [&](int which) { return hash(2 * section + side, 100 + which); };
    StreetThing thing;
    const double away = mix(1.7, 5.4, random(1) * random(1));
    thing.centre = {side == Street::kLeft ? -away : away, mix(1.3, 2.7, random(2))};
    thing.pattern = static_cast<int64_t>(1000.0 * random(3));
    const auto shape = [&](StreetThing::Kind kind, double radius, double height, double ballRadius,
                           double ballHeight) {
        thing.kind = kind;
        thing.radius = radius;
        thing.height = height;
        thing.ballRadius = ballRadius;
        thing.ballHeight = ballHeight;
    };
    const double size = mix(0.9, 1.1, random(4));
    const double choice = random(5);
    using Kind = StreetThing::Kind;
    if (choice < 0.30) {
        shape(Kind::kPost, 0.06, 3.8 * size, 0.2, 3.8 * size);
    } else if (choice < 0.55) {
        shape(Kind::kTree, 0.14 * size, 2.6 * size, 1.1 * size, 3.0 * size);
    } else if (choice < 0.80) {
        shape(Kind::kPerson, 0.23, 1.52 * size, 0.12, 1.64 * size);
    } else if (choice < 0.92) {
        shape(Kind::kPillar, 0.55, 2.6, 0.6, 2.6);
    }
    return thing;
}

}  // namespace

/// A look along a direction whose horizontal part has length 1: distances are horizontal ones.
struct Street::Ray {
    Eigen::Vector3d from;  // z above the ground
    Eigen::Vector3d direction;
    double footprint;

    Eigen::Vector3d at(double distance) const { return from + distance * direction; }
    double blurAt(double distance) const { return footprint * distance; }
};

/// What is seen on one ray, from the nearest layer to the farthest.
struct Street::Layers {
    Colour sum{0.0, 0.0, 0.0};
    double left = 1.0;  // share of the light that comes from farther layers

    void add(const Colour& c, double opacity) {
        const double share = left * opacity;
        sum = {sum.luma + share * c.luma, sum.cb + share * c.cb, sum.cr + share * c.cr};
        left -= share;
    }
    bool isFull() const { return left < 1e-3; }
};

Street::Street() {
    for (int64_t i = 0; i < kSections; ++i) {
        for (const Side side : {kLeft, kRight}) {
            things_[static_cast<size_t>(i)][side] = makeThing(i, side);
        }
    }
}

const StreetThing& Street::thingIn(int64_t section, Side side) const {
    return things_[static_cast<size_t>(section & (kSections - 1))][side];
}

void Street::addThing(const Ray& ray, const StreetThing& thing, const Eigen::Vector3d& foot,
                      Layers& layers) {
    const Eigen::Vector3d& d = ray.direction;
    const Eigen::Vector3d to = foot - ray.from;
    const double along = to.x() * d.x() + to.y() * d.y();
    const double beside = std::fabs(to.x() * d.y() - to.y() * d.x());
    const double blur = ray.blurAt(along);
    if (along < kNearest || beside > thing.reach() + blur) return;
    const double seen = fadeAt(along, kFarthestThing);

    const auto depthOf = [](double radius, double squaredMiss) {
        return std::sqrt(std::max(0.0, radius * radius - squaredMiss));
    };
    const double toCylinder = along - depthOf(thing.radius, beside * beside);
    const auto addCylinder = [&] {
        const Eigen::Vector3d point = ray.at(toCylinder) - foot;
        const double opacity = coverage(thing.radius - beside, blur) *
                               coverage(thing.height - point.z(), blur) * coverage(point.z(), blur);
        if (opacity > 0.0) layers.add(paintOf(thing, point, false, blur), seen * opacity);
    };
    const Eigen::Vector3d ball = foot + Eigen::Vector3d(0.0, 0.0, thing.ballHeight);
    const double steepness = d.norm();
    const double alongBall = (ball - ray.from).dot(d) / (steepness * steepness);
    const double miss = (ray.at(alongBall) - ball).norm();
    const double toBall = alongBall - depthOf(thing.ballRadius, miss * miss) / steepness;
    const auto addBall = [&] {
        const double opacity = coverage(thing.ballRadius - miss, blur);
        if (opacity > 0.0)
            layers.add(paintOf(thing, ray.at(toBall) - ball, true, blur), seen * opacity);
    };
    if (toBall < toCylinder) addBall();
    addCylinder();
    if (toBall >= toCylinder) addBall();
}

void Street::addThings(const Ray& ray, double end, Layers& layers) const {
    const auto sectionAt = [&](double distance) {
        return static_cast<int64_t>(std::floor(ray.at(distance).y() / kSectionLength));
    };
    // From the nearest on: no thing reaches over the bounds of its section and side.
    const int64_t last = sectionAt(end);
    const int64_t step = ray.direction.y() < 0.0 ? -1 : 1;
    const Side first = ray.direction.x() > 0.0 ? kLeft : kRight;
    for (int64_t section = sectionAt(0.0); !layers.isFull(); section += step) {
        for (const Side side : {first, first == kLeft ? kRight : kLeft}) {
            const StreetThing& thing = thingIn(section, side);
            if (thing.kind == StreetThing::Kind::kNone) continue;
            const double start = static_cast<double>(section) * kSectionLength;
            addThing(ray, thing, {thing.centre.x(), start + thing.centre.y(), 0.0}, layers);
        }
        if (section == last) return;
    }
}

void Street::addHouses(const Ray& ray, double distance, Layers& layers) {
    const Eigen::Vector3d point = ray.at(distance);
    const int side = ray.direction.x() > 0.0 ? kRight : kLeft;
    const double blurUp = ray.blurAt(distance);
    const double blurAlong = blurUp / std::fabs(ray.direction.x());
    const double number = std::floor(point.y() / kHouseWidth);
    const double along = point.y() - number * kHouseWidth;

    // The house there and the one next to it, whose share is 0 but for a footprint over their edge.
    const bool isNearStart = 2.0 * along < kHouseWidth;
    const auto house = static_cast<int64_t>(number);
    const int64_t next = isNearStart ? house - 1 : house + 1;
    const double inHouse = coverage(isNearStart ? along : kHouseWidth - along, blurAlong);
    const auto shareOf = [&](int64_t which, double share) {
        return share * coverage(houseHeight(which, side) - point.z(), blurUp);
    };
    const double own = shareOf(house, inHouse);
    const double other = inHouse < 1.0 ? shareOf(next, 1.0 - inHouse) : 0.0;
    const double opacity = (own + other) * coverage(point.z(), blurUp);
    if (opacity <= 0.0) return;
    Colour colour = houseFront(house, side, along, point.z(), blurAlong, blurUp);
    if (other > 0.0) {
        const double onNext = isNearStart ? kHouseWidth : 0.0;
        colour = mix(colour, houseFront(next, side, onNext, point.z(), blurAlong, blurUp),
                     other / (own + other));
    }
    layers.add(colour, opacity * fadeAt(distance, kFarthestFront));
}

Colour Street::look(const Eigen::Vector3d& from, const Eigen::Vector3d& direction, double footprint,
                    double time) const {
    const Ray ray{from + Eigen::Vector3d(0.0, 0.0, kEyeHeight), perHorizontal(direction),
                  footprint};
    const Eigen::Vector3d& d = ray.direction;
    const double houses = d.x() > 0.0 ? kHalfWidth : -kHalfWidth;
    const double toHouses = d.x() != 0.0 ? (houses - ray.from.x()) / d.x() : kInfinity;
    const double toGround = d.z() < 0.0 ? ray.from.z() / -d.z() : kInfinity;
    const double toTop = d.z() > 0.0 ? (kTallest - ray.from.z()) / d.z() : kInfinity;

    Layers layers;
    const double end = std::min({kFarthestThing, toHouses, toGround, toTop});
    addThings(ray, std::max(0.0, end), layers);
    if (!layers.isFull() && toHouses < kFarthestFront) addHouses(ray, toHouses, layers);
    if (layers.isFull()) return layers.sum;
    if (toGround < kInfinity) {
        const Eigen::Vector3d point = ray.at(toGround);
        const double blur = ray.blurAt(toGround) * toGround / ray.from.z();
        const Colour tile = paving(point.x(), point.y(), blur);
        layers.add(brighter(tile, 0.2 * grain(point.x(), point.y(), 0.25, blur)), 1.0);
    } else {
        layers.add(far_.look(from, direction, footprint, time), 1.0);
    }
    return layers.sum;
}

}  // namespace framehold::simulation
