#include "motion/sensor_guess.h"

#include "common/median.h"
#include "common/text_fields.h"

#include <cmath>
#include <filesystem>

namespace framehold {

namespace {

/// Between a hard shake in g and a soft one in m/s^2.
constexpr double kLargestInG = 4.0;

bool isLikelyGravity(double length) {
    return std::abs(length - kStandardGravity) < 1.5 || std::abs(length - 1.0) < 0.1;
}

}  // namespace

double medianLength(const std::vector<MotionSample>& samples) {
    std::vector<double> lengths;
    for (const MotionSample& s : samples) {
        lengths.push_back(std::hypot(s.value[0], s.value[1], s.value[2]));
    }
    return median(lengths);
}

void placeUnnamed(const std::string& file, std::vector<MotionSample> samples, MotionLog& log) {
    SensorKind kind = sensorNamedIn(std::filesystem::path(file).filename().string());
    if (kind == SensorKind::kOther) {
        throw FileError(file, 0,
                        "its name is that of another sensor: give the gyroscope's file, or name "
                        "the columns");
    }
    if (kind == SensorKind::kUnsaid) {
        kind = isLikelyGravity(medianLength(samples)) ? SensorKind::kGravity : SensorKind::kRate;
        log.notes.push_back(kind == SensorKind::kRate
                                ? "the sensor is not said: taken for a gyroscope by its values"
                                : "the sensor is not said: taken for an accelerometer by its "
                                  "values");
    }
    (kind == SensorKind::kGravity ? log.gravity : log.rates) = std::move(samples);
}

void applyLikelyGravityUnit(MotionLog& log) {
    if (log.gravity.empty() || medianLength(log.gravity) > kLargestInG) return;
    for (MotionSample& s : log.gravity) {
        for (double& v : s.value) v *= kStandardGravity;
    }
    log.notes.push_back("the unit of gravity is not said: taken for g by its size");
}

}  // namespace framehold
