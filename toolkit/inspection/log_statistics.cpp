#include "inspection/log_statistics.h"

#include "common/interruption.h"
#include "common/median.h"

#include <algorithm>
#include <cmath>

namespace framehold {

namespace {

constexpr double kGapSteps = 3.0;
constexpr double kWindow = 1.0;  // seconds in which a sensor may rest
constexpr size_t kFewestInWindow = 20;

/// Mean and deviation of samples [first, end).
struct WindowMoments {
    Vec3 mean{};
    double largestDeviation = 0.0;  // standard deviation of the axis that has most
};

WindowMoments momentsOf(const std::vector<MotionSample>& samples, size_t first, size_t end) {
    WindowMoments moments;
    const auto count = static_cast<double>(end - first);
    for (size_t axis = 0; axis < 3; ++axis) {
        double sum = 0.0, squares = 0.0;
        for (size_t i = first; i < end; ++i) sum += samples[i].value[axis];
        const double mean = sum / count;
        for (size_t i = first; i < end; ++i) {
            squares += (samples[i].value[axis] - mean) * (samples[i].value[axis] - mean);
        }
        moments.mean[axis] = mean;
        moments.largestDeviation = std::max(moments.largestDeviation, std::sqrt(squares / count));
    }
    return moments;
}

/// From second differences, to which a smooth motion adds little.
Vec3 noiseOf(const std::vector<MotionSample>& samples, size_t first, size_t end) {
    Vec3 noise{};
    for (size_t axis = 0; axis < 3; ++axis) {
        double squares = 0.0;
        for (size_t i = first + 2; i < end; ++i) {
            const double second = samples[i].value[axis] - 2.0 * samples[i - 1].value[axis] +
                                  samples[i - 2].value[axis];
            squares += second * second;
        }
        // A second difference of independent values has six times their variance.
        noise[axis] = std::sqrt(squares / (6.0 * static_cast<double>(end - first - 2)));
    }
    return noise;
}

/// Looks at the quietest second, if there is a whole one.
void lookAtRest(const std::vector<MotionSample>& samples, const SensorTraits& traits,
                VectorStatistics& result) {
    double quietest = INFINITY;
    size_t end = 0;
    for (size_t first = 0; first < samples.size();) {
        throwIfInterrupted();
        while (end < samples.size() && samples[end].time < samples[first].time + kWindow) ++end;
        if (end == samples.size()) break;
        const WindowMoments moments = momentsOf(samples, first, end);
        if (end - first >= kFewestInWindow && moments.largestDeviation < quietest) {
            quietest = moments.largestDeviation;
            result.noise = noiseOf(samples, first, end);
            const bool still =
                std::all_of(moments.mean.begin(), moments.mean.end(), [&](double mean) {
                    return !traits.largestMean || std::abs(mean) < *traits.largestMean;
                });
            result.rest.reset();
            if (still && quietest < traits.largestDeviation) {
                result.rest = {samples[first].time, moments.mean};
            }
        }
        first += std::max<size_t>(1, (end - first) / 4);
    }
}

size_t saturatedSamples(const std::vector<MotionSample>& samples, size_t axis,
                        double smallestRange) {
    constexpr double kNearly = 0.999;
    constexpr size_t kShortestRun = 3;
    double limit = 0.0;
    for (const MotionSample& s : samples) limit = std::max(limit, std::abs(s.value[axis]));
    if (limit < smallestRange) return 0;
    size_t saturated = 0, run = 0;
    const auto endRun = [&] {
        if (run >= kShortestRun) saturated += run;
        run = 0;
    };
    for (const MotionSample& s : samples) {
        if (std::abs(s.value[axis]) >= kNearly * limit) {
            ++run;
        } else {
            endRun();
        }
    }
    endRun();
    return saturated;
}

template <class Sample>
std::vector<double> timesOf(const std::vector<Sample>& samples) {
    std::vector<double> times;
    times.reserve(samples.size());
    for (const Sample& s : samples) times.push_back(s.time);
    return times;
}

void addGap(const StampStatistics::Gap& gap, StampStatistics& stamps) {
    constexpr size_t kMostKept = 1000;
    ++stamps.gaps;
    stamps.missing += gap.seconds - stamps.step;
    if (!stamps.longest || gap.seconds > stamps.longest->seconds) stamps.longest = gap;
    if (stamps.firstGaps.size() < kMostKept) stamps.firstGaps.push_back(gap);
}

}  // namespace

StampStatistics stampStatistics(const std::vector<double>& times, size_t outOfOrder) {
    StampStatistics result;
    result.samples = times.size();
    result.outOfOrder = outOfOrder;
    if (times.empty()) return result;
    result.from = times.front();
    result.to = times.back();
    std::vector<double> steps;
    steps.reserve(times.size());
    for (size_t i = 1; i < times.size(); ++i) {
        steps.push_back(times[i] - times[i - 1]);
        if (steps.back() == 0.0) ++result.duplicates;
    }
    throwIfInterrupted();
    result.step = median(std::move(steps));
    throwIfInterrupted();
    double squares = 0.0;
    size_t counted = 0;
    for (size_t i = 1; i < times.size(); ++i) {
        const double step = times[i] - times[i - 1];
        if (step > kGapSteps * result.step) {
            addGap({times[i - 1], step}, result);
        } else {
            squares += (step - result.step) * (step - result.step);
            ++counted;
        }
    }
    if (counted > 0) result.jitter = std::sqrt(squares / static_cast<double>(counted));
    return result;
}

VectorStatistics vectorStatistics(const std::vector<MotionSample>& samples, size_t outOfOrder,
                                  const SensorTraits& traits) {
    VectorStatistics result;
    result.stamps = stampStatistics(timesOf(samples), outOfOrder);
    throwIfInterrupted();
    result.medianLength = medianLength(samples);
    throwIfInterrupted();
    for (const MotionSample& s : samples) {
        for (const double v : s.value) result.largest = std::max(result.largest, std::abs(v));
    }
    for (size_t axis = 0; axis < 3; ++axis) {
        throwIfInterrupted();
        result.saturated += saturatedSamples(samples, axis, traits.smallestRange);
    }
    for (size_t i = 1; i < samples.size(); ++i) {
        if (samples[i].value == samples[i - 1].value) ++result.repeated;
    }
    lookAtRest(samples, traits, result);
    return result;
}

LogStatistics logStatistics(const MotionLog& log) {
    return {vectorStatistics(log.rates, log.outOfOrder.rates, kGyroscopeTraits),
            vectorStatistics(log.gravity, log.outOfOrder.gravity, kAccelerometerTraits),
            stampStatistics(timesOf(log.orientations), log.outOfOrder.orientations)};
}

}  // namespace framehold
