#pragma once

#include "report/run_record.h"

#include <string>

namespace framehold {

/// Writes a run's frames as CSV: frame, time_s (first row, on the motion log's clock), the measured
/// and the corrected orientation from device to world as unit quaternions (w, x, y, z), the angle
/// between the two in degrees, the share of the margin that is used, and the milliseconds that the
/// library took. Fields of frames without an orientation are empty. Throws std::runtime_error; the
/// file appears under its name when it is complete.
void writePathTable(const std::string& path, const RunRecord& run);

}  // namespace framehold
