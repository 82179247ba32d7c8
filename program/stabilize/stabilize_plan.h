#pragma once

#include "clip/camera_settings.h"
#include "clip/clip_inputs.h"
#include "zpr_framehold.h"

#include <string>
#include <vector>

namespace framehold {

/// Parameters and motion for one clip, made of options, metadata and log in this order of
/// precedence; on the log's clock.
struct StabilizePlan {
    ZPR_Param param;
    std::string motionLog;                // file
    std::string axes;                     // letters, as AxisMapping::fromLetters takes them
    std::vector<ZPR_SensorData> samples;  // in device axes and in order of time; gravity first
    std::vector<double> frameTimes;       // seconds; empty: take the video's timestamps
    std::vector<std::string> notes;       // what was chosen, for the user
    std::vector<std::string> warnings;
};

/// found: what the clip itself was found to tell, for what neither options nor metadata says.
/// Throws std::runtime_error, with file and field where it can.
StabilizePlan makePlan(const ClipOptions& options, const ClipInputs& clip,
                       const ClipMetadata& found = {});

/// Samples per second that an instance can hold without losing one it needs.
double largestSampleRate(int delayFrames, double framesPerSecond, double readoutTime);

}  // namespace framehold
