#pragma once

#include "motion/column_names.h"
#include "motion/motion_log.h"

#include <string>
#include <vector>

namespace framehold {

/// The length of the middle one of the samples' values, by length.
double medianLength(const std::vector<MotionSample>& samples);

/// Puts samples of a sensor that no column names where they belong: by the words in the file's
/// name, else by the size of the values. Throws FileError if the name is that of another sensor.
void placeUnnamed(const std::string& file, std::vector<MotionSample> samples, MotionLog& log);

/// Brings gravity whose unit is not said to m/s^2, by its size.
void applyLikelyGravityUnit(MotionLog& log);

}  // namespace framehold
