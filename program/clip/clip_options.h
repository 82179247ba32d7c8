#pragma once

#include "cli/picture_size.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// What the user says of a camera and its clock. What is not given is taken from elsewhere.
struct CameraOptions {
    std::optional<double> focalLength;  // pixels
    std::optional<double> fieldOfView;  // degrees
    std::string fieldOfViewAcross = "width";
    std::optional<double> readoutTime;  // seconds
    std::optional<double> timeOffset;   // seconds
    std::optional<std::string> axes;    // letters
};

/// What the user says of how a clip is to be stabilized.
struct ClipOptions {
    CameraOptions camera;
    std::optional<int> sensorMask;
    std::vector<double> gravity;  // three numbers, or empty
    double gravityRate = 0.0;     // samples per second after the first one
    std::optional<PictureSize> outputSize;
    int crop = 80;
    int smoothing = 9;
    int delay = 30;
};

}  // namespace framehold
