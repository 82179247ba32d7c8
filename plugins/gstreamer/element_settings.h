#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace framehold {

/// Clocks that frames can be timed on to find the samples that belong to them.
enum class FrameClock {
    kAuto,         // stream time with a log, else running time
    kRunningTime,  // since the pipeline plays
    kStreamTime,   // place in the medium
    kPipelineClock,
};

constexpr int kAutoSmoothing = 0;   // the level is chosen for every frame
constexpr unsigned kAutoMask = 0;   // types that come are enabled
constexpr int kLargestDelay = 255;  // frames, that the smoothing policy looks back

/// Properties of the element. What is not set is taken from the clip-file, then from a table of
/// frames, then from the motion log, then from a default.
struct ElementSettings {
    std::optional<double> fieldOfView;  // degrees
    int fieldOfViewMode = 1;            // ZPR_FOV_WIDTH, _HEIGHT or _DIAGONAL
    std::optional<double> focalLength;  // pixels
    std::optional<double> readoutTime;  // seconds
    std::optional<double> timeOffset;   // seconds
    std::string axes;                   // letters, or empty
    std::string motionFile;
    std::string clipFile;
    bool motionFromVideo = false;
    unsigned sensorMask = kAutoMask;
    int crop = 80;  // percent
    int smoothing = kAutoSmoothing;
    int delay = 30;  // frames
    FrameClock frameClock = FrameClock::kAuto;
    uint64_t maxWait = 100'000'000;  // nanoseconds
    uint64_t sensorDelay = 0;        // nanoseconds
    bool qos = true;
};

}  // namespace framehold
