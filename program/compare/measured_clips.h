#pragma once

#include "measures/clip_measures.h"

#include <string>
#include <vector>

namespace framehold {

struct MeasureSettings {
    double cutoff = 1.0;  // Hz; slower motion is not shake
    int delay = 0;        // frames by which the stabilized clips are late
    bool quiet = false;   // no progress bar
};

/// Measures an original, the first one, and clips made from it. Throws Interrupted, MediaError and
/// std::runtime_error.
std::vector<ClipMeasures> measureClips(const std::vector<std::string>& videos,
                                       const MeasureSettings& settings);

/// Options of `framehold measure`.
struct MeasureOptions {
    std::vector<std::string> videos;  // the original, then clips made from it
    MeasureSettings settings;
    bool json = false;
    bool overwrites = false;
    std::string csv;  // file for the path of every clip's picture; empty: none
};

/// Measures clips and prints a table or JSON. Throws std::exception.
void printMeasures(const MeasureOptions& options);

}  // namespace framehold
