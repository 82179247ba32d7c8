#include "motion/formats/text_rows.h"

#include "common/library_constants.h"
#include "common/median.h"
#include "common/text_fields.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>

namespace framehold {

namespace {

size_t fieldsNeeded(const std::vector<RowReading>& readings) {
    size_t needed = 0;
    for (const RowReading& reading : readings) {
        needed = std::max(needed, reading.time + 1);
        for (const size_t column : reading.values) needed = std::max(needed, column + 1);
    }
    return needed;
}

/// Far beyond every clock and sensor, and small enough to stay finite in whatever unit.
double numberInRange(const LineReader& lines, std::string_view field, std::string_view name) {
    constexpr double kLargest = 1e30;
    const double value = lines.number(field, name);
    if (!(std::abs(value) <= kLargest)) {
        lines.fail(fmt::format("{}: {} is not within {} and {}", excerpt(name), excerpt(field),
                               -kLargest, kLargest));
    }
    return value;
}

}  // namespace

RowReading vectorReading(size_t time, const std::array<size_t, 3>& axes, double timeUnit,
                         double valueUnit, std::vector<MotionSample>& into) {
    return {
        time,
        {axes.begin(), axes.end()},
        [timeUnit, valueUnit, &into](double t, const std::vector<double>& v) {
            into.push_back({t * timeUnit, {v[0] * valueUnit, v[1] * valueUnit, v[2] * valueUnit}});
        },
        [&into](size_t rows) { into.reserve(rows); }};
}

void readRows(LineReader& lines, const RowLayout& layout, const std::vector<RowReading>& readings) {
    const size_t needed = fieldsNeeded(readings);
    // A row has at least a character in each field, and one between each two.
    const size_t mostRows = lines.bytesLeft() / (2 * needed) + 1;
    for (const RowReading& reading : readings) reading.reserve(mostRows);
    std::vector<double> values;
    bool any = false;
    while (lines.next()) {
        const auto fields = splitFields(lines.line(), layout.separator);
        if (fields.size() < needed) {
            lines.fail(fmt::format("{} fields where {} are expected", fields.size(), needed));
        }
        const auto number = [&](size_t column) {
            return numberInRange(lines, fields[column], layout.names[column]);
        };
        for (const RowReading& reading : readings) {
            const bool omitted = std::all_of(reading.values.begin(), reading.values.end(),
                                             [&](size_t column) { return fields[column].empty(); });
            if (layout.mayOmit && omitted) continue;
            const double time = number(reading.time);
            values.clear();
            for (const size_t column : reading.values) values.push_back(number(column));
            reading.take(time, values);
            any = true;
        }
    }
    if (!any) lines.fail("holds no samples");
}

double likelyTimeUnit(double step) {
    if (step <= 0.1) return 1.0;
    if (step <= 1e2) return 1e-3;
    return step <= 1e5 ? 1e-6 : 1e-9;
}

std::string timeUnitNote(double unit) {
    const char* const name = unit == 1.0 ? "s" : unit == 1e-3 ? "ms" : unit == 1e-6 ? "us" : "ns";
    return fmt::format("the unit of time is not named: taken for {} by the size of its steps",
                       name);
}

namespace {

/// Between a hard shake in g and a soft one in m/s^2.
constexpr double kLargestInG = 4.0;

bool isLikelyGravity(double length) {
    return std::abs(length - kStandardGravity) < 1.5 || std::abs(length - 1.0) < 0.1;
}

}  // namespace

void placeUnnamed(const std::string& file, std::vector<MotionSample> samples, MotionLog& log) {
    SensorKind kind = sensorNamedIn(std::filesystem::path(file).filename().string());
    if (kind == SensorKind::kOther) {
        throw FileError(file, 0,
                        "its name is that of another sensor: give the gyroscope's file, or name "
                        "the columns");
    }
    if (kind == SensorKind::kUnnamed) {
        kind = isLikelyGravity(medianLength(samples)) ? SensorKind::kGravity : SensorKind::kRate;
        log.notes.push_back(kind == SensorKind::kRate
                                ? "the sensor is not named: taken for a gyroscope by its values"
                                : "the sensor is not named: taken for an accelerometer by its "
                                  "values");
    }
    (kind == SensorKind::kGravity ? log.gravity : log.rates) = std::move(samples);
}

void applyLikelyGravityUnit(MotionLog& log) {
    if (log.gravity.empty() || medianLength(log.gravity) > kLargestInG) return;
    for (MotionSample& s : log.gravity) {
        for (double& v : s.value) v *= kStandardGravity;
    }
    log.notes.push_back("the unit of gravity is not named: taken for g by its size");
}

}  // namespace framehold
