#pragma once

#include "calibration/calibration.h"
#include "clip/clip_options.h"

#include <string>
#include <vector>

namespace framehold {

/// Options of `framehold calibrate`.
struct CalibrateOptions {
    std::vector<std::string> videos;
    std::vector<std::string> motions;  // one for each video, or none
    std::string output;                // empty: beside the first video
    std::string snippet;               // file for C code; empty: none
    CameraOptions known;               // what needs not be found
    double range = CalibrationSettings().range;
    double seconds = 60.0;  // of each clip that are looked at
    bool overwrites = false;
    bool allowsOutsidePaths = false;  // a clip.json may name files outside of its folder
    bool json = false;
    bool quiet = false;
};

/// Calibrates a camera with clips of it, prints what was found and writes a clip.json.
/// Throws std::exception.
void calibrateCamera(const CalibrateOptions& options);

}  // namespace framehold
