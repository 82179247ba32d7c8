#pragma once

#include "motion/motion_log.h"

#include <string>
#include <string_view>

// Formats of motion logs in files of their own, each in a source file of its name. For all of them:
// detect: true if the first line of `content` that is not blank is one of the format.
// parse: reads a log. name: of the file, for messages and for what the columns do not say. Throws
// FileError with the line and the column.

namespace framehold {

/// The open .gcsv motion-log format, versions 1.0 to 1.3: a first line "CAMERA IMU LOG" or
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
bool detectGcsv(std::string_view content);
MotionLog parseGcsv(const std::string& name, std::string_view content);

/// The IMU log of data sets in the EuRoC layout (imu0/data.csv): a first line "#timestamp
/// [ns],w_RS_S_x [rad s^-1],..." and rows of nanoseconds, three rates in rad/s and three
/// accelerations in m/s^2, in the sensor's own axes.
bool detectEuroc(std::string_view content);
MotionLog parseEuroc(const std::string& name, std::string_view content);

/// One of the files of loggers that write gyroscope, accelerometer and magnetometer into a file
/// each: rows of x,y,z,timestamp_ns, with or without a line of these names; rad/s and m/s^2. The
/// sensor is found by the file's name, else by the size of the values. Detected without a line of
/// names by four numbers of which the last one is whole and large enough for nanoseconds.
bool detectXyzCsv(std::string_view content);
MotionLog parseXyzCsv(const std::string& name, std::string_view content);

/// Logs of a phone's rotation vector or game rotation vector: a column of time and the quaternion's
/// x, y, z and w by their names (qx, "rotation_vector_x", ..., or bare ones in a file that is named
/// so), in any order, and no rates. Where w is missing it is the one that makes the length 1, not
/// negative. Device to world, the world's z up, as Android has it.
bool detectRotationVector(std::string_view content);
MotionLog parseRotationVector(const std::string& name, std::string_view content);

/// Tables with one sensor's reading in a row: columns of time, of the sensor's name ("sensor", "type",
/// "name") and of three values ("x", "value_x", "v1"). The sensor is a name such as
/// "accelerometer", or 1 or 4, as Android numbers accelerometer and gyroscope. Other sensors'
/// rows, uncalibrated ones too, are passed over; gravity is read where there is no accelerometer.
bool detectLongRows(std::string_view content);
MotionLog parseLongRows(const std::string& name, std::string_view content);

/// Text logs of flight controllers: lines "key","value", of which acc_1G (reading at 1 g) and looptime
/// (microseconds) are used, a line of names that starts with loopIteration, and rows with
/// gyroADC[0] to [2] in deg/s and accSmooth[0] to [2] in units of acc_1G. Times are those of the
/// column "time (us)" or "time", else loopIteration times looptime.
bool detectFlightLog(std::string_view content);
MotionLog parseFlightLog(const std::string& name, std::string_view content);

/// Rows of 4, 7 or 10 numbers without names: a time that rises, three axes of one sensor, and maybe
/// three of the other and three of a magnetometer. The sensors are found by the size of their values,
/// one alone by the file's name too; units by size.
bool detectBareRows(std::string_view content);
MotionLog parseBareRows(const std::string& name, std::string_view content);

/// Tables that logger apps for Android and iPhones write: a column of time and three axes of a
/// gyroscope, an accelerometer or both, in any order, found by their names (see meaningOf) and
/// separated by commas, semicolons or tabs. Where columns are named x, y, z only, the sensor is
/// found by the file's name, else by the size of the values. Units that are not named are guessed
/// by size: of time as in likelyTimeUnit, of gravity as g or m/s^2. Rates are in rad/s unless
/// degrees are named.
bool detectSensorCsv(std::string_view content);
MotionLog parseSensorCsv(const std::string& name, std::string_view content);

/// Sessions of phone recorders in the wire format of protocol buffers: readings of both sensors, the
/// metadata of frames and lens shifts, see docs/motion-logs.md for the messages. Detected by the
/// first `kCaptureHead` bytes, in which all must have the right types and ranges. Drift and bias are
/// taken from the readings. Axes are the device's.
constexpr size_t kCaptureHead = 4096;
bool detectCapture(std::string_view content);
MotionLog parseCapture(const std::string& name, std::string_view content);

}  // namespace framehold
