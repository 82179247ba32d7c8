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

/// Whether the first line is that of an EuRoC imu0/data.csv.
bool detectEuroc(std::string_view content);

/// Reads the IMU log of data sets in the EuRoC layout: a first line "#timestamp [ns],w_RS_S_x
/// [rad s^-1],..." and rows of nanoseconds, three rates in rad/s and three accelerations in m/s^2,
/// in the sensor's own axes.
/// name: of the file. Throws FileError with the line and the column.
MotionLog parseEuroc(const std::string& name, std::string_view content);

/// Whether the first line is "x,y,z,timestamp_ns", or four numbers of which the last one is whole
/// and large enough for nanoseconds.
bool detectXyzCsv(std::string_view content);

/// Reads one file of the loggers that write gyroscope, accelerometer and magnetometer into a file
/// each, rows of x,y,z,timestamp_ns with or without a line of column names; rad/s and m/s^2. The
/// file's name tells the sensor, else the size of the values.
/// name: of the file. Throws FileError with the line and the column.
MotionLog parseXyzCsv(const std::string& name, std::string_view content);

/// Whether the first line names a column of time and a quaternion's x, y and z, and no rates.
bool detectRotationVector(std::string_view content);

/// Reads logs of a phone's rotation vector or game rotation vector: a column of time and the
/// quaternion's x, y, z and w by their names (qx, "rotation_vector_x", ..., or bare ones in a file
/// that is named so), in any order. Where w is missing it is the one that makes the length 1, not
/// negative. Device to world, the world's z up, as Android has it.
/// name: of the file. Throws FileError with the line and the column.
MotionLog parseRotationVector(const std::string& name, std::string_view content);

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
