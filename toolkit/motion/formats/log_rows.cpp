#include "motion/formats/log_rows.h"

#include <algorithm>

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
        lines.fail(fmt::format("{}: {} is not within {} and {}", name, field, -kLargest, kLargest));
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
        }};
}

void readRows(LineReader& lines, const RowLayout& layout, const std::vector<RowReading>& readings) {
    const size_t needed = fieldsNeeded(readings);
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
    return fmt::format("the unit of time is not said: taken for {} by the size of its steps", name);
}

}  // namespace framehold
