#pragma once

#include "motion/motion_log.h"

#include <optional>
#include <vector>

namespace framehold {

/// What a sensor's stamps are like. Times are seconds on the log's clock.
struct StampStatistics {
    struct Gap {
        double from;
        double seconds;
    };

    size_t samples = 0;
    double from = 0.0;
    double to = 0.0;
    double step = 0.0;    // the middle one of the times from sample to sample
    double jitter = 0.0;  // root mean square of how far steps are from `step`, gaps left out
    size_t outOfOrder = 0;
    size_t duplicates = 0;  // stamps that are the same as the one before
    std::vector<Gap> gaps;  // steps of more than three times `step`

    double seconds() const { return to - from; }
    double perSecond() const { return step > 0.0 ? 1.0 / step : 0.0; }
};

/// What the readings of a gyroscope or accelerometer are like, in their own unit and axes.
struct VectorStatistics {
    /// A second in which the sensor was as good as still.
    struct Rest {
        double from;  // seconds
        Vec3 mean;
    };

    StampStatistics stamps;
    double medianLength = 0.0;
    double largest = 0.0;  // absolute, of any axis
    /// Samples in runs of three or more at an axis' own largest value, where that is large enough to
    /// be the end of a sensor's range.
    size_t saturated = 0;
    size_t repeated = 0;  // samples that equal the one before in all axes
    std::optional<Rest> rest;
    /// Standard deviation of each axis from sample to sample, in the quietest second.
    std::optional<Vec3> noise;
};

/// times: in order. outOfOrder: as counted when the log was read.
StampStatistics stampStatistics(const std::vector<double>& times, size_t outOfOrder);

/// smallestRange: the smallest range that a sensor of this kind has; largestAtRest: how far an axis
/// may deviate and, for a gyroscope, turn while at rest.
struct SensorTraits {
    double smallestRange;
    double largestDeviation;
    std::optional<double> largestMean;
};

constexpr SensorTraits kGyroscopeTraits = {2.0, 0.03, 0.15};    // rad/s
constexpr SensorTraits kAccelerometerTraits = {19.0, 0.3, {}};  // m/s^2

VectorStatistics vectorStatistics(const std::vector<MotionSample>& samples, size_t outOfOrder,
                                  const SensorTraits& traits);

/// What is to be known of a log; sensors that are not logged have no samples.
struct LogStatistics {
    VectorStatistics rates;
    VectorStatistics gravity;
    StampStatistics orientations;
};

LogStatistics logStatistics(const MotionLog& log);

}  // namespace framehold
