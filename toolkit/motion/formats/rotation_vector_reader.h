#pragma once

#include "motion/motion_log.h"

#include <string>
#include <string_view>

namespace framehold {

/// Whether the first line names a column of time and a quaternion's x, y and z, and no rates.
bool detectRotationVector(std::string_view content);

/// Reads logs of a phone's rotation vector or game rotation vector: a column of time and the
/// quaternion's x, y, z and w by their names (qx, "rotation_vector_x", ..., or bare ones in a file
/// that is named so), in any order. Where w is missing it is the one that makes the length 1, not
/// negative. Device to world, the world's z up, as Android has it.
/// name: of the file. Throws FileError with the line and the column.
MotionLog parseRotationVector(const std::string& name, std::string_view content);

}  // namespace framehold
