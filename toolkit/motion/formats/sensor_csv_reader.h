#pragma once

#include "motion/motion_log.h"

#include <string>
#include <string_view>

namespace framehold {

/// Whether the first line names a column of time and three axes of a gyroscope or accelerometer.
bool detectSensorCsv(std::string_view content);

/// Reads the tables that logger apps for Android and iPhones write: columns in any order, told by
/// their names (see meaningOf), separated by commas, semicolons or tabs; both sensors or one of
/// them. Where columns are named x, y, z only, the file's name tells the sensor, else the size of
/// the values. Units that are not named are told by size: of time as in likelyTimeUnit, of gravity
/// as g or m/s^2. Rates are in rad/s unless degrees are named.
/// name: of the file. Throws FileError with the line and the column.
MotionLog parseSensorCsv(const std::string& name, std::string_view content);

}  // namespace framehold
