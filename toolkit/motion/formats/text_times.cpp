#include "motion/formats/text_times.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>

namespace framehold {

namespace {

/// Takes a text apart from its start.
class DateReader {
public:
    explicit DateReader(std::string_view text) : rest_(text) {}

    bool isAtEnd() const { return rest_.empty(); }

    /// Takes one of the characters; 0 if none of them is next.
    char takeOneOf(std::string_view characters) {
        if (rest_.empty() || characters.find(rest_[0]) == std::string_view::npos) return 0;
        const char taken = rest_[0];
        rest_.remove_prefix(1);
        return taken;
    }

    /// Takes so many digits; none if fewer are next, or the number is beyond `most`.
    std::optional<int> number(size_t digits, int most) {
        int value = 0;
        const auto [end, error] =
            std::from_chars(rest_.data(), rest_.data() + std::min(digits, rest_.size()), value);
        if (error != std::errc() || end != rest_.data() + digits) return std::nullopt;
        if (value < 0 || value > most) return std::nullopt;
        rest_.remove_prefix(digits);
        return value;
    }

    /// Takes the digits that are next as those after a decimal point.
    double fraction() {
        double value = 0.0, unit = 0.1;
        while (const char digit = takeOneOf("0123456789")) {
            value += unit * (digit - '0');
            unit *= 0.1;
        }
        return value;
    }

private:
    std::string_view rest_;
};

/// Seconds from 1970 to the start of a day.
std::optional<double> takeDay(DateReader& text) {
    const auto year = text.number(4, 9999);
    if (!year || !text.takeOneOf("-/")) return std::nullopt;
    const auto month = text.number(2, 12);
    if (!month || !text.takeOneOf("-/")) return std::nullopt;
    const auto day = text.number(2, 31);
    if (!day || !text.takeOneOf("T ")) return std::nullopt;
    std::tm date{};
    date.tm_year = *year - 1900;
    date.tm_mon = *month - 1;
    date.tm_mday = *day;
    return static_cast<double>(timegm(&date));
}

std::optional<double> takeTime(DateReader& text) {
    const auto hours = text.number(2, 23);
    if (!hours || !text.takeOneOf(":")) return std::nullopt;
    const auto minutes = text.number(2, 59);
    if (!minutes || !text.takeOneOf(":")) return std::nullopt;
    const auto seconds = text.number(2, 60);
    if (!seconds) return std::nullopt;
    const double fraction = text.takeOneOf(".,:") ? text.fraction() : 0.0;
    return 3600.0 * *hours + 60.0 * *minutes + *seconds + fraction;
}

/// Seconds that a zone is ahead.
std::optional<double> takeZone(DateReader& text) {
    if (text.takeOneOf("Z")) return 0.0;
    const char sign = text.takeOneOf("+-");
    if (sign == 0) return 0.0;
    const auto hours = text.number(2, 23);
    if (!hours) return std::nullopt;
    text.takeOneOf(":");
    const auto minutes = text.number(2, 59);
    return (sign == '-' ? -1.0 : 1.0) * (3600.0 * *hours + 60.0 * minutes.value_or(0));
}

/// True if the numbers of a column are milliseconds that start again with every second.
bool startAgain(size_t column, char separator, LineReader rows) {
    constexpr double kSecond = 1000.0;
    double last = 0.0;
    bool any = false;
    while (nextOfTable(rows)) {
        const auto fields = splitQuoted(rows.line(), separator);
        double value = 0.0;
        if (column >= fields.size()) continue;
        const std::string_view field = fields[column];
        const auto end = field.data() + field.size();
        if (std::from_chars(field.data(), end, value).ptr != end) continue;
        if (!(value >= 0.0 && value < kSecond)) return false;
        any = any || value < last - kSecond / 2.0;
        last = value;
    }
    return any;
}

}  // namespace

std::optional<double> secondsOfDate(std::string_view text) {
    DateReader day(text);
    const auto midnight = takeDay(day);
    DateReader rest = midnight ? day : DateReader(text);
    const auto time = takeTime(rest);
    if (!time) return std::nullopt;
    rest.takeOneOf(" ");
    const auto zone = takeZone(rest);
    if (!zone || !rest.isAtEnd()) return std::nullopt;
    return midnight.value_or(0.0) + *time - *zone;
}

std::optional<TimeSource> timeSource(const ColumnLine& line, SensorKind kind, LineReader rows) {
    LineReader first = rows;
    std::vector<std::string_view> fields;
    if (nextOfTable(first)) fields = splitQuoted(first.line(), line.separator);
    ColumnLine numbers = line;  // with the columns of dates, then of milliseconds, made others
    std::optional<size_t> date, milliseconds;
    for (size_t i = 0; i < line.meanings.size(); ++i) {
        if (line.meanings[i].kind != SensorKind::kTime) continue;
        if (line.meanings[i].isBareUnit && line.meanings[i].unit == 1e-3) milliseconds = i;
        if (i >= fields.size() || !secondsOfDate(fields[i])) continue;
        if (!date) date = i;
        numbers.meanings[i] = {};
    }
    if (milliseconds && startAgain(*milliseconds, line.separator, rows)) {
        numbers.meanings[*milliseconds] = {};
    } else {
        milliseconds.reset();
    }
    if (const auto column = timeColumn(numbers, kind)) {
        return TimeSource{*column, line.meanings[*column].unit, false, milliseconds};
    }
    if (date) return TimeSource{*date, 1.0, true, milliseconds};
    if (milliseconds) return TimeSource{*milliseconds, 1e-3};
    return std::nullopt;
}

}  // namespace framehold
