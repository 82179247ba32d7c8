#pragma once

#include "motion/motion_log.h"

#include <string>

namespace framehold {

/// Reads the open .gcsv motion-log format: a first line "CAMERA IMU LOG" or "GYROFLOW IMU LOG",
/// header lines "key,value", a line of column names starting with t,gx,gy,gz and optionally
/// ax,ay,az, and rows of numbers. Used keys:
///   orientation         letters as AxisMapping::fromLetters takes them, XYZ if missing
///   tscale              seconds of a unit of t
///   gscale              rad/s of a unit of gx, gy, gz
///   ascale              g of a unit of ax, ay, az
///   frame_readout_time  milliseconds
/// Throws FileError with the line and the field.
MotionLog readGcsv(const std::string& path);

}  // namespace framehold
