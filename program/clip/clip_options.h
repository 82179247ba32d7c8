#pragma once

#include "cli/picture_size.h"
#include "clip/camera_options.h"

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Ways to stabilize a clip.
enum class Engine {
    kLive,     // the library, frame by frame as on a phone
    kOffline,  // with the whole clip known
};

/// Name for the user: "live", "offline".
const char* nameOf(Engine engine);

/// A crop that the offline engine chooses.
constexpr int kAutoCrop = 0;

/// In place of a smoothing: the engine chooses it.
constexpr int kAutoSmoothing = 0;

/// Options of stabilizing one clip.
struct ClipOptions {
    Engine engine = Engine::kLive;
    CameraOptions camera;
    std::optional<int> sensorMask;
    std::vector<double> gravity;  // three numbers, or empty
    double gravityRate = 0.0;     // samples per second after the first one
    std::optional<PictureSize> outputSize;
    int crop = 80;                   // percent, or kAutoCrop
    std::string zoom = "fixed";      // or "dynamic"
    bool straightens = false;        // shows straight lines as such
    int smoothing = kAutoSmoothing;  // 1 to 10, or as the engine finds best
    std::optional<int> delay;        // frames; none: 30
    double horizon = 0.0;            // percent of the roll that is levelled
};

}  // namespace framehold
