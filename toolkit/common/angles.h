#pragma once

namespace framehold {

constexpr double kPi = 3.14159265358979323846;

constexpr double toDegrees(double radians) { return radians * (180.0 / kPi); }
constexpr double toRadians(double degrees) { return degrees * (kPi / 180.0); }

}  // namespace framehold
