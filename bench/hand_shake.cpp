#include "bench/hand_shake.h"

#include <cmath>

namespace framehold::bench {

using qlx::zpr_framehold::Quaternion;

namespace {

constexpr double kPeriod = 1.0 / 200.0;
constexpr double kGravity = 9.81;

/// The slow sway of an arm and the tremor of a hand, in rad/s.
double rate(int axis, double t) {
    const double phase = 1.7 * axis;
    return 0.08 * std::sin(5.3 * t + phase) + 0.05 * std::sin(13.1 * t + 2.0 * phase) +
           0.03 * std::sin(47.0 * t + 3.0 * phase);
}

}  // namespace

void HandShake::feed(ZPR_Handle stabilizer, double until) {
    for (; next_ * kPeriod <= until; ++next_) {
        const double t = next_ * kPeriod;
        ZPR_SensorData rates{ZPR_SENSOR_RATE_1, t, {rate(0, t), rate(1, t), rate(2, t), 0.0}};
        orientation_ *= Quaternion::fromRotationVector(rates.value, kPeriod);
        double m[9];
        orientation_.toRotationMatrix(m);
        const ZPR_SensorData gravity{
            ZPR_SENSOR_GRAVITY_1, t, {kGravity * m[6], kGravity * m[7], kGravity * m[8], 0.0}};
        ZPR_SetSensorData(stabilizer, &gravity);
        ZPR_SetSensorData(stabilizer, &rates);
    }
}

}  // namespace framehold::bench
