#pragma once

#include "measures/clip_measures.h"

#include <string>

namespace framehold {

/// Few seconds of an original and of what was made of it, side by side in one video.
struct PlayingClip {
    std::string video;  // "data:" URL; empty: none could be made
    std::string lack;   // why there is none
    int width = 0;      // pixels
    int height = 0;
    double split = 0.5;    // of the width, that the original takes
    double start = 0.0;    // seconds since the first frame
    double seconds = 0.0;  // length
};

/// Seconds since the first frame where the part of this length begins that shakes most.
double shakiestStart(const ClipMeasures& clip, double seconds);

/// Cuts the part of `start` and `seconds` out of both videos; frames are paired as in
/// croppingRatio, and are upright as the original says. Where this does not work, the result says why. Throws Interrupted.
PlayingClip makePlayingClip(const std::string& original, const std::string& stabilized, int delay,
                            double start, double seconds);

}  // namespace framehold
