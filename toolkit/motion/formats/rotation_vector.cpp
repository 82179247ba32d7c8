#include "motion/formats/text_columns.h"
#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

/// Columns of a quaternion's x, y, z and, where there is one, w.
std::vector<size_t> quaternionColumns(const ColumnLine& line) {
    // Bare columns need a w: three axes alone are those of a vector.
    for (const auto& [kind, axes] : {std::pair{SensorKind::kOrientation, "xyzw"},
                                     {SensorKind::kOrientation, "xyz"},
                                     {SensorKind::kUnnamed, "xyzw"}}) {
        const auto columns = axisColumns(line, kind, axes);
        if (!columns.empty()) return columns;
    }
    return {};
}

/// values: x, y, z and, where there is one, w.
OrientationSample unitQuaternion(const LineReader& lines, double time,
                                 const std::vector<double>& values) {
    constexpr double kLargestError = 0.05;
    double squares = 0.0;
    for (const double v : values) squares += v * v;
    const bool hasW = values.size() == 4;
    const double length = std::sqrt(squares);
    if (length > 1.0 + kLargestError || (hasW && length < 1.0 - kLargestError)) {
        lines.fail(fmt::format("the quaternion's length is {:.3g}, not 1", length));
    }
    const double w = hasW ? values[3] : std::sqrt(std::max(0.0, 1.0 - squares));
    const double norm = hasW ? length : std::max(1.0, length);
    return {time, w / norm, values[0] / norm, values[1] / norm, values[2] / norm};
}

}  // namespace

bool detectRotationVector(std::string_view content) {
    const ColumnLine line = readColumnLine(firstLineOfTable(content));
    return !quaternionColumns(line).empty() &&
           timeColumn(line, SensorKind::kOrientation).has_value() &&
           axisColumns(line, SensorKind::kRate, "xyz").empty();
}

MotionLog parseRotationVector(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    nextOfTable(lines);
    const ColumnLine columns = readColumnLine(lines.line());
    const auto axes = quaternionColumns(columns);
    const auto time = timeSource(columns, SensorKind::kOrientation, lines);
    if (axes.empty() || !time) {
        lines.fail("names no column of time with a quaternion's x, y and z");
    }
    MotionLog log;
    log.format = "rotation vector";
    log.detectedBy = fmt::format("the columns {}, {}, ...", excerpt(columns.names[time->column]),
                                 excerpt(columns.names[axes[0]]));
    readRows(lines, {columns.names, columns.separator, true},
             {{*time, axes,
               [&](double t, const std::vector<double>& values) {
                   log.orientations.push_back(unitQuaternion(lines, t, values));
               },
               [&](size_t rows) { log.orientations.reserve(rows); }}},
             log.notes);
    if (time->unit == 0.0) log.notes.push_back(timeUnitNote(applyLikelyTimeUnit(log.orientations)));
    if (axes.size() == 3) log.notes.emplace_back("w is not logged: made from x, y and z");
    log.sortByTime();
    return log;
}

}  // namespace framehold
