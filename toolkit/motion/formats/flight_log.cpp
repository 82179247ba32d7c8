#include "common/angles.h"
#include "common/library_constants.h"
#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr std::string_view kFirstColumn = "loopIteration";
constexpr int kMostHeaderLines = 2000;

/// What is above the table, and the names of its columns.
struct FlightHeader {
    std::vector<std::string> names;  // empty: not of this format
    std::optional<double> perGravity;
    std::optional<double> loopSeconds;
};

/// Reads "key","value" lines and goes to the line of names.
FlightHeader readHeader(LineReader& lines) {
    constexpr double kMicrosecond = 1e-6;
    FlightHeader header;
    for (int i = 0; i < kMostHeaderLines && nextOfTable(lines); ++i) {
        const auto fields = splitQuoted(lines.line(), ',');
        if (fields[0] == kFirstColumn) {
            header.names.assign(fields.begin(), fields.end());
            return header;
        }
        if (fields.size() != 2) continue;
        const auto aboveZero = [&] {
            const double value = lines.number(fields[1], fields[0]);
            if (!(value > 0.0 && value <= 1e6)) {
                lines.fail(fmt::format("{}: {} is not above 0 and at most 1000000",
                                       excerpt(fields[0]), excerpt(fields[1])));
            }
            return value;
        };
        if (fields[0] == "acc_1G") header.perGravity = aboveZero();
        if (fields[0] == "looptime") header.loopSeconds = kMicrosecond * aboveZero();
    }
    return header;
}

std::optional<size_t> columnOf(const FlightHeader& header, std::string_view name) {
    const auto found = std::find(header.names.begin(), header.names.end(), name);
    if (found == header.names.end()) return std::nullopt;
    return static_cast<size_t>(found - header.names.begin());
}

/// The columns "name[0]" to "name[2]"; none if one is missing.
std::optional<std::array<size_t, 3>> axesOf(const FlightHeader& header, std::string_view name) {
    std::array<size_t, 3> axes;
    for (size_t i = 0; i < axes.size(); ++i) {
        const auto column = columnOf(header, fmt::format("{}[{}]", name, i));
        if (!column) return std::nullopt;
        axes[i] = *column;
    }
    return axes;
}

}  // namespace

bool detectFlightLog(std::string_view content) {
    LineReader lines({}, content.substr(0, kLongestLine));
    for (int i = 0; i < kMostHeaderLines && nextOfTable(lines); ++i) {
        if (splitQuoted(lines.line(), ',')[0] == kFirstColumn) return true;
    }
    return false;
}

MotionLog parseFlightLog(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    const FlightHeader header = readHeader(lines);
    const auto rates = axesOf(header, "gyroADC");
    if (!rates) lines.fail("names no columns gyroADC[0] to gyroADC[2]");
    constexpr double kMicrosecond = 1e-6;
    std::optional<size_t> time = columnOf(header, "time (us)");
    if (!time) time = columnOf(header, "time");
    const double timeUnit = time ? kMicrosecond : header.loopSeconds.value_or(0.0);
    if (timeUnit == 0.0) lines.fail("names no column of time, and no looptime above the table");
    MotionLog log;
    log.format = "flight-controller log";
    log.detectedBy = fmt::format("the column {}", kFirstColumn);
    std::vector<RowReading> readings = {
        vectorReading({time.value_or(0), timeUnit}, *rates, toRadians(1.0), log.rates)};
    const auto gravity = axesOf(header, "accSmooth");
    if (gravity && header.perGravity) {
        readings.push_back(vectorReading({time.value_or(0), timeUnit}, *gravity,
                                         kStandardGravity / *header.perGravity, log.gravity));
    } else if (gravity) {
        log.notes.emplace_back(
            "accSmooth is not read: no acc_1G above the table says how much 1 g is");
    }
    readRows(lines, {header.names, ',', true}, readings, log.notes);
    log.sortByTime();
    return log;
}

}  // namespace framehold
