#pragma once

#include "clip/clip_options.h"
#include "zpr_framehold.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Everything that is decided about a clip before its frames are read.
struct ClipSettings {
    Engine engine = Engine::kLive;
    CameraSettings camera;
    FieldOfView view;  // of the frames that the engine gets
    int sensorMask = 0;
    int motionType = 0;  // ZPR_SENSOR_...: of rates or orientations, whatever is used
    int gravityType =
        0;  // likewise of gravity; neither orientations nor the offline engine need it
    std::optional<Setting<Vec3>> gravity;  // m/s^2 in device axes, one sample; none: as logged
    double gravityRate = 0.0;              // logged samples per second after the first one
    double largestSampleRate = 0.0;        // per second, that the library holds with this delay
    PictureSize input;                     // of the frames that the engine gets
    PictureSize output;                    // of those that it gives back
    int crop = 0;                          // percent, or kAutoCrop
    bool zooms = false;                    // shows more than the crop where the path leaves room
    bool straightens = false;              // shows straight lines as such
    int smoothing = 0;                     // the strongest, if it is chosen for every frame
    bool choosesSmoothing = false;         // for every frame; the live engine alone
    int delay = 0;                         // frames; the offline engine has none
    double horizon = 0.0;                  // percent of the roll that the offline engine levels
    std::vector<std::string> warnings;

    /// True for a log of orientations; false for one of rates, or none.
    bool feedsOrientations() const { return motionType != 0 && gravityType == 0; }
};

/// Decides on everything before the run. found: by a calibration with the clip.
/// Throws std::runtime_error for what cannot be done, and as resolveCamera.
ClipSettings resolveSettings(const ClipOptions& options, const ClipInputs& clip,
                             const ClipMetadata& found = {});

/// Parameters of the library; times on the frames' clock.
ZPR_Param paramOf(const ClipSettings& settings);

}  // namespace framehold
