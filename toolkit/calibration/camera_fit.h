#pragma once

#include "common/lens_distortion.h"
#include "path/gyro_path.h"
#include "tracking/feature_tracks.h"

#include <array>
#include <functional>
#include <vector>

namespace framehold {

/// Value with its standard deviation.
struct Estimate {
    double value = 0.0;
    double deviation = 0.0;
};

/// Clock of one clip: a frame's first row is read at timestamp * (1 + drift) + offset on the log's
/// clock.
struct ClockEstimate {
    Estimate offset;  // seconds
    Estimate drift;   // seconds per second
};

/// Values that a fit finds or starts from. At the start the deviations are those of the values
/// expected (a prior); 0 keeps a value as it is.
struct CameraEstimate {
    Estimate logFocal;      // natural logarithm of the focal length in pixels
    Estimate readout;       // seconds
    Estimate distortion{};  // share by which a pinhole shows the corners further out
    /// Lens in place of that share, whose k1 and k2 are found: a model, and its start.
    LensDistortion lens{};
    std::array<double, 2> lensDeviations{};  // of k1 and k2
    std::vector<ClockEstimate> clocks;       // one for each clip
};

/// Clip to fit a camera to; both are borrowed.
struct FitClip {
    const FeatureTracks* tracks;
    const GyroPath* gyro;  // in device axes
};

/// Camera that fits a number of clips.
struct CameraFit {
    CameraEstimate camera;
    double reprojectionError = 0.0;  // pixels, median distance of tracked features from predicted
    double reprojectionErrorAtRest = 0.0;  // pixels, the same for a camera that does not turn
    double outliers = 0.0;  // share of the features that were left out as moving on their own
};

struct FitSettings {
    int maxFeatures = 400;  // for each pair of frames
    int maxRounds = 30;
};

/// Finds the camera with the smallest reprojection error: features are predicted from the log, each
/// row read at its own time. Slow motion, which is free in each region of the picture, does not
/// count: that takes in a gyroscope's bias and motion of the camera through the scene. Features that
/// move on their own are weighted down (Cauchy's, then Tukey's weights), and so are regions where
/// many do. Deviations come from blocks of a quarter of a second, whose errors are taken for
/// independent, and from a part of the errors that is taken for the same everywhere: compressed
/// pictures lag behind the motion, by more the coarser they are.
///
/// All clips have one picture size and at least one feature. onRound is called before each round.
CameraFit fitCamera(const std::vector<FitClip>& clips, const CameraEstimate& start,
                    const FitSettings& settings, const std::function<void()>& onRound = {});

}  // namespace framehold
