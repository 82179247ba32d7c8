#include "motion/motion_log_reader.h"

#include "motion/gcsv_reader.h"

namespace framehold {

MotionLog readMotionLog(const std::string& path) { return readGcsv(path); }

}  // namespace framehold
