#pragma once

#include "motion/motion_log.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace framehold {

/// True for a log of a gyroscope or an accelerometer alone.
bool lacksSensor(const MotionLog& log);

/// Reads a file as a log; none if it is too large, or one too many. Throws FileError.
using ReadLog = std::function<std::optional<MotionLog>(const std::filesystem::path&)>;

/// Adds the other sensor to a log that lacks one, see readMotionLog. Where several files fit, or some
/// are not read, a note says so. path: of the log. files: beside it, of its extension. Throws FileError
/// if the file of the right name is broken.
void addOtherSensor(const std::filesystem::path& path,
                    const std::vector<std::filesystem::path>& files, const ReadLog& readLog,
                    MotionLog& log);

}  // namespace framehold
