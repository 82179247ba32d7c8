// Crops and zooms that the path decides.
#include "path/zoom_choice.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

namespace framehold {
namespace {

using Eigen::Vector3d;

constexpr PinholeCamera kSource{1280, 720, 1000.0, 0.02};

PinholeCamera outputFor(double crop) { return {1280, 720, 100.0 * kSource.focal / crop, 0.0}; }

/// Shake whose strength, in rad/s, changes with time.
OrientationTrack shaken(const std::function<double(double)>& strength, double seconds) {
    std::vector<MotionSample> rates;
    for (double t = 0.0; t < seconds; t += 0.005) {
        const double s = strength(t);
        rates.push_back({t,
                         {s * std::sin(9.0 * t), s * std::sin(11.0 * t + 1.0),
                          s / 3.0 * std::sin(7.0 * t + 2.0)}});
    }
    return OrientationTrack{GyroPath(rates)};
}

std::vector<double> frameTimes(double from, double to) {
    std::vector<double> times;
    for (double t = from; t < to; t += 1.0 / 30.0) times.push_back(t);
    return times;
}

/// Largest change of the zoom, as a share per second.
double fastest(const std::vector<double>& times, const std::vector<double>& zooms) {
    double result = 0.0;
    for (size_t i = 1; i < zooms.size(); ++i) {
        const double change = std::abs(std::log(zooms[i] / zooms[i - 1]));
        if (times[i] > times[i - 1])
            result = std::max(result, change / (times[i] - times[i - 1]));
        else
            EXPECT_EQ(change, 0.0) << i;
    }
    return result;
}

TEST(EasedZooms, AreSlowAndHeldAndNeverTooSmall) {
    struct Case {
        const char* name;
        std::function<double(double)> needed;
        double atMost;  // in the middle of the clip, where it is known
    };
    const Case kCases[] = {
        {"constant", [](double) { return 0.85; }, 0.85},
        {"step", [](double t) { return t < 15.0 ? 0.82 : 1.0; }, 1.0},
        {"jolts", [](double t) { return std::fmod(t, 3.0) < 0.1 ? 1.0 : 0.82; }, 1.0},
        {"a calm middle", [](double t) { return std::abs(t - 15.0) < 10.0 ? 0.82 : 1.0; }, 0.89},
        {"noise", [](double t) { return 0.9 + 0.08 * std::sin(1e4 * t * t); }, 1.0},
    };
    std::vector<double> uneven = frameTimes(0.0, 30.0);
    for (size_t i = 200; i < 205; ++i) uneven[i] = uneven[199];
    uneven.erase(uneven.begin() + 400, uneven.begin() + 450);
    for (const std::vector<double>& times : {frameTimes(0.0, 30.0), uneven}) {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.name);
            std::vector<double> needed;
            for (const double t : times) needed.push_back(c.needed(t));
            const std::vector<double> zooms = easedZooms(times, needed);
            ASSERT_EQ(zooms.size(), needed.size());
            double turned = -kZoomHold;  // when the zoom last went the other way
            bool goesIn = false;
            for (size_t i = 0; i < times.size(); ++i) {
                EXPECT_GE(zooms[i], needed[i] - 1e-9) << i;
                EXPECT_LE(zooms[i], 1.0 + 1e-9) << i;
                const double change = i > 0 ? zooms[i] - zooms[i - 1] : 0.0;
                if (std::abs(change) < 1e-5 || (change > 0.0) == goesIn) continue;
                EXPECT_GT(times[i] - turned, 2.0) << "pumps at " << times[i];
                goesIn = change > 0.0;
                turned = times[i];
            }
            EXPECT_LE(fastest(times, zooms), kZoomSpeed * (1.0 + 1e-6));
            EXPECT_LE(zooms[times.size() / 2], c.atMost + 0.001);
        }
    }
    EXPECT_TRUE(easedZooms({}, {}).empty());
}

TEST(ZoomChoice, ShowsAsMuchAsThePathLeaves) {
    struct Case {
        const char* name;
        std::function<double(double)> strength;  // rad/s
        int smallest, largest;                   // crop
    };
    const Case kCases[] = {
        {"calm", [](double) { return 0.02; }, 96, 98},
        {"shaky", [](double) { return 0.3; }, 80, 92},
        {"too shaky", [](double) { return 2.0; }, 70, 70},
        {"a jolt", [](double t) { return std::abs(t - 7.0) < 0.3 ? 0.5 : 0.1; }, 75, 90},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const OrientationTrack track = shaken(c.strength, 15.0);
        const std::vector<double> times = frameTimes(0.5, 14.5);
        double share = 0.0;
        const auto onProgress = [&](double now) {
            EXPECT_GE(now, share);
            share = now;
        };
        const ChosenCrop chosen = chooseCrop({track, times, kSource, {}, outputFor, onProgress});
        EXPECT_GE(chosen.crop, c.smallest);
        EXPECT_LE(chosen.crop, c.largest);
        EXPECT_EQ(chosen.forcedSpeed > kUnseenSpeed, chosen.crop == kSmallestCrop);
        EXPECT_EQ(share, 1.0);
        ASSERT_EQ(chosen.path.views.size(), times.size());
        EXPECT_LE(*std::max_element(chosen.path.shareUsed.begin(), chosen.path.shareUsed.end()),
                  1.0);
    }
}

TEST(ZoomChoice, ZoomsOutWhereThePathLeavesRoom) {
    const OrientationTrack track =
        shaken([](double t) { return std::abs(t - 12.0) < 4.0 ? 0.5 : 0.05; }, 25.0);
    const std::vector<double> times = frameTimes(0.5, 24.5);
    const OptimalPath path =
        findZoomingPath({track, times, kSource, {}, outputFor, [](double) {}}, 80);
    std::vector<double> zooms;
    for (const View& view : path.views) zooms.push_back(view.zoom);
    EXPECT_LT(zooms.front(), 0.86);
    EXPECT_LT(zooms.back(), 0.86);
    EXPECT_GT(zooms[zooms.size() / 2], 0.93);
    EXPECT_LE(fastest(times, zooms), kZoomSpeed * (1.0 + 1e-6));
    EXPECT_LE(*std::max_element(path.shareUsed.begin(), path.shareUsed.end()), 1.0);
}

}  // namespace
}  // namespace framehold
