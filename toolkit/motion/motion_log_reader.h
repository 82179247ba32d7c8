#pragma once

#include "motion/motion_log.h"

#include <optional>
#include <string>
#include <string_view>

namespace framehold {

/// Reads a motion log of any format that is known, told by its content: a text log, with the file of
/// the other sensor beside it where the format keeps them apart, or the telemetry in a video file.
/// Throws FileError, or std::exception for a video that cannot be read.
MotionLog readMotionLog(const std::string& path);

/// Whether a file is no text, as videos are.
bool isVideoFile(const std::string& path);

/// Reads the telemetry in a video file; none if it has none. Throws as above.
std::optional<MotionLog> readVideoTelemetry(const std::string& path);

/// Reads a text log, told by its content; it may hold one sensor only.
/// name: of the file. Throws FileError with line and field; of what is not known it says what was
/// seen and which formats are known.
MotionLog parseTextLog(const std::string& name, std::string_view content);

/// Completes a log that holds a gyroscope or an accelerometer alone from the file beside it that
/// holds the other one: of the same extension, in time with it, and with a name that differs in the
/// sensor's word only ("walk_gyro.csv", "walk_accel.csv"); else the only file beside it that would
/// do by its content. Nothing is changed, but a note added, where several would do.
/// path: the log's file. Throws FileError if the file with the right name is broken.
void addSibling(const std::string& path, MotionLog& log);

}  // namespace framehold
