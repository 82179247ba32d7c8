#pragma once

#include "motion/motion_log.h"

#include <optional>
#include <vector>

namespace framehold {

/// Statistics of a sensor's timestamps, in seconds on the log's clock.
struct StampStatistics {
    struct Gap {
        double from;     // time of the sample before it
        double seconds;  // to the sample after it
    };

    size_t samples = 0;
    double from = 0.0;    // first
    double to = 0.0;      // last
    double step = 0.0;    // median of the times from sample to sample
    double jitter = 0.0;  // root mean square of the steps' differences from `step`, without gaps
    size_t outOfOrder = 0;
    size_t duplicates = 0;  // stamps that are the same as the one before
    // Steps of more than three times `step`.
    size_t gaps = 0;
    double missing = 0.0;        // seconds in all, less a step for each
    std::optional<Gap> longest;  // the first of its length
    std::vector<Gap> firstGaps;  // at most 1000

    double seconds() const { return to - from; }
    double perSecond() const { return step > 0.0 ? 1.0 / step : 0.0; }
};

/// Statistics of the readings of a gyroscope or accelerometer, in rad/s or m/s^2 and logged axes.
struct VectorStatistics {
    /// Second in which the sensor was nearly still.
    struct Rest {
        double from;  // seconds
        Vec3 mean;
    };

    StampStatistics stamps;
    double medianLength = 0.0;  // of the vectors
    double largest = 0.0;       // absolute, of any axis
    /// Number of samples in runs of three or more at an axis' own largest value, where that is large
    /// enough to be the end of a sensor's range.
    size_t saturated = 0;
    size_t repeated = 0;  // samples that equal the one before in all axes
    std::optional<Rest> rest;
    /// Standard deviation of each axis from sample to sample, in the quietest second.
    std::optional<Vec3> noise;
};

/// Statistics of timestamps. times: in order. outOfOrder: as counted when the log was read.
StampStatistics stampStatistics(const std::vector<double>& times, size_t outOfOrder);

/// Limits for sensors of one kind, in rad/s or m/s^2.
struct SensorTraits {
    double smallestRange;               // that such a sensor has
    double largestDeviation;            // standard deviation of an axis at rest
    std::optional<double> largestMean;  // of an axis at rest; none: any
};

constexpr SensorTraits kGyroscopeTraits = {2.0, 0.03, 0.15};    // rad/s
constexpr SensorTraits kAccelerometerTraits = {19.0, 0.3, {}};  // m/s^2

VectorStatistics vectorStatistics(const std::vector<MotionSample>& samples, size_t outOfOrder,
                                  const SensorTraits& traits);

/// Statistics of all sensors of a log; those that are not logged have no samples.
struct LogStatistics {
    VectorStatistics rates;
    VectorStatistics gravity;
    StampStatistics orientations;
};

LogStatistics logStatistics(const MotionLog& log);

}  // namespace framehold
