#pragma once

#include "cli/picture_size.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// What the user asks `framehold stabilize` for. Options not given leave it to the clip's metadata,
/// the motion log or a default.
struct StabilizeOptions {
    std::string video;
    std::string output;  // empty: beside the input
    std::string motion;
    std::string clip;

    bool findsUnknown = false;          // calibrates with the clip itself first
    std::optional<double> focalLength;  // pixels
    std::optional<double> fieldOfView;  // degrees
    std::string fieldOfViewAcross = "width";
    std::optional<double> readoutTime;  // seconds
    std::optional<double> timeOffset;   // seconds
    std::optional<int> sensorMask;
    std::optional<std::string> axes;  // letters
    std::vector<double> gravity;      // three numbers, or empty
    double gravityRate = 0.0;         // samples per second after the first one
    std::optional<PictureSize> outputSize;
    int crop = 80;
    int smoothing = 9;
    int delay = 30;

    // Of the result's coding, see VideoSettings.
    std::string encoder;
    std::string pixelFormat;
    std::optional<int> quality;
    std::string preset;
    bool sideBySide = false;  // the source beside the result
    std::string session;      // file to record the session to; empty: none
    std::string exportPath;   // file for the path's table; empty: none
    std::string saveRun;      // file for the run's record; empty: none
    std::string report;       // file for the page that shows the run; empty: none
    bool quiet = false;
};

}  // namespace framehold
