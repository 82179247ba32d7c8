#include "zpr_smoothing_policy.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kFrames = 240;  // 30 a second
constexpr double kPanStart = 3.0, kPanEnd = 5.7;

ZPR_Param makeParam(int delay, int level = 9) {
    ZPR_Param param{};
    param.inputImage = {ZPR_FORMAT_SEMIPLANAR_1, 640, 360, {}, {640, 640}};
    param.outputImage = param.inputImage;
    param.fieldOfView = 512.0;
    param.fieldOfViewMode = ZPR_FOV_FOCAL_LENGTH;
    param.readoutTime = 0.03;
    param.timeOffset = -0.01;
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
    param.cropPercent = 80;
    param.smoothingLevel = level;
    param.delayFrames = delay;
    return param;
}

/// Motion about one device axis.
struct Motion {
    const char* name;
    int axis;
    double panDegrees;   // eased, from kPanStart to kPanEnd
    double swayDegrees;  // amplitude
    double swayHertz;

    double angleAt(double t) const {
        const double x = std::clamp((t - kPanStart) / (kPanEnd - kPanStart), 0.0, 1.0);
        const double turned = panDegrees * (x - std::sin(2.0 * kPi * x) / (2.0 * kPi));
        return kPi / 180.0 * (turned + swayDegrees * std::sin(2.0 * kPi * swayHertz * t));
    }
};

ZPR_SensorData sampleOf(const Motion& motion, int type, double t) {
    constexpr double kPeriod = 1.0 / 200.0;
    ZPR_SensorData sample{type, t, {}};
    if (type == ZPR_SENSOR_ROTATION_1) {
        sample.value[motion.axis] = std::sin(motion.angleAt(t) / 2.0);
        sample.value[3] = std::cos(motion.angleAt(t) / 2.0);
    } else {
        sample.value[motion.axis] = (motion.angleAt(t) - motion.angleAt(t - kPeriod)) / kPeriod;
    }
    return sample;
}

/// Levels of all frames, with samples fed as a camera application does.
std::vector<int> levelsOf(const ZPR_Param& param, const Motion& motion,
                          int type = ZPR_SENSOR_RATE_1) {
    ZPR_SmoothingPolicy policy;
    EXPECT_EQ(ZPR_StartSmoothingPolicy(&policy, &param), ZPR_OK);
    std::vector<int> levels;
    int next = 0;
    for (int k = 0; k < kFrames + param.delayFrames; ++k) {
        const double t = 1.0 + k / 30.0;
        for (; next / 200.0 < t + param.timeOffset + param.readoutTime; ++next) {
            const ZPR_SensorData sample = sampleOf(motion, type, next / 200.0);
            ZPR_FeedSmoothingPolicy(&policy, &sample);
        }
        const int level = ZPR_ChooseSmoothingLevel(&policy, t);
        if (k >= param.delayFrames) levels.push_back(level);
    }
    return levels;
}

struct Expectation {
    Motion motion;
    int delay;
    int strongest;
    int leastInPan;  // the lowest level lies between these two
    int mostInPan;
};

class SmoothingPolicy : public testing::TestWithParam<Expectation> {};

TEST_P(SmoothingPolicy, LowersTheLevelInPansAlone) {
    const Expectation& row = GetParam();
    const std::vector<int> levels = levelsOf(makeParam(row.delay, row.strongest), row.motion);
    const int lowest = *std::min_element(levels.begin(), levels.end());
    EXPECT_GE(lowest, row.leastInPan);
    EXPECT_LE(lowest, row.mostInPan);
    for (int k = 0; k < kFrames; ++k) {
        // Two seconds from the pan's end on, and until it begins, or can be seen coming.
        const double t = 1.0 + k / 30.0;
        const bool isCalm = t < kPanStart - row.delay / 30.0 || t > kPanEnd + 2.0;
        if (isCalm) {
            EXPECT_EQ(levels[static_cast<size_t>(k)], row.strongest) << "at " << t << " s";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Motions, SmoothingPolicy,
    testing::Values(Expectation{{"still", 0, 0.0, 0.0, 1.0}, 0, 9, 9, 9},
                    Expectation{{"still, delay", 0, 0.0, 0.0, 1.0}, 30, 9, 9, 9},
                    Expectation{{"steps", 1, 0.0, 1.0, 1.9}, 0, 9, 9, 9},
                    Expectation{{"steps, delay", 1, 0.0, 1.0, 1.9}, 15, 9, 9, 9},
                    Expectation{{"sway of an arm", 0, 0.0, 0.5, 0.7}, 0, 9, 9, 9},
                    Expectation{{"pan to the side", 0, 45.0, 0.1, 3.0}, 0, 9, 1, 3},
                    Expectation{{"pan to the other side", 0, -45.0, 0.1, 3.0}, 0, 9, 1, 3},
                    Expectation{{"pan upwards", 1, 20.0, 0.1, 3.0}, 0, 9, 1, 4},
                    Expectation{{"pan, lower level", 0, 45.0, 0.1, 3.0}, 0, 5, 1, 3},
                    Expectation{{"pan, strongest level", 0, 45.0, 0.1, 3.0}, 0, 10, 1, 3},
                    Expectation{{"pan, delay", 0, 45.0, 0.1, 3.0}, 30, 9, 1, 8},
                    Expectation{{"pan, delay beyond reach", 0, 45.0, 0.1, 3.0}, 256, 9, 9, 9}),
    [](const auto& test) {
        std::string name = test.param.motion.name;
        name.erase(std::remove_if(name.begin(), name.end(), [](char c) { return !isalpha(c); }),
                   name.end());
        return name + std::to_string(test.index);
    });

TEST(SmoothingPolicyInput, OrientationsCountAsRatesDo) {
    const Motion pan{"pan", 0, 45.0, 0.1, 3.0};
    ZPR_Param param = makeParam(0);
    const std::vector<int> expected = levelsOf(param, pan);
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1);
    EXPECT_EQ(levelsOf(param, pan, ZPR_SENSOR_ROTATION_1), expected);
}

TEST(SmoothingPolicyInput, WhatIsWrongIsRefusedOrIgnored) {
    ZPR_SmoothingPolicy policy;
    const ZPR_Param good = makeParam(2);
    EXPECT_EQ(ZPR_StartSmoothingPolicy(nullptr, &good), ZPR_ERR_INVALID_PARAM);
    EXPECT_EQ(ZPR_StartSmoothingPolicy(&policy, nullptr), ZPR_ERR_INVALID_PARAM);
    ZPR_Param bad = good;
    bad.cropPercent = 0;
    EXPECT_EQ(ZPR_StartSmoothingPolicy(&policy, &bad), ZPR_ERR_INVALID_PARAM);

    constexpr double kInf = std::numeric_limits<double>::infinity();
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    const double times[] = {0.0, kNan, -1e300, kInf, 5.0, 1e11, -1e11, 6.0, 6.0, 6.1, 1e300, 90.0};
    const double rates[] = {0.0, 1e300, kNan, 1e5, -1e5, kInf, 3.0};
    ASSERT_EQ(ZPR_StartSmoothingPolicy(&policy, &good), ZPR_OK);
    for (size_t round = 0; round < 500; ++round) {
        const ZPR_SensorData sample{static_cast<int32_t>(3 + round % 2),
                                    times[round % std::size(times)] + double(round) * 0.01,
                                    {rates[round % std::size(rates)], 0.1, rates[round % 5], 0.0}};
        ZPR_FeedSmoothingPolicy(&policy, &sample);
        const int level = ZPR_ChooseSmoothingLevel(&policy, times[round / 3 % std::size(times)]);
        ASSERT_GE(level, 1);
        ASSERT_LE(level, 9);
    }
}

}  // namespace
