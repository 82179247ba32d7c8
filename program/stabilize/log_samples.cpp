#include "stabilize/log_samples.h"

#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

/// The first of two types that the mask enables.
int32_t firstEnabled(int32_t mask, int32_t a, int32_t b, const char* need) {
    for (const int32_t type : {a, b}) {
        if ((mask & ZPR_SENSOR_BIT(type)) != 0) return type;
    }
    throw std::runtime_error(
        fmt::format("--sensor-mask: {} enables neither type {} nor type {}; {}", mask, a, b, need));
}

}  // namespace

std::vector<ZPR_SensorData> samplesOf(const std::vector<MotionSample>& gravity,
                                      const std::vector<MotionSample>& rates, int32_t sensorMask) {
    constexpr const char* kNeed = "a motion log needs both gravity (1 or 2) and rates (3 or 4)";
    const int32_t gravityType =
        firstEnabled(sensorMask, ZPR_SENSOR_GRAVITY_1, ZPR_SENSOR_GRAVITY_2, kNeed);
    const int32_t rateType = firstEnabled(sensorMask, ZPR_SENSOR_RATE_1, ZPR_SENSOR_RATE_2, kNeed);
    std::vector<ZPR_SensorData> samples;
    const auto add = [&](int32_t type, const MotionSample& s) {
        samples.push_back({type, s.time, {s.value[0], s.value[1], s.value[2], 0.0}});
    };
    auto next = gravity.begin();
    for (const MotionSample& rate : rates) {
        while (next != gravity.end() && next->time <= rate.time) add(gravityType, *next++);
        add(rateType, rate);
    }
    return samples;
}

std::vector<ZPR_SensorData> samplesOf(const std::vector<OrientationSample>& orientations,
                                      int32_t sensorMask) {
    const int32_t type = firstEnabled(sensorMask, ZPR_SENSOR_ROTATION_1, ZPR_SENSOR_ROTATION_2,
                                      "a log of orientations needs one of them");
    std::vector<ZPR_SensorData> samples;
    for (const OrientationSample& s : orientations) {
        samples.push_back({type, s.time, {s.x, s.y, s.z, s.w}});
    }
    return samples;
}

bool feedsOrientations(const MotionLog& log, std::optional<int> sensorMask) {
    constexpr int kOrientations =
        ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_2);
    const bool asked = (sensorMask.value_or(0) & kOrientations) != 0;
    return !log.orientations.empty() && (log.rates.empty() || asked);
}

}  // namespace framehold
