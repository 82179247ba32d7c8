#pragma once

#include "common/text_fields.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Content of a column or a file of a sensor log.
enum class SensorKind {
    kUnnamed,  // bare x, y, z
    kTime,
    kRate,         // angular rate
    kGravity,      // accelerometer, gravity included
    kOrientation,  // quaternion
    kOther,        // what is of no use here
};

/// Sensor that a text names, such as "walk_gyro.csv" or "accelerometer".
SensorKind sensorNamedIn(std::string_view text);

/// Meaning of a column's name.
struct ColumnMeaning {
    SensorKind kind = SensorKind::kOther;
    char axis = 0;                             // x, y, z, w; 0: none
    double unit = 0.0;                         // in seconds, rad/s or m/s^2; 0: not named
    SensorKind timeOf = SensorKind::kUnnamed;  // of a time: the sensor that it belongs to
    bool isBareUnit = false;                   // of a time: the name is a unit, such as "ms"
};

/// Reads a column's name as logger apps write it: "gyroTimestamp_sinceReboot(s)", "gx[rad/s]",
/// "ACCELEROMETER X (m/s2)", "seconds_elapsed", "Rotation Rate (X)", "qw". The accelerometers of iPhones point down at
/// rest; columns that are known to come from them have a negative unit.
ColumnMeaning meaningOf(std::string_view name);

/// Unit of time, in seconds, that a column's name holds: "exposure_time_ns", "Timestamp[nanosec]"; 0 if
/// none.
double timeUnitNamedIn(std::string_view name);

/// Trimmed fields of a line, without quotes; a separator in quotes separates nothing.
std::vector<std::string_view> splitQuoted(std::string_view line, char separator);

/// True for a line that is passed over: its first character is #.
inline bool isComment(std::string_view line) { return !line.empty() && line[0] == '#'; }

/// First line that is neither blank nor a comment, like `firstLine`.
std::string_view firstLineOfTable(std::string_view content);

/// Goes to the next line that is no comment; false at the end.
bool nextOfTable(LineReader& lines);

/// First line of a log, with the names of its columns.
struct ColumnLine {
    char separator = ',';            // the one of , ; and tab that occurs most
    std::vector<std::string> names;  // without quotes
    std::vector<ColumnMeaning> meanings;
};

ColumnLine readColumnLine(std::string_view line);

/// Indices of the first columns that hold the axes of a kind, each a letter of `axes`; empty if one
/// is missing.
std::vector<size_t> axisColumns(const ColumnLine& line, SensorKind kind, std::string_view axes);

/// Columns of a quaternion's x, y, z and w beside other sensors, by the names that writeTextLog gives
/// them: those of apps are passed over, where rates are better. Empty if one is missing.
std::vector<size_t> ownQuaternionColumns(const ColumnLine& line);

/// Index of the column to take the times of a kind from: its own, else one whose unit is named, else
/// the first one. None if there is none.
std::optional<size_t> timeColumn(const ColumnLine& line, SensorKind kind);

}  // namespace framehold
