#pragma once

#include "math/quaternion.h"
#include "support/test_instance.h"

#include <cmath>

namespace zpr_test {

/// Sensors of a camera held by hand: gravity, rates and orientation, 200 samples of each a second
/// from 0 s on, all of the same motion.
class HandShake {
public:
    /// sensorMask: those that are wanted. strength: 1 for a steady hand. The seed changes the
    /// motion.
    explicit HandShake(int sensorMask, double strength = 1.0, uint32_t seed = 0)
        : mask_(sensorMask), strength_(strength), phase_(seed % 1000 * 0.01) {}

    /// Calls `feed` with each sample up to a time that it has not been called with before.
    template <class Feed>
    void feedTo(double end, Feed feed) {
        for (; next_ * kPeriod <= end; ++next_) {
            const double t = next_ * kPeriod;
            const double rates[3] = {rate(0, t), rate(1, t), rate(2, t)};
            orientation_ *= qlx::zpr_framehold::Quaternion::fromRotationVector(rates, kPeriod);
            const qlx::zpr_framehold::Quaternion& q = orientation_;
            double m[9];
            q.toRotationMatrix(m);
            for (const ZPR_SensorData& s :
                 {sample(ZPR_SENSOR_GRAVITY_1, t, kGravity * m[6], kGravity * m[7],
                         kGravity * m[8]),
                  sample(ZPR_SENSOR_RATE_1, t, rates[0], rates[1], rates[2]),
                  sample(ZPR_SENSOR_ROTATION_1, t, q.x, q.y, q.z, q.w)}) {
                if ((mask_ & ZPR_SENSOR_BIT(s.type)) != 0) feed(s);
            }
        }
    }

private:
    static constexpr double kPeriod = 1.0 / 200.0;
    static constexpr double kGravity = 9.81;

    /// The slow sway of an arm and the tremor of a hand, in rad/s.
    double rate(int axis, double t) const {
        const double phase = 1.7 * axis + phase_;
        return strength_ *
               (0.08 * std::sin(5.3 * t + phase) + 0.05 * std::sin(13.1 * t + 2.0 * phase) +
                0.03 * std::sin(47.0 * t + 3.0 * phase));
    }

    int mask_;
    double strength_;
    double phase_;
    int next_ = 0;
    qlx::zpr_framehold::Quaternion orientation_{1.0, 0.0, 0.0, 0.0};
};

}  // namespace zpr_test
