#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"
#include "motion/formats/text_times.h"

#include <algorithm>

#include <fmt/format.h>

namespace framehold {

namespace {

struct LongColumns {
    ColumnLine line;
    size_t sensor = 0;
    std::vector<size_t> axes;  // empty: not of this format
};

LongColumns readLongColumns(std::string_view content) {
    constexpr std::string_view kSensorNames[] = {"sensor",     "sensor_name", "sensor name",
                                                 "sensorname", "sensor_type", "sensor type",
                                                 "sensortype", "type",        "name"};
    constexpr std::array<std::string_view, 3> kValueNames[] = {
        {"x", "y", "z"},
        {"value_x", "value_y", "value_z"},
        {"value0", "value1", "value2"},
        {"value1", "value2", "value3"},
        {"v0", "v1", "v2"},
        {"v1", "v2", "v3"},
    };
    LongColumns columns;
    columns.line = readColumnLine(firstLineOfTable(content));
    std::vector<std::string> names;
    for (const std::string& name : columns.line.names) names.push_back(lowerCase(name));
    const auto sensor = std::find_first_of(names.begin(), names.end(), std::begin(kSensorNames),
                                           std::end(kSensorNames));
    if (sensor == names.end()) return columns;
    columns.sensor = static_cast<size_t>(sensor - names.begin());
    for (const auto& valueNames : kValueNames) {
        columns.axes.clear();
        for (const std::string_view name : valueNames) {
            const auto axis = std::find(names.begin(), names.end(), name);
            if (axis == names.end()) break;
            columns.axes.push_back(static_cast<size_t>(axis - names.begin()));
        }
        if (columns.axes.size() == valueNames.size()) return columns;
    }
    columns.axes.clear();
    return columns;
}

enum class RowKind { kRate, kAcceleration, kGravity, kOther };

/// name: of a sensor, or the number that Android gives to it.
RowKind kindOfRow(std::string_view name) {
    if (name == "4") return RowKind::kRate;
    if (name == "1") return RowKind::kAcceleration;
    const std::string lower = lowerCase(name);
    if (lower.find("uncal") != std::string::npos) return RowKind::kOther;
    if (lower == "gyr") return RowKind::kRate;
    if (lower == "acc") return RowKind::kAcceleration;
    const SensorKind kind = sensorNamedIn(lower);
    if (kind == SensorKind::kRate) return RowKind::kRate;
    if (kind != SensorKind::kGravity) return RowKind::kOther;
    return lower.find("gravity") == std::string::npos ? RowKind::kAcceleration : RowKind::kGravity;
}

}  // namespace

bool detectLongRows(std::string_view content) {
    const LongColumns columns = readLongColumns(content);
    return !columns.axes.empty() && timeColumn(columns.line, SensorKind::kUnnamed).has_value();
}

MotionLog parseLongRows(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    nextOfTable(lines);
    const LongColumns columns = readLongColumns(content);
    const auto time = timeSource(columns.line, SensorKind::kUnnamed, lines);
    if (columns.axes.empty() || !time) lines.fail("names no column of time, sensor and three axes");
    MotionLog log;
    log.format = "one sensor a row";
    log.detectedBy = fmt::format(
        "the columns {}, {}, {}, ...", excerpt(columns.line.names[time->column]),
        excerpt(columns.line.names[columns.sensor]), excerpt(columns.line.names[columns.axes[0]]));
    std::vector<MotionSample> gravity;  // of a sensor of gravity alone
    std::vector<RowReading> readings;
    for (const auto& [kind, into] :
         {std::pair(RowKind::kRate, &log.rates), std::pair(RowKind::kAcceleration, &log.gravity),
          std::pair(RowKind::kGravity, &gravity)}) {
        RowReading reading =
            vectorReading(*time, {columns.axes[0], columns.axes[1], columns.axes[2]}, 1.0, *into);
        reading.isIn = [wanted = kind, sensor = columns.sensor](const auto& fields) {
            return sensor < fields.size() && kindOfRow(fields[sensor]) == wanted;
        };
        readings.push_back(std::move(reading));
    }
    readRows(lines, {columns.line.names, columns.line.separator, true}, readings, log.notes);
    if (log.gravity.empty()) log.gravity = std::move(gravity);
    if (time->unit == 0.0) {
        // Of the sensor with most readings, for both: they share the column.
        auto& most = log.rates.size() >= log.gravity.size() ? log.rates : log.gravity;
        auto& other = log.rates.size() >= log.gravity.size() ? log.gravity : log.rates;
        const double unit = applyLikelyTimeUnit(most);
        for (MotionSample& sample : other) sample.time *= unit;
        log.notes.push_back(timeUnitNote(unit));
    }
    applyLikelyGravityUnit(log);
    log.sortByTime();
    return log;
}

}  // namespace framehold
