#include "motion/sensor_samples.h"

#include "common/library_constants.h"

#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

/// The first of two types that the mask enables.
int firstEnabled(int mask, int a, int b, const std::string& name, const char* need) {
    for (const int type : {a, b}) {
        if ((mask & ZPR_SENSOR_BIT(type)) != 0) return type;
    }
    throw std::runtime_error(
        fmt::format("{}: {} enables neither type {} nor type {}; {}", name, mask, a, b, need));
}

template <class Sample>
std::optional<double> thin(std::vector<Sample>& samples, double largest) {
    if (samplesPerSecond(samples) <= largest) return std::nullopt;
    samples = thinned(samples, largest);
    return samplesPerSecond(samples);
}

/// The mean of the first second.
Vec3 initialGravity(const std::vector<MotionSample>& gravity) {
    Vec3 sum{};
    double count = 0.0;
    for (const MotionSample& sample : gravity) {
        if (sample.time > gravity.front().time + 1.0) break;
        for (size_t axis = 0; axis < 3; ++axis) sum[axis] += sample.value[axis];
        count += 1.0;
    }
    for (double& v : sum) v /= count;
    return sum;
}

/// The gravity samples to feed, the first one no later than the first rate.
std::vector<MotionSample> gravityOf(const MotionLog& log, const std::optional<Vec3>& madeUp,
                                    double rate) {
    const double start = log.rates.front().time;
    if (madeUp) return {{start, *madeUp}};
    std::vector<MotionSample> gravity = {{start, initialGravity(log.gravity)}};
    if (rate > 0.0) {
        const auto later = thinned(log.gravity, rate);
        gravity.insert(gravity.end(), later.begin() + 1, later.end());
    }
    return gravity;
}

/// Puts gravity and rates in order of time.
std::vector<ZPR_SensorData> merged(const std::vector<MotionSample>& gravity,
                                   const std::vector<MotionSample>& rates,
                                   const SensorTypes& types) {
    std::vector<ZPR_SensorData> samples;
    const auto add = [&](int type, const MotionSample& s) {
        samples.push_back({type, s.time, {s.value[0], s.value[1], s.value[2], 0.0}});
    };
    auto next = gravity.begin();
    for (const MotionSample& rate : rates) {
        while (next != gravity.end() && next->time <= rate.time) add(types.gravity, *next++);
        add(types.motion, rate);
    }
    return samples;
}

}  // namespace

SensorTypes chooseSensors(const std::optional<int>& mask, const std::string& name,
                          const MotionLog& log) {
    constexpr int kOrientations =
        ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_2);
    const bool areAsked = (mask.value_or(0) & kOrientations) != 0;
    SensorTypes types;
    if (!log.orientations.empty() && (log.rates.empty() || areAsked)) {
        types.mask = mask.value_or(ZPR_SENSOR_BIT(ZPR_SENSOR_ROTATION_1));
        types.motion = firstEnabled(types.mask, ZPR_SENSOR_ROTATION_1, ZPR_SENSOR_ROTATION_2, name,
                                    "a log of orientations needs one of them");
        return types;
    }
    constexpr const char* kNeed = "a motion log needs both gravity (1 or 2) and rates (3 or 4)";
    types.mask =
        mask.value_or(ZPR_SENSOR_BIT(ZPR_SENSOR_GRAVITY_1) | ZPR_SENSOR_BIT(ZPR_SENSOR_RATE_1));
    types.gravity =
        firstEnabled(types.mask, ZPR_SENSOR_GRAVITY_1, ZPR_SENSOR_GRAVITY_2, name, kNeed);
    types.motion = firstEnabled(types.mask, ZPR_SENSOR_RATE_1, ZPR_SENSOR_RATE_2, name, kNeed);
    return types;
}

double largestSampleRate(int delayFrames, double framesPerSecond, double readoutTime) {
    // What the public header says of ZPR_Param::delayFrames.
    double records = 256.0;
    const double wanted = (delayFrames * kDelayFramePeriod + 1.0) * kSensorRate;
    while (records < wanted) records *= 2.0;
    // From one frame before the output frame to a sample past the newest frame's readout; some
    // frames come late.
    constexpr double kSlack = 1.05;
    const double seconds = kSlack * ((delayFrames + 1) / framesPerSecond + readoutTime);
    return (records - 2.0) / seconds;
}

std::optional<double> limitRate(MotionLog& log, const SensorTypes& types, double largest) {
    return types.areOrientations() ? thin(log.orientations, largest) : thin(log.rates, largest);
}

std::vector<ZPR_SensorData> sensorSamples(const MotionLog& log, const SensorTypes& types,
                                          const std::optional<Vec3>& gravity, double gravityRate) {
    if (!types.areOrientations()) {
        return merged(gravityOf(log, gravity, gravityRate), log.rates, types);
    }
    std::vector<ZPR_SensorData> samples;
    for (const OrientationSample& s : log.orientations) {
        samples.push_back({types.motion, s.time, {s.x, s.y, s.z, s.w}});
    }
    return samples;
}

}  // namespace framehold
