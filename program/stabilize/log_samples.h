#pragma once

#include "motion/motion_log.h"
#include "zpr_framehold.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace framehold {

/// Puts gravity and rates in order of time, as the types that the mask enables; gravity first.
/// Throws std::runtime_error if it enables none for one of them.
std::vector<ZPR_SensorData> samplesOf(const std::vector<MotionSample>& gravity,
                                      const std::vector<MotionSample>& rates, int32_t sensorMask);

/// The same for orientations.
std::vector<ZPR_SensorData> samplesOf(const std::vector<OrientationSample>& orientations,
                                      int32_t sensorMask);

/// Whether a log's orientations are to be fed, rather than its rates: where there are no rates, or
/// where the mask asks for them.
bool feedsOrientations(const MotionLog& log, std::optional<int> sensorMask);

}  // namespace framehold
