#pragma once

#include "motion/motion_log.h"

#include <string>

namespace framehold {

/// Completes a log that holds a gyroscope or an accelerometer alone from the file beside it that
/// holds the other one: of the same extension, in time with it, and with a name that differs in the
/// sensor's word only ("walk_gyro.csv", "walk_accel.csv"); else the only file beside it that would
/// do by its content. Nothing is changed, but a note added, where several would do.
/// path: the log's file. Throws FileError if the file with the right name is broken.
void addSibling(const std::string& path, MotionLog& log);

}  // namespace framehold
