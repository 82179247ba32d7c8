#pragma once

#include "calibration/calibration.h"
#include "clip/camera_options.h"
#include "common/progress.h"

#include <string>

namespace framehold {

/// Values that options and metadata have of a camera, which need not be found.
CalibrationSettings givenOf(const CameraSettings& camera, const VideoProperties& video);

/// Tracks features through at most `seconds` of a clip, which must have a log. Throws MediaError, or
/// std::runtime_error for a video with more frames than frame times.
CalibrationClip trackClip(const ClipInputs& clip, double seconds, const ProgressTarget& progress);

/// Values that a calibration found for one of its clips, if they can be used.
ClipMetadata metadataOf(const Calibration& calibration, size_t clip);

/// Metadata that a calibration with one clip finds.
struct FoundMetadata {
    ClipMetadata ofClip;    // what can be used
    ClipMetadata ofCamera;  // what is well determined and holds for other clips of the camera, too
};

/// Finds what neither options nor clip.json say of the camera and its clock, from the first seconds
/// of the clip, which must have a log; a lens only if the engine is one that knows lenses. What it
/// cannot determine is missing, and a warning names it. Throws as `trackClip` and `calibrate` do.
FoundMetadata findUnknownMetadata(const CameraSettings& camera, Engine engine,
                                  const ClipInputs& clip, const ProgressTarget& progress);

}  // namespace framehold
