#pragma once

#include "clip/clip_options.h"
#include "recording/clip_inputs.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Options of `framehold stabilize` for one clip.
struct StabilizeOptions {
    ClipFiles files;
    std::string engineName;     // the user's choice by name; empty: see planBatch
    std::string output;         // empty: beside the video
    bool findsUnknown = false;  // calibrates with the clip itself first
    bool force = false;         // goes on where the motion log would make the clip shakier
    ClipOptions clip;

    // Of the result's coding, see VideoSettings.
    std::string encoder;
    std::string pixelFormat;
    std::optional<int> quality;
    std::string preset;
    std::vector<std::string> encoderOptions;  // KEY=VALUE
    bool sideBySide = false;                  // the source beside the result
    std::string session;                      // file to record the session to; empty: none
    std::string exportPath;                   // file for the path's table; empty: none
    std::string saveRun;                      // file for the run's record; empty: none
    std::string report;                       // file for the page that shows the run; empty: none
    bool overwrites = false;                  // results that are there
    bool takesResults = false;                // stabilizes what is a result already
    bool quiet = false;
};

}  // namespace framehold
