#pragma once

#include "bench/course.h"
#include "bench/race.h"
#include "warp/row_kernels.h"

#include <string>
#include <vector>

namespace framehold::bench {

/// Contenders of a race over `course`, which must outlive them.

/// Copies the frame, on as many threads as the course has, which wait for it.
Contender makeCopy(Course& course);

/// Fixed-point maps made beforehand; bilinear in both planes.
Contender makeFixedRemap(Course& course);

/// Sets OpenCV's threads to the course's.
void addOpencvContenders(Course& course, std::vector<Contender>& out);

/// Its transform runs on one thread, whatever the course has.
Contender makeVidstab(Course& course);

/// The warper with these kernels.
Contender makeWarper(Course& course, const std::string& name, const std::vector<Motion>& motions,
                     const qlx::zpr_framehold::RowKernels& kernels);

/// Every kernel level that the machine has, under both kinds of motion.
void addKernelContenders(Course& course, std::vector<Contender>& out);

}  // namespace framehold::bench
