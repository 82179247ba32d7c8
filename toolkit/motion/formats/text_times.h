#pragma once

#include "common/text_fields.h"
#include "motion/formats/text_columns.h"

#include <optional>
#include <string_view>

namespace framehold {

/// Seconds since 1970 of a date with a time as ISO 8601 has it, "2023-11-14T22:13:20.005+01:00", also
/// with a blank for T, with / for -, and with : or , before the fraction; seconds since midnight of a
/// time alone. Without a zone: UTC. None for another text.
std::optional<double> secondsOfDate(std::string_view text);

/// Where the rows of a table have their times.
struct TimeSource {
    size_t column = 0;
    double unit = 1.0;                        // seconds; 0: not named
    bool isDate = false;                      // texts that `secondsOfDate` takes
    std::optional<size_t> milliseconds = {};  // column of the milliseconds within a second
};

/// Finds the times of a kind: its own, else those of a column whose unit is named, else of the first
/// one. Numbers go before dates. Milliseconds that start again with every second belong to a date or
/// to seconds in another column.
/// rows: at the line of names; borrowed. None if no column is named for a time.
std::optional<TimeSource> timeSource(const ColumnLine& line, SensorKind kind, LineReader rows);

}  // namespace framehold
