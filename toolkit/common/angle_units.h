#pragma once

namespace framehold {

/// Degrees in a radian.
constexpr double kDegrees = 180.0 / 3.14159265358979323846;

}  // namespace framehold
