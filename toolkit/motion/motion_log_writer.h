#pragma once

#include "media/telemetry_track.h"
#include "motion/motion_log.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace framehold {

/// Formats in which logs are written.
enum class LogFormat {
    kGcsv,  // .gcsv 1.3
    kCsv,   // a table with units in the names of its columns
    kCamm,  // CAMM track of a video file
};

/// Writes a log in its logged axes, as a .gcsv 1.3 or a table of comma-separated values that
/// readMotionLog reads back to the same numbers. A .gcsv has one time for both sensors: gravity is
/// interpolated at the rates' times, and orientations that have no rates beside them become rates.
/// format: kGcsv or kCsv. advance: called after each row.
void writeTextLog(const MotionLog& log, LogFormat format, std::ostream& out,
                  const std::function<void()>& advance);

/// Packets of a CAMM track, a reading in each, in order of time. Values become floats.
/// timeOffset: seconds that the log's clock is ahead of the track's.
std::vector<TelemetryPacket> cammPackets(const MotionLog& log, double timeOffset);

/// Parts of a log that a format cannot hold, or not as they are, each a sentence for the user.
std::vector<std::string> lossesOf(const MotionLog& log, LogFormat format);

}  // namespace framehold
