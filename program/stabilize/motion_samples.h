#pragma once

#include "clip/clip_settings.h"
#include "zpr_framehold.h"

#include <string>
#include <vector>

namespace framehold {

/// A motion log as the library gets it.
struct MotionSamples {
    std::vector<ZPR_SensorData> samples;  // in device axes and in order of time; gravity first
    std::vector<std::string> notes;       // what the log is and what was made of it, for the user
};

/// Sentences that say what a clip's log is and what its axes are.
std::vector<std::string> describeMotion(const ClipInputs& clip, const ClipSettings& settings);

/// Puts a clip's log on the frames' clock and in device axes, thins it and makes up gravity, as the
/// settings say. Throws std::invalid_argument for orientations that the axes mirror.
MotionSamples prepareMotion(const ClipInputs& clip, const ClipSettings& settings);

}  // namespace framehold
