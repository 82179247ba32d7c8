#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

#include <algorithm>

namespace framehold {

namespace {

const std::vector<std::string> kNames = {"x", "y", "z", "timestamp_ns"};

bool isColumnLine(std::string_view line) {
    const std::string lower = lowerCase(line);
    const auto fields = splitFields(lower);
    return std::equal(fields.begin(), fields.end(), kNames.begin(), kNames.end());
}

bool isRow(std::string_view line) {
    constexpr size_t kFewestDigits = 9;  // a second after the clock's start
    const auto fields = splitFields(line);
    if (fields.size() != 4) return false;
    const auto isMadeOf = [](std::string_view field, std::string_view characters) {
        return !field.empty() && field.find_first_not_of(characters) == std::string_view::npos;
    };
    return isMadeOf(fields[3], "0123456789") && fields[3].size() >= kFewestDigits &&
           std::all_of(fields.begin(), fields.begin() + 3,
                       [&](std::string_view f) { return isMadeOf(f, "+-.0123456789eE"); });
}

}  // namespace

bool detectXyzCsv(std::string_view content) {
    const std::string_view line = firstLineOfTable(content);
    return isColumnLine(line) || isRow(line);
}

MotionLog parseXyzCsv(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    MotionLog log;
    log.format = "x,y,z,timestamp_ns";
    log.detectedBy = "rows of four numbers, the last one of nanoseconds";
    if (isColumnLine(firstLineOfTable(content))) {
        nextOfTable(lines);
        log.detectedBy = "the columns x, y, z, timestamp_ns";
    }
    constexpr double kNanosecond = 1e-9;
    std::vector<MotionSample> samples;
    readRows(lines, {kNames}, {vectorReading({3, kNanosecond}, {0, 1, 2}, 1.0, samples)},
             log.notes);
    placeUnnamed(name, std::move(samples), log);
    log.sortByTime();
    return log;
}

}  // namespace framehold
