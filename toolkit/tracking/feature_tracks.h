#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace framehold {

/// Position of a feature in a frame and in the next one, in pixels of the video, x to the right and
/// y down; (0, 0) is the centre of the first pixel.
struct FeatureMotion {
    float fromX;
    float fromY;
    float toX;
    float toY;
};

/// Feature motions between all consecutive frames of a video.
struct FeatureTracks {
    int width = 0;
    int height = 0;
    std::vector<double> frameTimes;  // seconds, the video's own timestamps
    /// motions[i]: from frame i to frame i + 1; empty where nothing could be tracked.
    std::vector<std::vector<FeatureMotion>> motions;
};

struct TrackSettings {
    int maxFeatures = 500;  // for each pair of frames
    int maxFrames = 0;      // from the first one; 0: all
    /// Largest distance in pixels, of a feature tracked forward and back, from where it was.
    double maxRoundTripError = 0.3;
};

/// Finds corners in each frame, spread over the picture, and tracks them into the next one.
/// `onFrame` is called after each frame. Throws MediaError.
FeatureTracks trackFeatures(const std::string& video, const TrackSettings& settings,
                            const std::function<void()>& onFrame = {});

}  // namespace framehold
