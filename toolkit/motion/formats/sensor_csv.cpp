#include "motion/formats/text_columns.h"
#include "motion/formats/text_formats.h"
#include "motion/formats/text_rows.h"

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr SensorKind kVectorKinds[] = {SensorKind::kRate, SensorKind::kGravity,
                                       SensorKind::kUnnamed};

/// One sensor's readings.
struct Stream {
    SensorKind kind;
    TimeSource time;
    std::vector<size_t> axes;  // columns
    double unit;               // rad/s or m/s^2; 0: not named
    std::vector<MotionSample> samples = {};
};

/// rows: at the line of names.
std::vector<Stream> findStreams(const ColumnLine& line, const LineReader& rows) {
    std::vector<Stream> streams;
    for (const SensorKind kind : kVectorKinds) {
        if (kind == SensorKind::kUnnamed && !streams.empty()) break;
        const auto axes = axisColumns(line, kind, "xyz");
        if (axes.empty()) continue;
        const auto time = timeSource(line, kind, rows);
        if (!time) continue;
        streams.push_back({kind, *time, axes, line.meanings[axes[0]].unit});
    }
    return streams;
}

void bringToSeconds(Stream& stream, MotionLog& log) {
    if (stream.time.unit > 0.0) return;
    const std::string note = timeUnitNote(applyLikelyTimeUnit(stream.samples));
    if (log.notes.empty() || log.notes.back() != note) log.notes.push_back(note);
}

/// Moves a stream's samples to where they belong.
void place(const std::string& name, Stream& stream, MotionLog& log) {
    bringToSeconds(stream, log);
    if (stream.kind == SensorKind::kRate) log.rates = std::move(stream.samples);
    if (stream.kind == SensorKind::kGravity) log.gravity = std::move(stream.samples);
    if (stream.kind == SensorKind::kUnnamed) placeUnnamed(name, std::move(stream.samples), log);
    if (stream.kind != SensorKind::kRate && stream.unit == 0.0) applyLikelyGravityUnit(log);
}

/// List of the columns that are read, for the user.
std::string describeColumns(const ColumnLine& line, const std::vector<Stream>& streams) {
    std::string text = fmt::format("the columns {}", excerpt(line.names[streams[0].time.column]));
    for (const Stream& stream : streams) {
        for (const size_t axis : stream.axes) text += ", " + excerpt(line.names[axis]);
    }
    return text;
}

}  // namespace

bool detectSensorCsv(std::string_view content) {
    LineReader lines({}, content.substr(0, kLongestLine));
    return nextOfTable(lines) && !findStreams(readColumnLine(lines.line()), lines).empty();
}

MotionLog parseSensorCsv(const std::string& name, std::string_view content) {
    LineReader lines(name, content);
    nextOfTable(lines);
    const ColumnLine columns = readColumnLine(lines.line());
    std::vector<Stream> streams = findStreams(columns, lines);
    if (streams.empty()) {
        lines.fail("names no column of time with three axes of a gyroscope or accelerometer");
    }
    MotionLog log;
    readHeaderComments(content, log);
    log.format = "sensor CSV";
    log.detectedBy = describeColumns(columns, streams);
    std::vector<RowReading> readings;
    for (Stream& s : streams) {
        readings.push_back(vectorReading(s.time, {s.axes[0], s.axes[1], s.axes[2]},
                                         s.unit == 0.0 ? 1.0 : s.unit, s.samples));
    }
    const auto quaternion = ownQuaternionColumns(columns);
    if (!quaternion.empty()) {
        readings.push_back(quaternionReading(lines, streams[0].time, quaternion, log));
    }
    readRows(lines, {columns.names, columns.separator, true}, readings, log.notes);
    for (Stream& stream : streams) place(name, stream, log);
    log.sortByTime();
    return log;
}

}  // namespace framehold
