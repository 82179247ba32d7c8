#include "motion/formats/text_rows.h"

#include "common/library_constants.h"
#include "common/median.h"
#include "common/text_fields.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>

namespace framehold {

namespace {

size_t fieldsNeeded(const std::vector<RowReading>& readings) {
    size_t needed = 0;
    for (const RowReading& reading : readings) {
        needed = std::max(needed, reading.time.column + 1);
        if (reading.time.milliseconds) needed = std::max(needed, *reading.time.milliseconds + 1);
        for (const size_t column : reading.values) needed = std::max(needed, column + 1);
    }
    return needed;
}

/// Number as files have it: with a decimal comma where that is no separator.
double numberInRow(const LineReader& lines, std::string_view field, std::string_view name) {
    // Far beyond every clock and sensor, and small enough to stay finite in whatever unit.
    constexpr double kLargest = 1e30;
    constexpr size_t kLongestWithComma = 64;
    const size_t comma = field.find(',');
    std::string withPoint;
    if (comma != std::string_view::npos && field.size() <= kLongestWithComma &&
        field.find('.') == std::string_view::npos) {
        withPoint = field;
        withPoint[comma] = '.';
    }
    const double value = lines.number(withPoint.empty() ? field : withPoint, name);
    if (!(std::abs(value) <= kLargest)) {
        lines.fail(fmt::format("{}: {} is not within {} and {}", excerpt(name), excerpt(field),
                               -kLargest, kLargest));
    }
    return value;
}

bool isNan(std::string_view field) {
    constexpr size_t kLongest = 4;
    if (field.size() > kLongest) return false;
    const std::string lower = lowerCase(field);
    return lower == "nan" || lower == "-nan" || lower == "null";
}

/// Reads the rows of a table.
class RowReader {
public:
    RowReader(LineReader& lines, const RowLayout& layout, const std::vector<RowReading>& readings)
        : lines_(lines), layout_(layout), readings_(readings), needed_(fieldsNeeded(readings)),
          lastTimes_(readings.size(), -HUGE_VAL) {}

    void readAll() {
        // A row has at least a character in each field, and one between each two.
        const size_t mostRows = lines_.bytesLeft() / (2 * needed_) + 1;
        for (const RowReading& reading : readings_) reading.reserve(mostRows);
        while (nextOfTable(lines_)) {
            fields_ = splitQuoted(lines_.line(), layout_.separator);
            isCutOff_ = any_ && lines_.isUnterminated() && !isWhole();
            if (isCutOff_) break;
            readRow();
        }
        if (!any_) lines_.fail("holds no samples");
    }

    void addNotes(std::vector<std::string>& notes) const {
        if (nans_ > 0) {
            notes.push_back(
                fmt::format("{} with a value that is not a number (NaN), in line {} "
                            "first, left out",
                            counted(nans_, "reading"), firstNanLine_));
        }
        if (isCutOff_) {
            notes.push_back(fmt::format("cut off in its last line, {}, which is left out",
                                        lines_.lineNumber()));
        }
    }

private:
    /// False for a row that the end of the file has cut off: it has too few fields, one that is no
    /// number, or a time before that of the row before it.
    bool isWhole() const {
        if (fields_.size() < std::max(needed_, layout_.names.size())) return false;
        try {
            for (size_t i = 0; i < readings_.size(); ++i) {
                if (isOmitted(readings_[i])) continue;
                if (time(readings_[i].time) < lastTimes_[i]) return false;
                for (const size_t column : readings_[i].values) number(column);
            }
        } catch (const FileError&) {
            return false;
        }
        return true;
    }

    void readRow() {
        if (fields_.size() < needed_) {
            lines_.fail(fmt::format("{} fields where {} are expected", fields_.size(), needed_));
        }
        for (size_t i = 0; i < readings_.size(); ++i) {
            const RowReading& reading = readings_[i];
            if (isOmitted(reading)) continue;
            const double seconds = time(reading.time);
            if (hasNan(reading)) {
                if (nans_++ == 0) firstNanLine_ = lines_.lineNumber();
                continue;
            }
            values_.clear();
            for (const size_t column : reading.values) values_.push_back(number(column));
            reading.take(seconds, values_);
            lastTimes_[i] = seconds;
            any_ = true;
        }
    }

    double number(size_t column) const {
        return numberInRow(lines_, fields_[column], layout_.names[column]);
    }

    double time(const TimeSource& source) const {
        constexpr double kMillisecond = 1e-3;
        const double within =
            source.milliseconds ? kMillisecond * number(*source.milliseconds) : 0.0;
        if (source.isDate) {
            const std::string_view field = fields_[source.column];
            const auto seconds = secondsOfDate(field);
            if (!seconds) {
                lines_.fail(fmt::format("{}: '{}' is not a date with a time",
                                        excerpt(layout_.names[source.column]), excerpt(field)));
            }
            return *seconds + within;
        }
        return number(source.column) * (source.unit > 0.0 ? source.unit : 1.0) + within;
    }

    bool isOmitted(const RowReading& reading) const {
        if (reading.isIn && !reading.isIn(fields_)) return true;
        return layout_.mayOmit &&
               std::all_of(reading.values.begin(), reading.values.end(),
                           [&](size_t column) { return fields_[column].empty(); });
    }

    bool hasNan(const RowReading& reading) const {
        return std::any_of(reading.values.begin(), reading.values.end(),
                           [&](size_t column) { return isNan(fields_[column]); });
    }

    LineReader& lines_;
    const RowLayout& layout_;
    const std::vector<RowReading>& readings_;
    size_t needed_;  // fields
    std::vector<std::string_view> fields_;
    std::vector<double> values_;
    std::vector<double> lastTimes_;  // of each reading
    bool any_ = false;
    bool isCutOff_ = false;
    size_t nans_ = 0;
    int firstNanLine_ = 0;
};

}  // namespace

RowReading vectorReading(const TimeSource& time, const std::array<size_t, 3>& axes, double unit,
                         std::vector<MotionSample>& into) {
    return {time,
            {axes.begin(), axes.end()},
            [unit, &into](double t, const std::vector<double>& v) {
                into.push_back({t, {v[0] * unit, v[1] * unit, v[2] * unit}});
            },
            [&into](size_t rows) { into.reserve(rows); }};
}

void readRows(LineReader& lines, const RowLayout& layout, const std::vector<RowReading>& readings,
              std::vector<std::string>& notes) {
    RowReader reader(lines, layout, readings);
    reader.readAll();
    reader.addNotes(notes);
}

void readHeaderComments(std::string_view content, MotionLog& log) {
    LineReader lines({}, content.substr(0, kLongestLine));
    while (lines.next() && isComment(lines.line())) {
        const auto fields = splitFields(lines.line().substr(1));
        if (fields.size() != 2) continue;
        try {
            if (fields[0] == "orientation") {
                log.orientation = AxisMapping::fromLetters(std::string(fields[1]));
            } else if (fields[0] == "frame_readout_time") {
                const double milliseconds = lines.number(fields[1], fields[0]);
                if (milliseconds >= 0.0) log.readoutTime = milliseconds / 1000.0;
            }
        } catch (const std::exception&) {
            // Deliberate: a comment of somebody else's.
        }
    }
}

RowReading quaternionReading(const LineReader& lines, const TimeSource& time,
                             const std::vector<size_t>& columns, MotionLog& log) {
    constexpr double kLargestError = 0.05;
    constexpr double kRounding = 1e-14;
    const auto take = [&lines, &log](double t, const std::vector<double>& v) {
        double squares = 0.0;
        for (const double part : v) squares += part * part;
        const bool hasW = v.size() == 4;
        const double length = std::sqrt(squares);
        if (length > 1.0 + kLargestError || (hasW && length < 1.0 - kLargestError)) {
            lines.fail(fmt::format("the quaternion's length is {:.3g}, not 1", length));
        }
        const double w = hasW ? v[3] : std::sqrt(std::max(0.0, 1.0 - squares));
        const double norm = hasW ? length : std::max(1.0, length);
        // What is a unit quaternion already stays as it is to the last bit.
        const double divisor = std::abs(norm - 1.0) < kRounding ? 1.0 : norm;
        log.orientations.push_back(
            {t, w / divisor, v[0] / divisor, v[1] / divisor, v[2] / divisor});
    };
    return {time, columns, take, [&log](size_t rows) { log.orientations.reserve(rows); }};
}

double likelyTimeUnit(double step) {
    if (step <= 0.1) return 1.0;
    if (step <= 1e2) return 1e-3;
    return step <= 1e5 ? 1e-6 : 1e-9;
}

std::string timeUnitNote(double unit) {
    const char* const name = unit == 1.0 ? "s" : unit == 1e-3 ? "ms" : unit == 1e-6 ? "us" : "ns";
    return fmt::format("the unit of time is not named: taken for {} by the size of its steps",
                       name);
}

namespace {

/// Between a hard shake in g and a soft one in m/s^2.
constexpr double kLargestInG = 4.0;

bool isLikelyGravity(double length) {
    return std::abs(length - kStandardGravity) < 1.5 || std::abs(length - 1.0) < 0.1;
}

}  // namespace

void placeUnnamed(const std::string& file, std::vector<MotionSample> samples, MotionLog& log) {
    SensorKind kind = sensorNamedIn(std::filesystem::path(file).filename().string());
    if (kind == SensorKind::kOther) {
        throw FileError(file, 0,
                        "its name is that of another sensor: give the gyroscope's file, or name "
                        "the columns");
    }
    if (kind == SensorKind::kUnnamed) {
        kind = isLikelyGravity(medianLength(samples)) ? SensorKind::kGravity : SensorKind::kRate;
        log.notes.push_back(kind == SensorKind::kRate
                                ? "the sensor is not named: taken for a gyroscope by its values"
                                : "the sensor is not named: taken for an accelerometer by its "
                                  "values");
    }
    (kind == SensorKind::kGravity ? log.gravity : log.rates) = std::move(samples);
}

void applyLikelyGravityUnit(MotionLog& log) {
    if (log.gravity.empty() || medianLength(log.gravity) > kLargestInG) return;
    for (MotionSample& s : log.gravity) {
        for (double& v : s.value) v *= kStandardGravity;
    }
    log.notes.push_back("the unit of gravity is not named: taken for g by its size");
}

}  // namespace framehold
