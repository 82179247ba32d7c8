// The simulated camera against geometry worked out here: what is seen of points at known places.
#include "common/angles.h"
#include "common/library_constants.h"
#include "simulation/camera.h"
#include "simulation/camera_motion.h"
#include "simulation/street.h"
#include "support/random.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

using namespace framehold::simulation;
using Eigen::Vector3d;
using framehold::kStandardGravity;

namespace {

using Points = std::vector<Vector3d>;

/// Points on the ground, on houses and on things, in world coordinates, that are not hidden from the
/// middle of the street before y = 20 m, or seldom.
Points pointsOf(const Street& street, const std::string& what) {
    zpr_test::Random random(5);
    Points points;
    for (int i = 0; i < 400; ++i) {
        const double up = random.uniform(1.0, 1.4) - kEyeHeight;
        if (what == "ground") {
            points.push_back({random.uniform(-0.4, 0.4), random.uniform(24.0, 40.0), -kEyeHeight});
        } else if (what == "houses") {
            const double y = random.uniform(18.0, 26.0);
            points.push_back({(i % 2 == 0 ? -1.0 : 1.0) * Street::kHalfWidth, y, up});
        } else {
            // The side of a thing that faces those who come.
            const int64_t section = 5 + i / 2 % 6;
            const Street::Side side = i % 2 == 0 ? Street::kLeft : Street::kRight;
            const StreetThing& thing = street.thingIn(section, side);
            if (thing.kind == StreetThing::Kind::kNone) continue;
            const double angle = random.uniform(-0.4, 0.4);
            points.push_back({thing.centre.x() + thing.radius * std::sin(angle),
                              thing.centre.y() +
                                  static_cast<double>(section) * Street::kSectionLength -
                                  thing.radius * std::cos(angle),
                              up});
        }
    }
    return points;
}

TEST(Street, PointsLookTheSameFromEverywhere) {
    const Street street;
    const Vector3d here(0.0, 15.0, 0.0);
    const auto luma = [&](const Vector3d& from, const Vector3d& direction) {
        return street.look(from, direction, 1e-6, 0.0).luma;
    };
    struct Row {
        const char* what;
        double seen;  // share of the points
    };
    for (const auto& [what, seen] : {Row{"ground", 0.99}, {"houses", 0.7}, {"things", 0.7}}) {
        const Points points = pointsOf(street, what);
        const auto sameShare = [&](const Vector3d& from, const Vector3d& lookedAtFrom) {
            const auto same = std::count_if(points.begin(), points.end(), [&](const Vector3d& p) {
                return std::fabs(luma(here, p - here) - luma(from, p - lookedAtFrom)) < 1e-4;
            });
            return static_cast<double>(same) / static_cast<double>(points.size());
        };
        for (const Vector3d& step : {Vector3d(0.3, 0.0, 0.0), {0.0, 0.0, 0.4}, {-0.2, 3.0, 0.1}}) {
            const Vector3d there = here + step;
            EXPECT_GE(sameShare(there, there), seen) << what << " from " << there.transpose();
            // In the same direction as before there is something else.
            EXPECT_LE(sameShare(there, here), 0.5) << what << " from " << there.transpose();
        }
    }
}

TEST(Worlds, HaveColoursStraightUpAndDown) {
    const Town town;
    const Street street;
    const Traffic traffic(street, 0.3, 1);
    for (const World* world : {static_cast<const World*>(&town), static_cast<const World*>(&street),
                               static_cast<const World*>(&traffic)}) {
        for (const double z : {-1.0, 1.0}) {
            const double luma = world->look({0.0, 3.0, 0.1}, {0.0, 0.0, z}, 1e-3, 0.5).luma;
            EXPECT_TRUE(luma >= 0.0 && luma <= 1.0) << luma << ' ' << z;
        }
    }
}

/// Pixel of a frame at which a point is, each row being read at its own time.
Eigen::Vector2d pixelOf(const Vector3d& point, const CameraModel& camera,
                        const CameraMotion& motion, double frameTime) {
    Eigen::Vector2d pixel(0.0, camera.height / 2.0);
    for (int i = 0; i < 20; ++i) {
        const double time = camera.rowTime(frameTime, pixel.y());
        pixel = camera.project(motion.at(time).inverse() * (point - motion.positionAt(time)));
    }
    return pixel;
}

TEST(WalkingMotion, ShiftsNearAndFarThingsInThePictureAsProjected) {
    CameraModel camera;
    camera.width = 640;
    camera.height = 360;
    camera.focal = 500.0;
    PathSettings path;
    path.pan = 5.0;
    const Street street;
    for (const WalkSettings& walk :
         {WalkSettings{0.0, 1.9, 10.0, 0.0}, {0.0, 1.9, 0.0, 20.0}, {3.0, 1.9, 0.0, 0.0}, kRun}) {
        const WalkingMotion motion(std::make_unique<CameraPath>(path), walk);
        const Picture before = renderFrame(street, camera, motion, 6.0);
        const Picture after = renderFrame(street, camera, motion, 6.2);
        const auto lumaAt = [&](const Picture& picture, const Eigen::Vector2d& pixel) {
            const int x = static_cast<int>(std::lround(pixel.x()));
            const int y = static_cast<int>(std::lround(pixel.y()));
            return static_cast<double>(picture.luma.at(static_cast<size_t>(y * camera.width + x)));
        };
        // Tiles that the ground has between 6 and 9 metres ahead.
        Vector3d sums = Vector3d::Zero();
        const double ahead = motion.steadyPositionAt(6.2).y();
        for (double y = ahead + 6.0; y < ahead + 9.0; y += 0.31) {
            for (double x = -1.2; x < 1.2; x += 0.17) {
                const Vector3d point(x, y, -kEyeHeight);
                const double a = lumaAt(before, pixelOf(point, camera, motion, 6.0)) - 100.0;
                const double b = lumaAt(after, pixelOf(point, camera, motion, 6.2)) - 100.0;
                sums += Vector3d(a * a, b * b, (a - b) * (a - b));
            }
        }
        // Blur and whole pixels leave 0.15; without the positions it is more than 1.
        EXPECT_LT(sums[2], 0.25 * std::min(sums[0], sums[1]))
            << walk.speed << " m/s, " << walk.bounce << " cm, " << walk.sway << " cm";
    }
}

TEST(WalkingMotion, AccelerometerFeelsTheSteps) {
    const WalkingMotion motion(std::make_unique<CameraPath>(PathSettings{}), WalkSettings{});
    const auto velocityAt = [&](double t) {
        return Vector3d((motion.positionAt(t + 1e-4) - motion.positionAt(t - 1e-4)) / 2e-4);
    };
    SensorSettings sensors;
    sensors.rate = 1000.0;
    Vector3d velocity = velocityAt(3.0);
    double largest = 0.0;
    for (const SensorReading& r : readSensors(motion, sensors, 3.0005, 5.0)) {
        velocity += (motion.at(r.time) * r.gravity - Vector3d(0, 0, kStandardGravity)) / 1000.0;
        largest = std::max(largest, (velocity - velocityAt(r.time + 0.0005)).norm());
    }
    EXPECT_LT(largest, 0.01);
}

TEST(CameraMotion, SteadyPathIsThePanAlone) {
    PathSettings pan;
    pan.shake = 0.0;
    pan.pan = 22.5;
    PathSettings shaky = pan;
    shaky.shake = 1.0;
    const CameraPath expected(pan);
    const WalkingMotion walk(std::make_unique<CameraPath>(shaky), WalkSettings{});
    const RecordedMotion rest({{0.0, {0.0, 0.0, 0.0}}, {9.0, {0.0, 0.0, 0.0}}}, 22.5);
    for (double t = 0.0; t < 9.0; t += 0.5) {
        EXPECT_LT(walk.steadyAt(t).angularDistance(expected.at(t)), 1e-7) << t;
        EXPECT_LT(rest.steadyAt(t).angularDistance(expected.at(t)), 1e-7) << t;
        EXPECT_LT(rest.at(t).angularDistance(expected.at(t)), 1e-7) << t;
    }
    // A recorded tremor of 4 Hz and 0.5 degrees is not wanted.
    std::vector<TimedRate> tremor;
    for (double t = 0.0; t < 6.0; t += 0.002) {
        const double speed = 8.0 * framehold::kPi * std::cos(8.0 * framehold::kPi * t);
        tremor.push_back({t, Vector3d(0.0, framehold::toRadians(0.5) * speed, 0.0)});
    }
    const RecordedMotion recorded(tremor);
    EXPECT_GT(recorded.at(3.0625).angularDistance(levelOrientation()), 0.008);
    EXPECT_LT(recorded.steadyAt(3.0625).angularDistance(levelOrientation()), 5e-4);
}

}  // namespace
