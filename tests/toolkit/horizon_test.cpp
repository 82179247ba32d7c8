// Levelling against simulated cameras whose roll is known.
#include "path/horizon.h"

#include "common/angles.h"
#include "path/optimal_path.h"
#include "simulation/camera_motion.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace framehold {
namespace {

using Eigen::Quaterniond;
using Eigen::Vector3d;

constexpr PinholeCamera kSource{1280, 720, 1000.0, 0.02};
constexpr double kLength = 10.0;  // seconds

/// A recording of a simulated camera.
struct Recording {
    OrientationTrack track;
    std::vector<MotionSample> gravity;
    std::vector<double> times;  // of the frames
};

Recording record(const simulation::CameraMotion& motion, double bias) {
    simulation::SensorSettings sensors;
    sensors.gravityNoise = 0.3;
    sensors.rateBias = Vector3d(-0.3, 0.5, 1.0) * bias;
    Recording result;
    std::vector<MotionSample> rates;
    for (const auto& r : simulation::readSensors(motion, sensors, 0.0, kLength)) {
        rates.push_back({r.time, {r.rate.x(), r.rate.y(), r.rate.z()}});
        result.gravity.push_back({r.time, {r.gravity.x(), r.gravity.y(), r.gravity.z()}});
    }
    result.track = OrientationTrack{GyroPath(rates)};
    for (double t = 0.5; t < kLength - 0.5; t += 1.0 / 30.0) result.times.push_back(t);
    return result;
}

/// Roll of an orientation in a world whose z axis is up, in degrees, of a device held upside `held`.
double rollOf(const Quaterniond& orientation, double held) {
    const Vector3d up = orientation.conjugate() * Vector3d::UnitZ();
    return std::remainder(toDegrees(std::atan2(up.y(), up.x())) - held, 360.0);
}

TEST(Horizon, IsLevelWhereTheMarginGivesRoom) {
    struct Case {
        const char* name;
        simulation::PathSettings path;
        double largest;  // degrees of roll that may be left
        double held = 0.0;
        bool walks = false;
        double bias = 0.0;  // rad/s
        double levelling = 1.0;
    };
    // Shake, pan, its period, roll, seed and tilt
    const Case kCases[] = {
        {"level", {1.0, 20.0, 12.0, 0.0, 1, 0.0}, 0.1},
        {"tilted", {1.0, 20.0, 12.0, 0.0, 1, 5.0}, 0.1},
        {"rolling", {1.0, 20.0, 12.0, 1.0, 1, -5.0}, 0.1},
        {"on its side", {1.0, 0.0, 12.0, 0.0, 1, 95.0}, 0.1, 90.0},
        {"upside down", {1.0, 0.0, 12.0, 0.0, 1, -176.0}, 0.1, 180.0},
        {"walking", {1.0, 0.0, 12.0, 0.0, 1, 5.0}, 0.15, 0.0, true},
        {"drift", {1.0, 20.0, 12.0, 0.0, 1, 5.0}, 1.0, 0.0, false, 0.005},
        {"half", {1.0, 0.0, 12.0, 0.0, 1, 6.0}, 3.2, 0.0, false, 0.0, 0.5},
        {"no room", {1.0, 0.0, 12.0, 0.0, 1, 20.0}, 9.0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<simulation::CameraMotion> motion =
            std::make_unique<simulation::CameraPath>(c.path);
        if (c.walks) {
            motion = std::make_unique<simulation::WalkingMotion>(std::move(motion),
                                                                 simulation::WalkSettings());
        }
        const Recording clip = record(*motion, c.bias);
        const Horizon horizon(clip.track, clip.gravity, clip.times);
        ASSERT_TRUE(horizon.isKnown());
        PathSettings settings;
        settings.horizon = &horizon;
        settings.levelling = c.levelling;
        const PinholeCamera output{1280, 720, kSource.focal / 0.7, 0.0};
        const OptimalPath path =
            findOptimalPath(clip.track, clip.times, kSource, output, settings, [](double) {});
        double own = 0.0, left = 0.0;
        for (size_t i = 0; i < clip.times.size(); ++i) {
            const double t = clip.times[i];
            const Quaterniond toTruth = motion->at(t) * clip.track.at(t).conjugate();
            own = std::max(own, std::abs(rollOf(motion->at(t), c.held)));
            left = std::max(left, std::abs(rollOf(toTruth * path.views[i].orientation, c.held)));
            EXPECT_LE(path.shareUsed[i], 1.0) << i;
        }
        EXPECT_LT(left, c.largest);
        EXPECT_GT(own, 2.0 * left);  // or the case is too easy
    }
}

TEST(Horizon, TurnsNothingWhereThereIsNoLevel) {
    const std::vector<double> times{0.0, 1.0, 2.0};
    const auto held = [](double t) { return MotionSample{t, {9.81, 0.0, 0.0}}; };
    const Horizon horizon({}, {held(0.0), held(1.0), held(2.0)}, times);
    struct Case {
        double pitch, roll;  // degrees
        double turned;       // share of the roll
    };
    for (const Case& c : {Case{0.0, 25.0, 1.0}, Case{50.0, 25.0, 1.0}, Case{-50.0, 25.0, 1.0},
                          Case{67.5, 25.0, 0.5}, Case{80.0, 25.0, 0.0}, Case{-80.0, 25.0, 0.0},
                          Case{0.0, 45.0, 0.5}, Case{0.0, 90.0, 0.0}, Case{0.0, 179.0, 0.0}}) {
        const Quaterniond orientation =
            Quaterniond(Eigen::AngleAxisd(toRadians(c.pitch), Vector3d::UnitY())) *
            Eigen::AngleAxisd(toRadians(-c.roll), Vector3d::UnitZ());
        const Quaterniond level = horizon.levelled(orientation, 1.0, 1.0);
        EXPECT_NEAR(toDegrees(orientation.angularDistance(level)), c.turned * c.roll, 0.5)
            << c.pitch << ' ' << c.roll;
    }
    // Gravity was taken out of these.
    const auto felt = [](double t, double x) { return MotionSample{t, {x, 0.0, 0.0}}; };
    EXPECT_FALSE(Horizon({}, {felt(0.0, 1.0), felt(0.1, -1.0), felt(0.2, 0.0)}, times).isKnown());
}

}  // namespace
}  // namespace framehold
