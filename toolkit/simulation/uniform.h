#pragma once

#include <random>

namespace framehold::simulation {

/// A number from 0 up to and without 1; the same on every platform, unlike the standard
/// distributions.
inline double uniform(std::mt19937& random) { return static_cast<double>(random()) / 4294967296.0; }

}  // namespace framehold::simulation
