#pragma once

#include "media/telemetry_track.h"
#include "motion/motion_log.h"

#include <string>
#include <vector>

namespace framehold {

/// Reads the GYRO and ACCL streams of GPMF telemetry, of the first device that has them.
///
/// A packet holds key-length-value records in big-endian order: 4 letters of key, a letter of type
/// (0: records inside), a byte of size and two of count of its elements, padded to 4 bytes. DEVC
/// holds STRM, and that the samples with what applies to them: SCAL (divisors), SIUN (unit), TSMP
/// (number of samples so far) and the axes. Without GYRO, the camera's own orientations, CORI, are
/// read, with what is down by GRAV; without ACCL, GRAV. What IORI says of the pictures is noted.
///
/// Times: a line through the packets' times over TSMP, or over the number of samples that have come
/// if it is missing, so that the samples have equal steps and lost ones leave a gap.
/// Axes: the channels are put in the order Z, X, Y of the camera by MTRX, whose result is in the order
/// of ORIO, or by ORIN; without either they are taken to be in it, and a note says so. That order stands for device x, y, z, with the
/// picture's top at +x as on a phone.
/// name: of the file. Throws FileError with the packet and the key.
MotionLog parseGpmf(const std::string& name, const std::vector<TelemetryPacket>& packets);

/// Reads camera motion metadata (CAMM). A packet holds, in little-endian order, two reserved bytes,
/// two of type and what belongs to the type:
///   0  orientation as an angle-axis vector in rad, camera to world
///   1  exposure time and rolling-shutter readout of a frame, in ns
///   2  angular rate in rad/s
///   3  acceleration in m/s^2
///   4 to 7 (positions, places by satellite, magnetic field) are passed over; a note says so
/// Readings have their packet's time. Axes are taken for the device's.
/// name: of the file. Throws FileError with the packet and the type.
MotionLog parseCamm(const std::string& name, const std::vector<TelemetryPacket>& packets);

/// Reads timed metadata of type application/gyro (rad/s) and application/accel (m/s^2): each packet
/// holds readings of three floats in big-endian order, which are spread evenly over its duration.
/// Axes are taken for the device's. name: of the file. Throws FileError with the packet.
MotionLog parseMett(const std::string& name, const std::vector<TelemetryPacket>& packets);

}  // namespace framehold
