#include "motion/motion_log.h"

#include <algorithm>
#include <cmath>

namespace framehold {

namespace {

/// The mean of samples [first, end), each weighted by the time since the one before it, at the
/// time of the last.
MotionSample meanOf(const std::vector<MotionSample>& samples, size_t first, size_t end) {
    const double span = samples[end - 1].time - samples[first - 1].time;
    MotionSample mean{samples[end - 1].time, {}};
    for (size_t i = first; i < end; ++i) {
        const double seconds = samples[i].time - samples[i - 1].time;
        const double weight = span > 0.0 ? seconds / span : 1.0 / static_cast<double>(end - first);
        for (size_t axis = 0; axis < 3; ++axis) mean.value[axis] += weight * samples[i].value[axis];
    }
    return mean;
}

}  // namespace

double samplesPerSecond(const std::vector<MotionSample>& samples) {
    if (samples.size() < 2) return 0.0;
    const double span = samples.back().time - samples.front().time;
    return span > 0.0 ? static_cast<double>(samples.size() - 1) / span : 0.0;
}

std::vector<MotionSample> thinned(const std::vector<MotionSample>& samples, double rate) {
    const double excess = samplesPerSecond(samples) / rate;
    if (!(excess > 1.0)) return samples;
    const auto group = static_cast<size_t>(std::ceil(excess));
    // The first sample stays: nothing says how long it stands for.
    std::vector<MotionSample> result = {samples.front()};
    for (size_t first = 1; first < samples.size(); first += group) {
        result.push_back(meanOf(samples, first, std::min(first + group, samples.size())));
    }
    return result;
}

void MotionLog::toDeviceAxes(const AxisMapping& mapping) {
    for (auto* samples : {&rates, &gravity}) {
        for (MotionSample& sample : *samples) sample.value = mapping.toDevice(sample.value);
    }
}

}  // namespace framehold
