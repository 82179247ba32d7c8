#pragma once

#include "media/telemetry_track.h"
#include "motion/motion_log.h"

#include <string>
#include <vector>

namespace framehold {

/// Reads camera motion metadata (CAMM). A packet holds, in little-endian order, two reserved bytes,
/// two of type and what belongs to the type:
///   0  orientation as an angle-axis vector in rad, camera to world
///   1  exposure time and rolling-shutter readout in ns; the readout is used
///   2  angular rate in rad/s
///   3  acceleration in m/s^2
///   4 to 7 (positions, magnetic field) are passed over
/// Readings have their packet's time. Axes are taken for the device's.
/// name: of the file. Throws FileError with the packet and the type.
MotionLog parseCamm(const std::string& name, const std::vector<TelemetryPacket>& packets);

}  // namespace framehold
