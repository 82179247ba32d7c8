#include "motion/formats/text_columns.h"
#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

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

}  // namespace

bool detectRotationVector(std::string_view content) {
    const ColumnLine line = readColumnLine(firstLineOfTable(content));
    const bool isWide = !ownQuaternionColumns(line).empty() &&
                        !axisColumns(line, SensorKind::kGravity, "xyz").empty();
    return !isWide && !quaternionColumns(line).empty() &&
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
    readHeaderComments(content, log);
    log.format = "rotation vector";
    log.detectedBy = fmt::format("the columns {}, {}, ...", excerpt(columns.names[time->column]),
                                 excerpt(columns.names[axes[0]]));
    readRows(lines, {columns.names, columns.separator, true},
             {quaternionReading(lines, *time, axes, log)}, log.notes);
    if (time->unit == 0.0) log.notes.push_back(timeUnitNote(applyLikelyTimeUnit(log.orientations)));
    if (axes.size() == 3) log.notes.emplace_back("w is not logged: made from x, y and z");
    log.sortByTime();
    return log;
}

}  // namespace framehold
