#pragma once

#include "cli/lens_options.h"
#include "recording/camera_settings.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Options that describe a camera and its clock. Those not given are taken from elsewhere.
struct CameraOptions {
    std::optional<double> focalLength;  // pixels
    std::optional<double> fieldOfView;  // degrees
    std::string fieldOfViewAcross = "width";
    LensOptions lens;
    std::optional<double> readoutTime;  // seconds
    std::optional<double> timeOffset;   // seconds
    std::optional<std::string> axes;    // letters
};

/// Takes each setting from the first source that has it, see knownCamera.
/// Throws std::invalid_argument for letters that are no axes.
CameraSettings resolveCamera(const CameraOptions& options, const ClipInputs& clip,
                             const ClipMetadata& found = {});

/// Sentences that name each value and its source; none for a field of view that is a default.
std::vector<std::string> describe(const CameraSettings& camera);

/// "width", "height" or "diagonal"; mode: one of these.
const char* sideOf(int fieldOfViewMode);

}  // namespace framehold
