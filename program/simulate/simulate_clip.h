#pragma once

#include "cli/lens_options.h"
#include "cli/picture_size.h"
#include "simulation/camera.h"
#include "simulation/camera_motion.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Options of `framehold simulate`.
struct SimulateOptions {
    std::string folder = "simulated";
    PictureSize size{1280, 720};
    simulation::CameraModel camera;
    LensOptions lens;
    simulation::PathSettings path;
    simulation::SensorSettings sensors;
    double framesPerSecond = 30.0;
    double duration = 6.0;
    double timeOffset = 0.0;
    double clockDrift = 0.0;  // millionths that the log's clock runs faster than the camera's
    std::string axes = "XYZ";
    double noiseDensity = 0.0;                     // rad/s per square root of Hz
    std::vector<double> rateBias;                  // rad/s in device axes; three, or none
    double moving = 0.0;                           // share of the picture
    std::optional<simulation::WalkSettings> walk;  // through a street; none: before a far town
    std::string motion;                            // log to follow; empty: the made-up path
    double from = 1.0;                             // seconds into that log
    std::string metadataFolder;                    // empty: the clip's
    bool overwrites = false;
    bool quiet = false;
};

/// Renders a clip and writes it with its motion log, and apart from them or beside them what is
/// true of it: clip.json, frames.csv, truth.csv, where the camera is and how it is turned at each
/// frame's first row, and steady.csv, the same without shake and steps.
/// Throws std::exception.
void simulateClip(const SimulateOptions& options);

}  // namespace framehold
