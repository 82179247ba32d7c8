#include "path/optimal_path.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace framehold {
namespace {

using Eigen::Quaterniond;
using Eigen::Vector3d;

constexpr PinholeCamera kSource{1280, 720, 1000.0, 0.02};

PinholeCamera croppedOutput(double crop) { return {1280, 720, kSource.focal / crop, 0.0}; }

/// A track by its rate in rad/s about the device axes, from 0 to `seconds`.
OrientationTrack trackOf(const std::function<Vector3d(double)>& rate, double seconds) {
    std::vector<MotionSample> rates;
    for (double t = 0.0; t < seconds; t += 0.005) {
        const Vector3d r = rate(t - 0.0025);
        rates.push_back({t, {r.x(), r.y(), r.z()}});
    }
    return OrientationTrack{GyroPath(rates)};
}

/// Hand shake: sines of which each is a third as strong as the one before, in all axes.
Vector3d shake(double t, double strength) {
    return strength * Vector3d(std::sin(9.0 * t) + std::cos(31.0 * t) / 3.0,
                               std::sin(11.0 * t + 1.0) + std::cos(27.0 * t) / 3.0,
                               std::sin(7.0 * t + 2.0) / 3.0);
}

std::vector<double> frameTimes(size_t count, double start = 0.5) {
    std::vector<double> times;
    for (size_t i = 0; i < count; ++i) times.push_back(start + static_cast<double>(i) / 30.0);
    return times;
}

OptimalPath find(const OrientationTrack& track, const std::vector<double>& times,
                 double crop = 0.8) {
    return findOptimalPath(track, times, kSource, croppedOutput(crop), {}, [](double) {});
}

/// Angle between orientations, in pixels of the source.
double distance(const Quaterniond& a, const Quaterniond& b) {
    return kSource.focal * a.angularDistance(b);
}

/// Farthest that a pixel of the output's border is from the inside of the source, in pixels: each is
/// followed row by row, as a scan finds it.
double outside(const OrientationTrack& track, double time, const View& view,
               const PinholeCamera& source, const PinholeCamera& plainOutput) {
    const PinholeCamera output = view.zoomed(plainOutput);
    double worst = -1e9;
    for (int i = 0; i <= 40; ++i) {
        const double x = output.width * i / 40.0;
        const double y = output.height * i / 40.0;
        for (const Eigen::Vector2d& pixel :
             {Eigen::Vector2d(x, 0.0), Eigen::Vector2d(x, output.height), Eigen::Vector2d(0.0, y),
              Eigen::Vector2d(output.width, y)}) {
            Eigen::Vector2d seen = Eigen::Vector2d::Zero();
            double smallest = 1e9;
            for (double row = -20.0; row < source.height + 20.0; row += 1.0) {
                const Quaterniond own = track.at(source.rowTime(time, row));
                const auto at =
                    source.project(own.conjugate() * view.orientation * output.ray(pixel));
                if (std::abs(at.y() - row) > smallest) continue;
                smallest = std::abs(at.y() - row);
                seen = at;
            }
            worst = std::max({worst, -seen.x(), -seen.y(), seen.x() - (source.width - 1),
                              seen.y() - (source.height - 1)});
        }
    }
    return worst;
}

TEST(LensDistortion, HasTheCurvesOfItsModels) {
    const double degree = M_PI / 180.0;
    const struct {
        const char* name;
        LensDistortion lens;
        double angle;
        double radius;
        double tolerance;
    } kCases[] = {
        {"pinhole", {}, 30.0 * degree, 0.57735026919, 1e-10},
        {"no coefficients", {LensModel::kPolynomial, {}}, 60.0 * degree, 1.73205080757, 1e-10},
        {"equidistant", {LensModel::kFisheye, {}}, 100.0 * degree, 1.74532925199, 1e-10},
        // The series of 2 sin(t / 2).
        {"equisolid",
         {LensModel::kFisheye, {-1.0 / 24, 1.0 / 1920, -1.0 / 322560, 1.0 / 92897280}},
         95.0 * degree,
         2.0 * std::sin(47.5 * degree),
         1e-7},
        {"polynomial",
         {LensModel::kPolynomial, {0.1, -0.02, 0.003, 0.05}},
         std::atan(0.5),
         0.5 * 1.023796875 / 1.0125,
         1e-12}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_NEAR(c.lens.at(c.angle).radius, c.radius, c.tolerance);
        EXPECT_NEAR(c.lens.angle(c.radius), c.angle, c.tolerance);
    }
}

TEST(LensDistortion, EndsWhereItsModelFoldsBack) {
    const struct {
        const char* name;
        LensDistortion lens;
        double angle;
        double radius;
    } kCases[] = {
        {"r - r^3 / 3", {LensModel::kPolynomial, {-1.0 / 3.0, 0.0, 0.0, 0.0}}, M_PI / 4, 2.0 / 3},
        {"t - t^3 / 3", {LensModel::kFisheye, {-1.0 / 3.0, 0.0, 0.0, 0.0}}, 1.0, 2.0 / 3},
        {"r / (1 + r^2)", {LensModel::kPolynomial, {0.0, 0.0, 0.0, 1.0}}, M_PI / 4, 0.5}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_NEAR(c.lens.largestAngle(), c.angle, 0.01);
        EXPECT_NEAR(c.lens.largestRadius(), c.radius, 1e-3);
        double last = -1.0;
        for (double angle = 0.0; angle <= M_PI; angle += 0.003) {
            const double radius = c.lens.at(angle).radius;
            EXPECT_GT(radius, last);
            EXPECT_NEAR(c.lens.angle(radius), angle, 1e-9);
            last = radius;
        }
    }
}

TEST(PinholeCamera, ProjectsTheRaysOfPixelsToThem) {
    for (const LensDistortion& lens :
         {LensDistortion(), LensDistortion(LensModel::kPolynomial, {-0.3, 0.1, 0.0, 0.0}),
          LensDistortion(LensModel::kPolynomial, {0.2, 0.0, 0.0, 0.0}),
          LensDistortion(LensModel::kFisheye, {0.05, -0.03, 0.0, 0.0})}) {
        PinholeCamera camera = kSource;
        camera.lens = lens;
        camera.focal = 420.0;
        for (const double x : {-200.0, 0.0, 640.0, 777.0, 1500.0}) {
            for (const double y : {-90.0, 1.0, 360.0, 720.0}) {
                const Vector3d ray = camera.ray({x, y});
                EXPECT_LT((camera.project(7.0 * ray) - Eigen::Vector2d(x, y)).norm(), 1e-7);
                const auto slopes = camera.projectSlopes(ray);
                for (int i = 0; i < 3; ++i) {
                    const Vector3d step = 1e-6 * ray.norm() * Vector3d::Unit(i);
                    const Eigen::Vector2d change =
                        camera.project(ray + step) - camera.project(ray - step);
                    EXPECT_LT((change / (2.0 * step.norm()) - slopes.col(i)).norm(),
                              1e-5 * slopes.norm());
                }
            }
        }
    }
}

TEST(OptimalPath, KeepsEveryPixelInsideTheSource) {
    struct Case {
        const char* name;
        double strength;  // rad/s
        double pan;
        double crop;
        double zooming = 0.0;  // amplitude
        LensDistortion lens{};
        bool isStraightened = false;
    };
    const LensDistortion fisheye(LensModel::kFisheye, {-0.05, 0.01, 0.0, 0.0});
    for (const Case& c :
         {Case{"shake", 0.5, 0.0, 0.9}, Case{"strong shake", 2.0, 0.0, 0.8},
          Case{"pan", 0.3, 1.5, 0.8}, Case{"little room", 0.5, 1.0, 0.95},
          Case{"zoom", 0.3, 0.0, 0.85, 0.1}, Case{"fisheye", 2.0, 0.0, 0.8, 0.0, fisheye},
          Case{"straightened fisheye", 2.0, 0.5, 0.8, 0.0, fisheye, true}}) {
        SCOPED_TRACE(c.name);
        PinholeCamera source = kSource;
        PinholeCamera output = croppedOutput(c.crop);
        if (!c.lens.isNone()) {
            source.focal = 450.0;
            source.lens = output.lens = c.lens;
            output.focal = source.focal / c.crop;
        }
        if (c.isStraightened) output = straightened(source, 1280, 720, c.crop);
        const OrientationTrack track = trackOf(
            [&](double t) -> Vector3d {
                return shake(t, c.strength) + c.pan * std::sin(0.8 * t) * Vector3d::UnitX();
            },
            8.0);
        const std::vector<double> times = frameTimes(c.lens.isNone() ? 200 : 60);
        PathSettings settings;
        for (const double t : times) {
            settings.zooms.push_back(1.0 + c.zooming * std::sin(5.0 * t));
        }
        const OptimalPath path =
            findOptimalPath(track, times, source, output, settings, [](double) {});
        for (size_t i = 0; i < times.size(); i += 10) {
            EXPECT_EQ(path.views[i].zoom, settings.zooms[i]);
            EXPECT_LT(outside(track, times[i], path.views[i], source, output), -1.9) << i;
        }
        const double used = *std::max_element(path.shareUsed.begin(), path.shareUsed.end());
        EXPECT_GT(used, 0.9);  // or the case is too easy
        EXPECT_LE(used, 1.0);
    }
}

TEST(OptimalPath, FollowsAnEvenPanWithoutLagOrShake) {
    const OrientationTrack track =
        trackOf([](double t) -> Vector3d { return 0.3 * Vector3d::UnitX() + shake(t, 0.2); }, 10.0);
    const std::vector<double> times = frameTimes(270);
    const OptimalPath path = find(track, times);
    for (size_t i = 0; i < times.size(); ++i) {
        // The shake alone is up to 40 pixels; a lag of a second would be 300.
        EXPECT_LT(distance(path.views[i].orientation, track.at(times[i])), 60.0) << i;
        if (i == 0) continue;
        EXPECT_NEAR(distance(path.views[i - 1].orientation, path.views[i].orientation), 10.0, 0.5)
            << i;
    }
}

TEST(OptimalPath, LeavesASteadyClipSteady) {
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 0.002);
    const OrientationTrack track = trackOf(
        [&](double) { return Vector3d(noise(random), noise(random), noise(random)); }, 10.0);
    const std::vector<double> times = frameTimes(270);
    const OptimalPath path = find(track, times);
    const auto own = [&](size_t i) { return track.at(kSource.rowTime(times[i], 360.0)); };
    double noisy = 0.0;
    double added = 0.0;  // to the picture of a camera at rest
    for (size_t i = 1; i < times.size(); ++i) {
        noisy += std::pow(distance(own(i - 1), own(i)), 2.0);
        added += std::pow(distance(own(i - 1).conjugate() * path.views[i - 1].orientation,
                                   own(i).conjugate() * path.views[i].orientation),
                          2.0);
        EXPECT_LT(path.shareUsed[i], 0.02) << i;
    }
    EXPECT_GT(std::sqrt(noisy / 270.0), 0.04);
    EXPECT_LT(std::sqrt(added / 270.0), 0.01);
}

TEST(OptimalPath, ComesOutTheSameFromOtherWindows) {
    const OrientationTrack track = trackOf(
        [](double t) -> Vector3d { return shake(t, 0.5 + 0.15 * std::sin(0.3 * t)); }, 70.0);
    const std::vector<double> times = frameTimes(1500);
    const OptimalPath path = find(track, times);
    const OptimalPath later = find(track, {times.begin() + 317, times.end()});
    const double used = *std::max_element(path.shareUsed.begin(), path.shareUsed.end());
    EXPECT_GT(used, 0.95);  // or the case is too easy
    for (size_t i = 550; i < times.size(); ++i) {
        EXPECT_LT(distance(path.views[i].orientation, later.views[i - 317].orientation), 1.0) << i;
    }
}

TEST(OptimalPath, TakesAnyFrameTimes) {
    const OrientationTrack track = trackOf([](double t) { return shake(t, 0.5); }, 100.0);
    std::vector<double> variable;
    for (double t = 1.0; t < 8.0; t += 0.02 + 0.03 * std::fmod(7.3 * t, 1.0)) variable.push_back(t);
    struct Case {
        const char* name;
        std::vector<double> times;
    };
    for (const Case& c :
         {Case{"none", {}}, Case{"one", {1.0}}, Case{"two", {1.0, 1.04}},
          Case{"three", {1.0, 1.03, 1.07}}, Case{"all at once", {1.0, 1.0, 1.0}},
          Case{"repeated", {1.0, 1.03, 1.03, 1.07, 1.1, 1.1}},
          Case{"gap", {1.0, 1.03, 90.0, 90.03}}, Case{"once a second", {1.0, 2.0, 3.0, 4.0, 5.0}},
          Case{"before the log", {-9.0, -8.97, 0.0}}, Case{"variable", variable}}) {
        SCOPED_TRACE(c.name);
        for (const double crop : {0.8, 1.0}) {
            const OptimalPath path = find(track, c.times, crop);
            ASSERT_EQ(path.views.size(), c.times.size());
            ASSERT_EQ(path.shareUsed.size(), c.times.size());
            for (size_t i = 0; i < c.times.size(); ++i) {
                EXPECT_NEAR(path.views[i].orientation.norm(), 1.0, 1e-9);
                if (crop < 1.0) {
                    EXPECT_LE(path.shareUsed[i], 1.0);
                } else {  // without room the view is the camera's own
                    const double middle = kSource.rowTime(c.times[i], kSource.height / 2.0);
                    EXPECT_LT(distance(path.views[i].orientation, track.at(middle)), 1.0);
                }
                if (i > 0 && c.times[i] == c.times[i - 1]) {
                    EXPECT_LT(distance(path.views[i - 1].orientation, path.views[i].orientation),
                              1e-6);
                }
            }
        }
    }
}

TEST(OptimalPath, CanBeInterrupted) {
    const OrientationTrack track = trackOf([](double t) { return shake(t, 0.5); }, 20.0);
    double last = 0.0;
    const auto interrupt = [&](double share) {
        EXPECT_GE(share, last);
        last = share;
        if (share > 0.5) throw std::runtime_error("interrupted");
    };
    EXPECT_THROW(
        findOptimalPath(track, frameTimes(500), kSource, croppedOutput(0.8), {}, interrupt),
        std::runtime_error);
}

}  // namespace
}  // namespace framehold
