#pragma once

#include "motion/motion_log.h"

#include <string>
#include <string_view>

namespace framehold {

/// Whether the first line is that of a .gcsv motion log.
bool detectGcsv(std::string_view content);

/// Reads the open .gcsv motion-log format, versions 1.0 to 1.3: a first line "CAMERA IMU LOG" or
/// "GYROFLOW IMU LOG", header lines "key,value", a line of column names starting with t,gx,gy,gz
/// and optionally ax,ay,az, and rows of numbers. Used keys:
///   orientation              letters as AxisMapping::fromLetters takes them, XYZ if missing
///   tscale                   seconds of a unit of t, 1 if missing
///   gscale                   rad/s of a unit of gx, gy, gz, 1 if missing
///   ascale                   g of a unit of ax, ay, az, 1 if missing
///   frame_readout_time       milliseconds
///   frame_readout_direction  0 down, 1 up, 2 to the left, 3 to the right
/// The other keys of the format (version, id, note, fwversion, timestamp, vendor, videofilename,
/// lensprofile, lens_info, mscale) are handed on as they are; unknown ones are noted. Magnetic
/// columns are not read.
/// name: of the file, for messages. Throws FileError with the line and the field.
MotionLog parseGcsv(const std::string& name, std::string_view content);

}  // namespace framehold
