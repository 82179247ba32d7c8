#include "motion/formats/text_columns.h"

#include "common/angles.h"
#include "common/library_constants.h"
#include "common/text_fields.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace framehold {

namespace {

bool contains(std::string_view text, std::initializer_list<std::string_view> words) {
    return std::any_of(words.begin(), words.end(), [&](std::string_view word) {
        return text.find(word) != std::string_view::npos;
    });
}

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> words) {
    return std::find(words.begin(), words.end(), text) != words.end();
}

/// A name in lower case, taken apart: "Gyroscope x (rad/s)" is "gyroscope x" and "rad/s".
struct NameParts {
    std::string base;
    std::string unit;
    bool hasAxisInBrackets = false;  // "rotation rate (x)", with base "rotation rate x"
};

NameParts takeApart(std::string_view name) {
    const std::string lower = lowerCase(name);
    const size_t bracket = lower.find_first_of("([");
    if (bracket == std::string::npos) return {lower, ""};
    const size_t end = lower.find_first_of(")]", bracket);
    std::string base(trim(std::string_view(lower).substr(0, bracket)));
    std::string unit(
        trim(lower.substr(bracket + 1, end == std::string::npos ? end : end - bracket - 1)));
    if (unit.size() == 1 && unit[0] >= 'w' && unit[0] <= 'z') return {base + ' ' + unit, "", true};
    return {std::move(base), std::move(unit)};
}

/// Seconds of a unit of time, 0 if it is none.
double secondsOf(std::string_view unit) {
    if (isOneOf(unit, {"ns", "nanos", "nanosec", "nanosecond", "nanoseconds"})) return 1e-9;
    if (isOneOf(unit, {"us", "\xC2\xB5s", "micros", "microseconds"})) return 1e-6;
    if (isOneOf(unit, {"ms", "msec", "millis", "millisecond", "milliseconds"})) return 1e-3;
    if (isOneOf(unit, {"s", "sec", "secs", "seconds"})) return 1.0;
    return 0.0;
}

/// The unit of time among the words of a name: "timestamp_ns", "time since start in ms".
double secondsNamedIn(std::string_view base) {
    constexpr std::string_view kBreaks = " _-.";
    while (!base.empty()) {
        const size_t end = std::min(base.find_first_of(kBreaks), base.size());
        std::string_view word = base.substr(0, end);
        for (const std::string_view prefix : {"timestamp", "time"}) {
            if (word.size() > prefix.size() && word.substr(0, prefix.size()) == prefix) {
                word.remove_prefix(prefix.size());
                break;
            }
        }
        if (const double seconds = secondsOf(word); seconds > 0.0) return seconds;
        base.remove_prefix(std::min(end + 1, base.size()));
    }
    return 0.0;
}

double rateUnit(std::string_view unit) {
    if (contains(unit, {"rad"})) return 1.0;
    return contains(unit, {"deg", "\xC2\xB0", "dps"}) ? toRadians(1.0) : 0.0;
}

double gravityUnit(std::string_view base, std::string_view unit) {
    // The accelerometer of iPhones, by the names that the system gives to its values.
    const bool down = contains(base, {"accelerometeracceleration", "motiongravity"});
    const double sign = down ? -1.0 : 1.0;
    if (unit == "g" || base == "gf") return sign * kStandardGravity;
    return contains(unit, {"m/s", "m s"}) ? sign : 0.0;
}

ColumnMeaning timeMeaning(const NameParts& parts) {
    ColumnMeaning meaning;
    const SensorKind owner = sensorNamedIn(parts.base);
    if (owner == SensorKind::kOther) return meaning;
    meaning.unit = parts.unit.empty() ? secondsNamedIn(parts.base) : secondsOf(parts.unit);
    if (!parts.unit.empty() && meaning.unit == 0.0) return meaning;  // a date, or a text
    meaning.kind = SensorKind::kTime;
    meaning.timeOf = owner;
    meaning.isBareUnit = secondsOf(parts.base) > 0.0;
    return meaning;
}

/// Takes the axis from the end of a name: "gyro_x" becomes "gyro". 0 if there is none.
char takeAxis(std::string& base) {
    for (const std::string_view word : {"-axis", " axis", "_axis"}) {
        if (base.size() > word.size() &&
            base.compare(base.size() - word.size(), word.size(), word) == 0) {
            base.resize(base.size() - word.size());
        }
    }
    if (base.empty() || base.back() < 'w' || base.back() > 'z') return 0;
    const char axis = base.back();
    base.pop_back();
    while (!base.empty() && contains(" _-.", {std::string_view(&base.back(), 1)})) base.pop_back();
    return axis;
}

SensorKind kindOfBase(std::string_view base) {
    if (base.empty()) return SensorKind::kUnnamed;
    if (isOneOf(base, {"g", "w", "gyr", "omega", "alpha"})) return SensorKind::kRate;
    if (isOneOf(base, {"a", "acc", "gf"})) return SensorKind::kGravity;
    if (base == "q") return SensorKind::kOrientation;
    const SensorKind named = sensorNamedIn(base);
    return named == SensorKind::kUnnamed ? SensorKind::kOther : named;
}

}  // namespace

SensorKind sensorNamedIn(std::string_view text) {
    const std::string lower = lowerCase(text);
    if (contains(lower, {"linear", "user", "magn", "bias", "drift", "location", "heading", "gps",
                         "altimeter", "pedometer", "activity", "battery"})) {
        return SensorKind::kOther;
    }
    if (contains(lower, {"gyro", "rotationrate", "rotation_rate", "rotation rate", "angular"})) {
        return SensorKind::kRate;
    }
    if (contains(lower, {"accel", "gravity"})) return SensorKind::kGravity;
    if (contains(lower, {"quat", "rotationvector", "rotation_vector", "rotation vector", "rotvec",
                         "rotation-vector"})) {
        return SensorKind::kOrientation;
    }
    return SensorKind::kUnnamed;
}

double timeUnitNamedIn(std::string_view name) {
    const NameParts parts = takeApart(name);
    return parts.unit.empty() ? secondsNamedIn(parts.base) : secondsOf(parts.unit);
}

ColumnMeaning meaningOf(std::string_view name) {
    NameParts parts = takeApart(name);
    if (contains(parts.base, {"time", "elapsed"}) || isOneOf(parts.base, {"t", "date"}) ||
        secondsOf(parts.base) > 0.0) {
        return timeMeaning(parts);
    }
    ColumnMeaning meaning;
    meaning.axis = takeAxis(parts.base);
    if (meaning.axis == 0) return meaning;
    meaning.kind = kindOfBase(parts.base);
    if (meaning.kind == SensorKind::kUnnamed && meaning.axis != 'w') {
        if (rateUnit(parts.unit) > 0.0) meaning.kind = SensorKind::kRate;
        if (gravityUnit(parts.base, parts.unit) > 0.0) meaning.kind = SensorKind::kGravity;
    }
    if (meaning.kind == SensorKind::kRate) meaning.unit = rateUnit(parts.unit);
    if (meaning.kind == SensorKind::kGravity) meaning.unit = gravityUnit(parts.base, parts.unit);
    // Only apps for iPhones write axes so: with the system's unit and sign.
    if (meaning.kind == SensorKind::kGravity && parts.hasAxisInBrackets) {
        meaning.unit = -kStandardGravity;
    }
    return meaning;
}

std::vector<std::string_view> splitQuoted(std::string_view line, char separator) {
    constexpr char kQuote = '"';
    if (line.find(kQuote) == std::string_view::npos) return splitFields(line, separator);
    std::vector<std::string_view> fields;
    bool isQuoted = false;
    size_t start = 0;
    for (size_t i = 0; i <= line.size(); ++i) {
        if (i < line.size() && line[i] == kQuote) isQuoted = !isQuoted;
        if (i < line.size() && (isQuoted || line[i] != separator)) continue;
        std::string_view field = trim(line.substr(start, i - start));
        if (field.size() >= 2 && field.front() == kQuote && field.back() == kQuote) {
            field = trim(field.substr(1, field.size() - 2));
        }
        fields.push_back(field);
        start = i + 1;
    }
    return fields;
}

bool nextOfTable(LineReader& lines) {
    while (lines.next()) {
        if (!isComment(lines.line())) return true;
    }
    return false;
}

std::string_view firstLineOfTable(std::string_view content) {
    LineReader lines({}, content.substr(0, kLongestLine));
    return nextOfTable(lines) ? lines.line() : std::string_view();
}

ColumnLine readColumnLine(std::string_view line) {
    ColumnLine columns;
    const auto occurs = [&](char c) { return std::count(line.begin(), line.end(), c); };
    for (const char c : {';', '\t'}) {
        if (occurs(c) > occurs(columns.separator)) columns.separator = c;
    }
    for (const std::string_view field : splitQuoted(line, columns.separator)) {
        columns.names.emplace_back(field);
        columns.meanings.push_back(meaningOf(field));
    }
    return columns;
}

std::vector<size_t> axisColumns(const ColumnLine& line, SensorKind kind, std::string_view axes) {
    std::vector<size_t> columns;
    for (const char axis : axes) {
        const auto found =
            std::find_if(line.meanings.begin(), line.meanings.end(),
                         [&](const ColumnMeaning& m) { return m.kind == kind && m.axis == axis; });
        if (found == line.meanings.end()) return {};
        columns.push_back(static_cast<size_t>(found - line.meanings.begin()));
    }
    return columns;
}

std::vector<size_t> ownQuaternionColumns(const ColumnLine& line) {
    auto columns = axisColumns(line, SensorKind::kOrientation, "xyzw");
    if (!columns.empty() && line.names[columns[0]] != "quaternion x") columns.clear();
    return columns;
}

std::optional<size_t> timeColumn(const ColumnLine& line, SensorKind kind) {
    const auto rank = [&](const ColumnMeaning& m) {
        if (m.timeOf == kind && kind != SensorKind::kUnnamed) return 3;
        if (m.timeOf != SensorKind::kUnnamed) return 0;
        return m.unit > 0.0 ? 2 : 1;
    };
    std::optional<size_t> best;
    for (size_t i = 0; i < line.meanings.size(); ++i) {
        if (line.meanings[i].kind != SensorKind::kTime) continue;
        if (!best || rank(line.meanings[i]) > rank(line.meanings[*best])) best = i;
    }
    return best;
}

}  // namespace framehold
