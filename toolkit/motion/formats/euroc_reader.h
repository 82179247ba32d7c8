#pragma once

#include "motion/motion_log.h"

#include <string>
#include <string_view>

namespace framehold {

/// Whether the first line is that of an EuRoC imu0/data.csv.
bool detectEuroc(std::string_view content);

/// Reads the IMU log of data sets in the EuRoC layout: a first line "#timestamp [ns],w_RS_S_x
/// [rad s^-1],..." and rows of nanoseconds, three rates in rad/s and three accelerations in m/s^2,
/// in the sensor's own axes.
/// name: of the file. Throws FileError with the line and the column.
MotionLog parseEuroc(const std::string& name, std::string_view content);

}  // namespace framehold
