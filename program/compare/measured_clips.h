#pragma once

#include "measures/clip_measures.h"

#include <string>
#include <vector>

namespace framehold {

struct MeasureSettings {
    double cutoff = 1.0;  // Hz; slower motion is not shake
    int delay = 0;        // frames by which the stabilized clips are late
    bool progress = true;
};

/// Measures an original, the first one, and clips made from it. Throws Interrupted, MediaError and
/// std::runtime_error.
std::vector<ClipMeasures> measureClips(const std::vector<std::string>& videos,
                                       const MeasureSettings& settings);

}  // namespace framehold
