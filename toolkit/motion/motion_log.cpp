#include "motion/motion_log.h"

#include "common/interruption.h"
#include "common/median.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

#include <Eigen/Geometry>

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

template <class Sample>
double perSecond(const std::vector<Sample>& samples) {
    if (samples.size() < 2) return 0.0;
    const double span = samples.back().time - samples.front().time;
    return span > 0.0 ? static_cast<double>(samples.size() - 1) / span : 0.0;
}

/// `excess` rounded up, and no more than there are: samples at nearly the same time make it huge.
size_t samplesIn(double excess, size_t count) {
    return static_cast<size_t>(std::min(std::ceil(excess), static_cast<double>(count)));
}

/// Returns how many samples come after a later one. Throws Interrupted.
template <class Sample>
size_t sortSamples(std::vector<Sample>& samples) {
    size_t late = 0;
    for (size_t i = 1; i < samples.size(); ++i) {
        if (samples[i].time < samples[i - 1].time) ++late;
    }
    throwIfInterrupted();
    constexpr size_t kBetweenLooks = 1 << 16;
    size_t comparisons = 0;
    const auto isEarlier = [&comparisons](const Sample& a, const Sample& b) {
        if (++comparisons % kBetweenLooks == 0) throwIfInterrupted();
        return a.time < b.time;
    };
    if (late > 0) std::stable_sort(samples.begin(), samples.end(), isEarlier);
    return late;
}

Eigen::Quaterniond quaternionOf(const OrientationSample& s) { return {s.w, s.x, s.y, s.z}; }

std::vector<MotionSample> ratesBetween(const std::vector<OrientationSample>& orientations) {
    std::vector<MotionSample> rates;
    rates.reserve(orientations.size());
    for (size_t i = 1; i < orientations.size(); ++i) {
        const double seconds = orientations[i].time - orientations[i - 1].time;
        if (seconds <= 0.0) continue;
        const Eigen::AngleAxisd turn(quaternionOf(orientations[i - 1]).conjugate() *
                                     quaternionOf(orientations[i]));
        const Eigen::Vector3d rate = turn.axis() * (turn.angle() / seconds);
        rates.push_back({orientations[i].time, {rate.x(), rate.y(), rate.z()}});
    }
    return rates;
}

/// The rotation that takes device axes to logged ones.
Eigen::Quaterniond fromDeviceAxes(const AxisMapping& mapping) {
    if (!mapping.isProper()) {
        throw std::invalid_argument(fmt::format(
            "axes {} mirror; logged orientations can only be rotated", mapping.letters()));
    }
    Eigen::Matrix3d toDevice;
    for (int column = 0; column < 3; ++column) {
        Vec3 unit{};
        unit[static_cast<size_t>(column)] = 1.0;
        const Vec3 device = mapping.toDevice(unit);
        toDevice.col(column) = Eigen::Vector3d(device[0], device[1], device[2]);
    }
    return Eigen::Quaterniond(toDevice.transpose());
}

}  // namespace

double samplesPerSecond(const std::vector<MotionSample>& samples) { return perSecond(samples); }

double samplesPerSecond(const std::vector<OrientationSample>& samples) {
    return perSecond(samples);
}

double largestShift(const std::vector<LensShift>& shifts) {
    double most = 0.0;
    for (const LensShift& shift : shifts) {
        most = std::max({most, std::abs(shift.x), std::abs(shift.y)});
    }
    return most;
}

double medianLength(const std::vector<MotionSample>& samples) {
    std::vector<double> lengths;
    lengths.reserve(samples.size());
    for (const MotionSample& s : samples) {
        lengths.push_back(std::hypot(s.value[0], s.value[1], s.value[2]));
    }
    return median(std::move(lengths));
}

std::vector<MotionSample> thinned(const std::vector<MotionSample>& samples, double rate) {
    const double excess = samplesPerSecond(samples) / rate;
    if (!(excess > 1.0)) return samples;
    const size_t group = samplesIn(excess, samples.size());
    // The first sample stays: nothing says how long it stands for.
    std::vector<MotionSample> result = {samples.front()};
    for (size_t first = 1; first < samples.size(); first += group) {
        result.push_back(meanOf(samples, first, std::min(first + group, samples.size())));
    }
    return result;
}

std::vector<OrientationSample> thinned(const std::vector<OrientationSample>& samples, double rate) {
    const double excess = samplesPerSecond(samples) / rate;
    if (!(excess > 1.0)) return samples;
    const size_t step = samplesIn(excess, samples.size());
    std::vector<OrientationSample> result;
    for (size_t i = 0; i < samples.size(); i += step) result.push_back(samples[i]);
    return result;
}

std::optional<double> dropRepeats(std::vector<MotionSample>& samples) {
    constexpr size_t kFewestValues = 10;
    constexpr double kFewestTimes = 1.3;
    constexpr double kMostTimes = 20.0;
    constexpr double kRegularShare = 0.95;
    const auto isRepeat = [&](size_t i) { return samples[i].value == samples[i - 1].value; };
    size_t values = samples.empty() ? 0 : 1;
    for (size_t i = 1; i < samples.size(); ++i) values += isRepeat(i) ? 0 : 1;
    if (values < kFewestValues) return std::nullopt;
    const double times = static_cast<double>(samples.size()) / static_cast<double>(values);
    if (times < kFewestTimes || times > kMostTimes) return std::nullopt;
    // A sensor at rest repeats its values too, but never so regularly.
    size_t regular = 0;
    for (size_t first = 0, i = 1; i <= samples.size(); ++i) {
        if (i < samples.size() && isRepeat(i)) continue;
        const size_t length = i - first;
        if (std::abs(static_cast<double>(length) - times) <= 1.0) regular += length;
        first = i;
    }
    if (static_cast<double>(regular) < kRegularShare * static_cast<double>(samples.size())) {
        return std::nullopt;
    }
    samples.erase(std::unique(samples.begin(), samples.end(),
                              [](const MotionSample& a, const MotionSample& b) {
                                  return a.value == b.value;
                              }),
                  samples.end());
    return times;
}

void MotionLog::sortByTime() {
    outOfOrder.rates += sortSamples(rates);
    outOfOrder.gravity += sortSamples(gravity);
    outOfOrder.orientations += sortSamples(orientations);
    sortSamples(lensShifts);
}

std::vector<MotionSample> MotionLog::angularRates() const {
    return rates.empty() ? ratesBetween(orientations) : rates;
}

void MotionLog::toDeviceAxes(const AxisMapping& mapping) {
    for (auto* samples : {&rates, &gravity}) {
        for (MotionSample& sample : *samples) sample.value = mapping.toDevice(sample.value);
    }
    if (orientations.empty()) return;
    const Eigen::Quaterniond toLogged = fromDeviceAxes(mapping);
    for (OrientationSample& s : orientations) {
        const Eigen::Quaterniond turned = quaternionOf(s) * toLogged;
        s = {s.time, turned.w(), turned.x(), turned.y(), turned.z()};
    }
}

void MotionLog::stretch(double factor) {
    for (auto* samples : {&rates, &gravity}) {
        for (MotionSample& sample : *samples) sample.time *= factor;
    }
    for (OrientationSample& sample : orientations) sample.time *= factor;
    for (LensShift& shift : lensShifts) shift.time *= factor;
    for (FrameMetadata& frame : frames) {
        if (frame.time) *frame.time *= factor;
    }
}

}  // namespace framehold
