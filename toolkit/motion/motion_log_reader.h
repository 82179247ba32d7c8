#pragma once

#include "motion/log_archive.h"
#include "motion/motion_log.h"

#include <optional>
#include <string>
#include <string_view>

namespace framehold {

/// Reads a motion log of any known format, detected by its content: a text log, one in a zip archive,
/// or the telemetry in a video file. A text log that holds a gyroscope or an accelerometer alone is completed from the
/// file beside it that holds the other sensor: of the same extension, in time with it, and with a
/// name that differs in the sensor's word only ("walk_gyro.csv", "walk_accel.csv"); else from the
/// only file beside it that fits by its content.
/// Throws FileError, also if the file of the right name is broken or there are neither rates nor
/// orientations; MediaError for a video that cannot be read.
MotionLog readMotionLog(const std::string& path);

/// True for files that are neither text nor another log, as videos are. A pipe is taken for text.
bool isVideoFile(const std::string& path);

/// Reads the telemetry in a video file; none if it has none. Throws FileError and MediaError.
std::optional<MotionLog> readVideoTelemetry(const std::string& path);

/// Reads a text log or a session of messages, its format detected by its content; it may hold one
/// sensor only.
/// name: of the file. Throws FileError with line and field; for an unknown format with its first
/// line and the formats that are known.
MotionLog parseTextLog(const std::string& name, std::string_view content);

/// Reads the log in an archive: the only one of a gyroscope by its name, else the only file that is
/// a log; with the accelerometer's in the same folder, as readMotionLog has it. Notes say what was
/// taken and what else is there that cannot be used. Throws FileError.
MotionLog readArchivedLog(LogArchive& archive);

}  // namespace framehold
