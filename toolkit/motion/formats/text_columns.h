#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// What a column or a file of a sensor log holds.
enum class SensorKind {
    kUnsaid,  // bare x, y, z
    kTime,
    kRate,         // angular rate
    kGravity,      // accelerometer, gravity included
    kOrientation,  // quaternion
    kOther,        // what is of no use here
};

/// The sensor that a text names, such as "walk_gyro.csv" or "accelerometer".
SensorKind sensorNamedIn(std::string_view text);

/// What a column's name says.
struct ColumnMeaning {
    SensorKind kind = SensorKind::kOther;
    char axis = 0;                            // x, y, z, w; 0: none
    double unit = 0.0;                        // in seconds, rad/s or m/s^2; 0: not said
    SensorKind timeOf = SensorKind::kUnsaid;  // of a time: whose it is
};

/// Reads a column's name as logger apps write it: "gyroTimestamp_sinceReboot(s)", "gx[rad/s]",
/// "ACCELEROMETER X (m/s2)", "seconds_elapsed", "qw". The accelerometers of iPhones point down at
/// rest; columns that are known to come from them have a negative unit.
ColumnMeaning meaningOf(std::string_view name);

/// A log's line of column names.
struct ColumnLine {
    char separator = ',';            // the one of , ; and tab that occurs most
    std::vector<std::string> names;  // without quotes
    std::vector<ColumnMeaning> meanings;
};

ColumnLine readColumnLine(std::string_view line);

/// The first columns that hold the named axes of a kind; empty if one is missing.
std::vector<size_t> axisColumns(const ColumnLine& line, SensorKind kind, std::string_view axes);

/// The column to take the times of a kind from: its own, else one whose unit is said, else the
/// first one. None if there is none.
std::optional<size_t> timeColumn(const ColumnLine& line, SensorKind kind);

}  // namespace framehold
