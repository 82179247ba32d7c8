#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace framehold {

/// Where one feature is in a frame and in the next one, in pixels of the video; (0, 0) is the
/// centre of the first pixel.
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
    int firstFrame = 0;
    int maxFrames = 0;          // 0: to the end
    double maxRoundTrip = 0.3;  // pixels that tracking there and back may miss by
};

/// Finds corners in each frame, spread over the picture, and tracks them into the next one.
/// `onFrame` is called for each frame. Throws MediaError.
FeatureTracks trackFeatures(const std::string& video, const TrackSettings& settings,
                            const std::function<void()>& onFrame = {});

}  // namespace framehold
