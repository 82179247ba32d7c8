#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct AVFrame;

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
    std::vector<std::string> losses{};  // what of the video could not be read, for the user
};

struct TrackSettings {
    int maxFeatures = 500;  // for each pair of frames
    int maxFrames = 0;      // from the first one; 0: all
    int maxWidth = 0;       // pixels; wider pictures are reduced by a whole factor; 0: none are
    /// Largest distance in pixels, of a feature tracked forward and back, from where it was.
    double maxRoundTripError = 0.3;
};

/// Finds corners in each frame, spread over the picture, and tracks them into the next one.
/// `onFrame` is called after each frame. Throws MediaError.
FeatureTracks trackFeatures(const std::string& video, const TrackSettings& settings,
                            const std::function<void()>& onFrame = {});

/// Tracks features through the pictures that it is given.
class FeatureTracker {
public:
    explicit FeatureTracker(const TrackSettings& settings);
    ~FeatureTracker();
    FeatureTracker(const FeatureTracker&) = delete;
    FeatureTracker& operator=(const FeatureTracker&) = delete;

    /// Takes the next frame of one size, with its time in seconds.
    void add(const AVFrame& frame, double time);

    /// The same without keeping anything but the frame. Returns the motions from the frame before;
    /// none if there is none.
    std::vector<FeatureMotion> track(const AVFrame& frame);

    /// Tracks of all frames since the last call. The next frame has none before it.
    FeatureTracks take();

private:
    struct Prepared;

    TrackSettings settings_;
    std::unique_ptr<Prepared> before_;
    FeatureTracks tracks_;
};

/// Which parts of a video are looked at.
struct SampleSettings {
    int windows = 4;         // spread evenly over the video
    double window = 1.5;     // seconds
    double maxPixels = 4e8;  // that are decoded before no window is begun
    TrackSettings tracks{60, 0, 320, 0.3};
};

/// Tracks features through a few short parts of a video, each with the frames' own times. A video
/// that is not much longer than they are is one part. Throws MediaError.
std::vector<FeatureTracks> trackSamples(const std::string& video, const SampleSettings& settings,
                                        const std::function<void()>& onFrame = {});

}  // namespace framehold
