#include "common/library_constants.h"
#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr size_t kFieldsOfOne = 4;  // a time and three axes
constexpr size_t kFieldsOfTwo = 7;
constexpr size_t kFieldsOfThree = 10;  // the last three are the magnetometer's

/// The separator and the names that rows without names would have; no names if they are not such.
RowLayout layoutOf(std::string_view line) {
    RowLayout layout;
    layout.separator = readColumnLine(line).separator;
    const auto fields = splitQuoted(line, layout.separator);
    const bool isTable = fields.size() == kFieldsOfOne || fields.size() == kFieldsOfTwo ||
                         fields.size() == kFieldsOfThree;
    const bool isNumbers = std::all_of(fields.begin(), fields.end(), [](std::string_view field) {
        return !field.empty() && field.find_first_not_of("+-.,0123456789eE") == field.npos;
    });
    if (!isTable || !isNumbers) return layout;
    layout.names = {"time"};
    for (size_t i = 1; i < fields.size(); ++i) {
        layout.names.push_back(fmt::format("column {}", i + 1));
    }
    return layout;
}

/// How far a sensor's readings are from those of an accelerometer, as a factor.
double distanceFromGravity(const std::vector<MotionSample>& samples) {
    const double length = std::max(medianLength(samples), 1e-9);
    return std::min(std::abs(std::log(length)), std::abs(std::log(length / kStandardGravity)));
}

}  // namespace

bool detectBareRows(std::string_view content) {
    const RowLayout layout = layoutOf(firstLineOfTable(content));
    if (layout.names.empty()) return false;
    // Times rise; a sensor's readings do not for long.
    constexpr int kRows = 4;
    LineReader lines({}, content.substr(0, kLongestLine));
    double last = -HUGE_VAL;
    for (int row = 0; row < kRows && nextOfTable(lines); ++row) {
        const auto fields = splitQuoted(lines.line(), layout.separator);
        try {
            const double time = lines.number(fields[0], "time");
            if (!(time > last)) return false;
            last = time;
        } catch (const FileError&) {
            return false;
        }
    }
    return true;
}

MotionLog parseBareRows(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    const RowLayout layout = layoutOf(firstLineOfTable(content));
    MotionLog log;
    log.format = "rows without names";
    log.detectedBy = "rows of numbers, the first of which rises";
    constexpr TimeSource time = {0, 0.0};
    std::vector<MotionSample> first, second;
    std::vector<RowReading> readings = {vectorReading(time, {1, 2, 3}, 1.0, first)};
    const bool hasBoth = layout.names.size() > kFieldsOfOne;
    if (hasBoth) readings.push_back(vectorReading(time, {4, 5, 6}, 1.0, second));
    readRows(lines, layout, readings, log.notes);
    log.notes.push_back(timeUnitNote(applyLikelyTimeUnit(first)));
    if (hasBoth) {
        applyLikelyTimeUnit(second);
        const bool isSecond = distanceFromGravity(second) < distanceFromGravity(first);
        log.notes.push_back(fmt::format(
            "the columns have no names: 2 to 4 are taken for the {}, 5 to 7 for the {}, by size",
            isSecond ? "gyroscope" : "accelerometer", isSecond ? "accelerometer" : "gyroscope"));
        log.rates = std::move(isSecond ? first : second);
        log.gravity = std::move(isSecond ? second : first);
    } else {
        placeUnnamed(name, std::move(first), log);
    }
    applyLikelyGravityUnit(log);
    log.sortByTime();
    return log;
}

}  // namespace framehold
