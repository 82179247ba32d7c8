#pragma once

#include "media/telemetry_track.h"
#include "motion/motion_log.h"

#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Whether a packet is a GPMF one: a device record.
bool detectGpmf(std::string_view packet);

/// Reads the GYRO and ACCL streams of GPMF telemetry, of the first device that has them.
///
/// A packet holds key-length-value records in big-endian order: 4 letters of key, a letter of type
/// (0: records inside), a byte of size and two of count of its elements, padded to 4 bytes. DEVC
/// holds STRM, and that the samples with what applies to them: SCAL (divisors), SIUN (unit), TSMP
/// (number of samples so far) and the axes.
///
/// Times: a line through the packets' times over TSMP, or over the number of samples that have come
/// if it is missing, so that the samples have equal steps and lost ones leave a gap.
/// Axes: the channels are put in the order Z, X, Y of the camera by MTRX, or by ORIN; without either
/// they are taken to be in it, and a note says so. That order stands for device x, y, z, with the
/// picture's top at +x as on a phone.
/// name: of the file. Throws FileError with the packet and the key.
MotionLog parseGpmf(const std::string& name, const std::vector<TelemetryPacket>& packets);

}  // namespace framehold
