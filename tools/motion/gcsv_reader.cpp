#include "motion/gcsv_reader.h"

#include "common/text_fields.h"

#include <algorithm>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kStandardGravity = 9.81;  // m/s^2, what the library takes for 1 g

bool isFirstLine(std::string_view line) {
    return line == "CAMERA IMU LOG" || line == "GYROFLOW IMU LOG";
}

struct Scales {
    double time = 1.0;
    double rate = 1.0;
    double gravity = 1.0;
};

/// Reads one "key,value" line.
void readHeader(const LineReader& lines, const std::vector<std::string_view>& fields,
                MotionLog& log, Scales& scales) {
    const std::string_view key = fields[0];
    const std::string_view value = fields.size() > 1 ? fields[1] : std::string_view();
    const auto positive = [&] {
        const double number = lines.number(value, key);
        if (number <= 0.0) lines.fail(fmt::format("{}: {} is not above 0", key, value));
        return number;
    };
    if (key == "tscale") scales.time = positive();
    if (key == "gscale") scales.rate = positive();
    if (key == "ascale") scales.gravity = positive();
    if (key == "frame_readout_time") {
        const double milliseconds = lines.number(value, key);
        if (milliseconds < 0.0) lines.fail(fmt::format("{}: {} is below 0", key, value));
        log.readoutTime = milliseconds / 1000.0;
    }
    if (key == "orientation") {
        try {
            log.orientation = AxisMapping::fromLetters(std::string(value));
        } catch (const std::invalid_argument& error) {
            lines.fail(fmt::format("orientation: {}", error.what()));
        }
    }
}

}  // namespace

MotionLog readGcsv(const std::string& path) {
    const std::string text = readFile(path);
    LineReader lines(path, text);
    if (!lines.next() || !isFirstLine(lines.line())) {
        lines.fail(
            "not a .gcsv motion log: the first line is not \"CAMERA IMU LOG\" or "
            "\"GYROFLOW IMU LOG\"");
    }
    MotionLog log;
    Scales scales;
    std::vector<std::string_view> columns;
    while (columns.empty()) {
        if (!lines.next()) lines.fail("ends before the line of column names, t,gx,gy,gz");
        const auto fields = splitFields(lines.line());
        if (fields[0] == "t") {
            columns = fields;
        } else {
            readHeader(lines, fields, log, scales);
        }
    }
    constexpr std::string_view kColumns[] = {"t", "gx", "gy", "gz", "ax", "ay", "az"};
    const bool hasGravity = columns.size() >= 7;
    const size_t used = hasGravity ? 7 : 4;
    for (size_t i = 0; i < used; ++i) {
        if (i >= columns.size() || columns[i] != kColumns[i]) {
            lines.fail(fmt::format("column {} is not {}", i + 1, kColumns[i]));
        }
    }

    while (lines.next()) {
        const auto fields = splitFields(lines.line());
        if (fields.size() < used) {
            lines.fail(fmt::format("{} fields where {} are expected", fields.size(), used));
        }
        double v[7] = {};
        for (size_t i = 0; i < used; ++i) v[i] = lines.number(fields[i], kColumns[i]);
        const double time = v[0] * scales.time;
        const double toGravity = scales.gravity * kStandardGravity;
        if (!log.rates.empty() && time < log.rates.back().time) ++log.outOfOrder;
        log.rates.push_back({time, {v[1] * scales.rate, v[2] * scales.rate, v[3] * scales.rate}});
        if (hasGravity) {
            log.gravity.push_back({time, {v[4] * toGravity, v[5] * toGravity, v[6] * toGravity}});
        }
    }
    if (log.rates.empty()) lines.fail("holds no samples");
    for (auto* samples : {&log.rates, &log.gravity}) {
        std::stable_sort(
            samples->begin(), samples->end(),
            [](const MotionSample& a, const MotionSample& b) { return a.time < b.time; });
    }
    return log;
}

}  // namespace framehold
