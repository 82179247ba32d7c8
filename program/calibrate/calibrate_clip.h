#pragma once

#include "calibration/calibration.h"
#include "motion/clip_metadata.h"
#include "stabilize/stabilize_options.h"

#include <string>

namespace framehold {

/// A video to calibrate with.
struct CalibrationSource {
    std::string video;
    std::string motion;      // log; may be the video, for its telemetry
    std::string framesFile;  // with the frames' times; empty: the video's own timestamps
};

/// Reads the log and tracks features through at most `seconds` of the video. Throws FileError,
/// MediaError, or std::runtime_error for a video with other frames than frame times.
CalibrationClip loadClip(const CalibrationSource& source, double seconds, bool showProgress);

/// Takes the frames' times from elsewhere; the clip may have fewer frames. Throws as above.
void setFrameTimes(CalibrationClip& clip, const std::vector<double>& times);

/// What a calibration found of one of its clips: only what can be used.
ClipMetadata metadataOf(const Calibration& calibration, size_t clip);

/// Finds what neither the options of a run nor its clip.json say of the camera and its clock, from
/// the first seconds of the clip. What it cannot tell is missing, and a warning says so.
/// Throws as `loadClip` and `calibrate` do.
ClipMetadata findUnknownMetadata(const StabilizeOptions& options, bool showProgress);

}  // namespace framehold
