#include "motion/frame_metadata.h"

#include "common/median.h"
#include "common/text_fields.h"
#include "motion/formats/text_columns.h"
#include "motion/formats/text_rows.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>

#include <fmt/format.h>

namespace framehold {

namespace {

using Field = std::optional<double> FrameMetadata::*;

/// Column of a table, by its name.
struct FrameColumn {
    size_t index;
    Field field;
    double unit;  // seconds, or 1; 0: not named
    bool isTime;  // of any kind
};

/// Member of FrameMetadata that a column holds; none for one of no use.
Field fieldNamed(const std::string& name) {
    const auto has = [&](std::string_view word) { return name.find(word) != std::string::npos; };
    if (has("exposure")) {
        return has("compensation") || has("bias") || has("mode") ? nullptr
                                                                 : &FrameMetadata::exposure;
    }
    if (has("readout") || has("skew")) return &FrameMetadata::readout;
    const bool isFx = name.rfind("fx", 0) == 0 &&
                      (name.size() == 2 || !std::isalnum(static_cast<unsigned char>(name[2])));
    if (isFx || (has("focal") && (has("px") || has("pix")))) return &FrameMetadata::focalLength;
    if (name.rfind("width", 0) == 0) return &FrameMetadata::width;
    // Of several clocks, the sensor's is what logs are on.
    if (has("unix") || has("utc") || has("system") || has("duration")) return nullptr;
    return has("time") ? &FrameMetadata::time : nullptr;
}

std::vector<FrameColumn> columnsOf(const ColumnLine& line) {
    std::vector<FrameColumn> columns;
    for (size_t i = 0; i < line.names.size(); ++i) {
        const Field field = fieldNamed(lowerCase(line.names[i]));
        const auto isField = [field](const FrameColumn& column) { return column.field == field; };
        if (!field || std::any_of(columns.begin(), columns.end(), isField)) continue;
        const bool isTime = field != &FrameMetadata::focalLength && field != &FrameMetadata::width;
        columns.push_back({i, field, isTime ? timeUnitNamedIn(line.names[i]) : 1.0, isTime});
    }
    return columns;
}

bool isMetadata(const std::vector<FrameColumn>& columns) {
    return std::any_of(columns.begin(), columns.end(), [](const FrameColumn& column) {
        return column.field != &FrameMetadata::time && column.field != &FrameMetadata::width;
    });
}

/// Number in a field; none if there is none.
std::optional<double> valueIn(const LineReader& lines, std::string_view field,
                              const FrameColumn& column, const std::string& name) {
    constexpr double kLargest = 1e30;
    const std::string lower = lowerCase(field.substr(0, 5));
    if (field.empty() || lower == "nan" || lower == "null") return std::nullopt;
    const double value = lines.number(field, name);
    if (!(std::abs(value) <= kLargest)) {
        lines.fail(fmt::format("{}: {} is not within {} and {}", excerpt(name), excerpt(field),
                               -kLargest, kLargest));
    }
    if (column.field != &FrameMetadata::time && value <= 0.0) return std::nullopt;
    return value * (column.unit > 0.0 ? column.unit : 1.0);
}

std::vector<double> valuesOf(const std::vector<FrameMetadata>& frames, Field field) {
    std::vector<double> values;
    for (const FrameMetadata& frame : frames) {
        if (frame.*field) values.push_back(*(frame.*field));
    }
    return values;
}

/// Brings values of a column whose unit is not named to seconds.
void applyLikelyUnit(Field field, std::vector<FrameMetadata>& frames) {
    std::vector<double> sizes = valuesOf(frames, field);
    if (field == &FrameMetadata::time) {
        for (size_t i = sizes.size(); i-- > 1;) sizes[i] = std::abs(sizes[i] - sizes[i - 1]);
        if (sizes.size() > 1) sizes.erase(sizes.begin());
    }
    if (sizes.empty()) return;
    const double unit = likelyTimeUnit(median(std::move(sizes)));
    for (FrameMetadata& frame : frames) {
        if (frame.*field) *(frame.*field) *= unit;
    }
}

std::optional<double> medianOf(const std::vector<FrameMetadata>& frames, Field field) {
    std::vector<double> values = valuesOf(frames, field);
    return values.empty() ? std::nullopt : std::optional(median(std::move(values)));
}

}  // namespace

std::vector<FrameMetadata> readFrameMetadata(const std::string& path) {
    return parseFrameMetadata(path, readFile(path));
}

std::vector<FrameMetadata> parseFrameMetadata(const std::string& name, std::string_view text) {
    LineReader lines(name, text);
    const ColumnLine line = nextOfTable(lines) ? readColumnLine(lines.line()) : readColumnLine({});
    const std::vector<FrameColumn> columns = columnsOf(line);
    if (!isMetadata(columns)) lines.fail(kNoFrameMetadata);
    std::vector<FrameMetadata> frames;
    while (nextOfTable(lines)) {
        const auto fields = splitQuoted(lines.line(), line.separator);
        if (fields.size() < line.names.size() && lines.isUnterminated()) break;  // cut off
        FrameMetadata frame;
        for (const FrameColumn& column : columns) {
            const std::string& title = line.names[column.index];
            if (column.index >= fields.size()) lines.fail(excerpt(title) + " is missing");
            frame.*column.field = valueIn(lines, fields[column.index], column, title);
        }
        frames.push_back(frame);
    }
    for (const FrameColumn& column : columns) {
        if (column.isTime && column.unit == 0.0) applyLikelyUnit(column.field, frames);
    }
    return frames;
}

bool holdsFrameMetadata(const std::string& path) {
    const std::string start = readFile(path, kLongestLine);
    return isMetadata(columnsOf(readColumnLine(firstLineOfTable(start))));
}

FrameMetadata usualMetadata(const std::vector<FrameMetadata>& frames) {
    FrameMetadata usual;
    for (const Field field : {&FrameMetadata::exposure, &FrameMetadata::readout,
                              &FrameMetadata::focalLength, &FrameMetadata::width}) {
        usual.*field = medianOf(frames, field);
    }
    return usual;
}

std::vector<FrameMetadata> metadataAt(const std::vector<double>& times,
                                      const std::vector<FrameMetadata>& rows) {
    constexpr double kSame = 0.001;  // seconds
    std::map<double, const FrameMetadata*> known;
    for (const FrameMetadata& row : rows) {
        if (row.time) known[*row.time] = &row;
    }
    const FrameMetadata usual = usualMetadata(rows);
    std::vector<FrameMetadata> frames;
    frames.reserve(times.size());
    for (const double time : times) {
        const auto next = known.lower_bound(time - kSame);
        const bool isKnown = next != known.end() && next->first <= time + kSame;
        frames.push_back(isKnown ? *next->second : usual);
        frames.back().time = time;
    }
    return frames;
}

void moveToMiddleOfExposure(const std::vector<FrameMetadata>& frames, std::vector<double>& times) {
    const double usual = medianOf(frames, &FrameMetadata::exposure).value_or(0.0);
    const std::vector<FrameMetadata> shown = metadataAt(times, frames);
    for (size_t i = 0; i < times.size(); ++i) times[i] += shown[i].exposure.value_or(usual) / 2.0;
}

}  // namespace framehold
