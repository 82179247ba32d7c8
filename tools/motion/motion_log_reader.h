#pragma once

#include "motion/motion_log.h"

#include <string>

namespace framehold {

/// Reads a motion log of any format that is known, told by its content. Throws FileError.
MotionLog readMotionLog(const std::string& path);

}  // namespace framehold
