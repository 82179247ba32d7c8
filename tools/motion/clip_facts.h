#pragma once

#include "motion/axis_mapping.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// What a clip.json says of a recording.
struct ClipFacts {
    std::optional<std::string> video;   // file name
    std::optional<int> width;           // pixels
    std::optional<double> focalLength;  // pixels, at this width
    std::optional<double> readoutTime;  // seconds
    std::optional<double> timeOffset;   // seconds, added to a frame's timestamp
    std::optional<AxisMapping> axes;
    std::optional<Vec3> gravityHint;  // m/s^2 in device axes, at the start
    std::optional<std::string> motionLog;
    std::vector<double> frameTimes;     // seconds; empty if there is no frames.csv
    std::vector<std::string> warnings;  // of keys that look like misspelt ones
};

/// Reads a clip.json (keys video, width, focal_px, readout_s, time_offset_s, axes, gravity_hint_mps2,
/// imu.file) and, if it stands beside it, frames.csv (columns frame,timestamp_s). All keys are
/// optional. Throws FileError.
ClipFacts readClipFacts(const std::string& path);

}  // namespace framehold
