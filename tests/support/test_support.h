#pragma once

#include "math/quaternion.h"
#include "support/frame.h"
#include "support/random.h"
#include "support/test_instance.h"

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

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
