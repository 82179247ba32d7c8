#pragma once

#include "support/test_support.h"

#include <cmath>
#include <cstdint>

namespace zpr_test {

/// The motion of a shaky hand that pans, as samples of types 1, 3 and 5, 200 of each per second.
class ShakyHand {
public:
    /// strength: 1 for a hand, more for worse.
    ShakyHand(uint32_t seed, double strength) : strength_(strength), phase_(seed % 1000 * 0.01) {}

    /// Feeds what `feed`, a function of a sample, has not got yet of the time up to `end`.
    template <class Feed>
    void feedTo(double end, Feed feed) {
        for (; time() <= end; ++fed_) {
            const double t = time();
            feed(sample(ZPR_SENSOR_GRAVITY_1, t, 0.2 * strength_ * wave(t, 3.1), 0.1, 9.8));
            const double turn = strength_ * wave(t, 9.0);
            feed(sample(ZPR_SENSOR_RATE_1, t, turn, 0.4 * strength_ * wave(t, 5.3), 0.2));
            const double angle = 0.05 * strength_ * wave(t, 7.7) + 0.1 * t;
            feed(sample(ZPR_SENSOR_ROTATION_1, t, 0.0, std::sin(angle), 0.0, std::cos(angle)));
        }
    }

private:
    double time() const { return 0.9 + fed_ * 0.005; }
    double wave(double t, double frequency) const { return std::sin(frequency * t + phase_); }

    double strength_;
    double phase_;
    int fed_ = 0;
};

}  // namespace zpr_test
