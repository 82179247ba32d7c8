#pragma once

#include "math/quaternion.h"
#include "support/random.h"
#include "zpr_framehold.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sched.h>

namespace zpr_test {

using qlx::zpr_framehold::Quaternion;

/// Random numbers of a test. The seed is FRAMEHOLD_TEST_SEED if that is set, and is printed with
/// each failure in the object's scope.
class TestRandom : public Random {
public:
    explicit TestRandom(uint32_t seed)
        : Random(chosen(seed)),
          trace_(__FILE__, __LINE__, "FRAMEHOLD_TEST_SEED=" + std::to_string(chosen(seed))) {}

private:
    static uint32_t chosen(uint32_t seed) {
        const char* given = std::getenv("FRAMEHOLD_TEST_SEED");
        return given == nullptr ? seed : static_cast<uint32_t>(std::strtoul(given, nullptr, 10));
    }

    testing::ScopedTrace trace_;
};

/// Valid parameters with input and output of one size, rates and gravity enabled.
inline ZPR_Param makeParam(int width, int height) {
    ZPR_Param param{};
    ZPR_GetDefaultParam(&param);
    param.inputImage = {ZPR_FORMAT_SEMIPLANAR_1, width, height, {}, {width, width}};
    param.outputImage = param.inputImage;
    param.timeOffset = 0.0;
    param.sensorMask = ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1);
    return param;
}

/// A frame with bytes of its own. Pixels, row padding and a guard behind each plane lie in
/// `bytes`, so that comparing it shows every stray write.
class Frame {
public:
    Frame(int width, int height, int lumaPitch, int chromaPitch) {
        constexpr size_t kGuard = 64;
        const size_t luma = static_cast<size_t>(lumaPitch) * static_cast<size_t>(height) + kGuard;
        const size_t chroma =
            static_cast<size_t>(chromaPitch) * static_cast<size_t>(height / 2) + kGuard;
        bytes.assign(luma + chroma, 0);
        uint8_t* data = bytes.data();
        image = {
            ZPR_FORMAT_SEMIPLANAR_2, width, height, {data, data + luma}, {lumaPitch, chromaPitch}};
    }
    Frame(int width, int height) : Frame(width, height, width, width) {}
    Frame(const Frame&) = delete;

    void fill(uint8_t value) { bytes.assign(bytes.size(), value); }
    void fillRandom(Random& random) {
        for (uint8_t& b : bytes) b = random.byte();
    }

    ZPR_Image image{};
    std::vector<uint8_t> bytes;
};

/// A task that can be held back.
struct Gate {
    std::atomic<int> running{0};
    std::atomic<bool> open{false};

    static void pass(void* gate) {
        auto* g = static_cast<Gate*>(gate);
        ++g->running;
        while (!g->open) sched_yield();
        --g->running;
    }
};

inline ZPR_SensorData sample(int type, double time, double x, double y, double z, double w = 0.0) {
    return {type, time, {x, y, z, w}};
}

inline Quaternion rotation(double angle, double x, double y, double z) {
    const double v[3] = {angle * x, angle * y, angle * z};
    return Quaternion::fromRotationVector(v, 1.0);
}

/// Angle in radians between two orientations.
inline double angleBetween(const Quaternion& a, const Quaternion& b) {
    const Quaternion d = a.inverse() * b;
    return 2.0 * std::atan2(std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z), std::fabs(d.w));
}

}  // namespace zpr_test
