#pragma once

#include "calibration/gyro_path.h"
#include "tracking/feature_tracks.h"

#include <functional>
#include <vector>

namespace framehold {

/// A number and how far it may be off: one standard deviation.
struct Estimate {
    double value = 0.0;
    double deviation = 0.0;
};

/// How a clip's clock relates to its log's: a frame's first row is read at
/// timestamp * (1 + drift) + offset.
struct ClockEstimate {
    Estimate offset;  // seconds
    Estimate drift;   // seconds per second
};

/// What a fit finds, and what it starts from: there the deviations are how far the truth may be
/// from the start; 0 keeps a value as it is.
struct CameraEstimate {
    Estimate logFocal;                  // natural logarithm of the focal length in pixels
    Estimate readout;                   // seconds
    std::vector<ClockEstimate> clocks;  // one for each clip
};

/// A clip to fit a camera to.
struct FitClip {
    const FeatureTracks* tracks;
    const GyroPath* gyro;  // in device axes
};

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

/// Finds the camera that best predicts from the log where each feature goes, each row read at its
/// own time. What moves slowly, by its part of the picture, is not held against it: that takes in
/// a gyroscope's bias and what a drive or a walk does to the picture. Features that move on their
/// own are weighted down, and so are parts of the picture where many do. Deviations are those of
/// blocks of a quarter of a second, whose errors are taken for independent.
///
/// All clips have one picture size and at least one feature. onRound is called before each round.
CameraFit fitCamera(const std::vector<FitClip>& clips, const CameraEstimate& start,
                    const FitSettings& settings, const std::function<void()>& onRound = {});

}  // namespace framehold
