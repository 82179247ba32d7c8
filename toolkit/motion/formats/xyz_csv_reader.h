#pragma once

#include "motion/motion_log.h"

#include <string>
#include <string_view>

namespace framehold {

/// Whether the first line is "x,y,z,timestamp_ns", or four numbers of which the last one is whole
/// and large enough for nanoseconds.
bool detectXyzCsv(std::string_view content);

/// Reads one file of the loggers that write gyroscope, accelerometer and magnetometer into a file
/// each, rows of x,y,z,timestamp_ns with or without a line of column names; rad/s and m/s^2. The
/// file's name tells the sensor, else the size of the values.
/// name: of the file. Throws FileError with the line and the column.
MotionLog parseXyzCsv(const std::string& name, std::string_view content);

}  // namespace framehold
