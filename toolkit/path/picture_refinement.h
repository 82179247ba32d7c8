#pragma once

#include "path/unexplained_turn.h"

#include <utility>
#include <vector>

namespace framehold {

/// Corrects a track by the features of a clip. A log misses what its bias and noise add to the
/// motion and how the camera moves from place to place; without a log all motion is in the pictures.
class PictureRefinement {
public:
    /// track: by the log, or at rest. shifts: of the lens, on the track's clock.
    PictureRefinement(const PinholeCamera& camera, OrientationTrack track,
                      LensShiftTrack shifts = {})
        : camera_(camera), track_(std::move(track)), shifts_(std::move(shifts)) {}

    /// Takes the features' motions from a frame to the next one, with the times of the frames' first
    /// rows on the track's clock. Frames come in order of time.
    void add(double from, double to, const std::vector<FeatureMotion>& motions);

    /// Corrections of the track at the frames' middle rows. A turn counts as far as it stands out
    /// from its noise.
    std::vector<TrackCorrection> corrections() const;

    /// The track with these corrections.
    OrientationTrack refined() const;

    /// Zooms of views that take out what the pictures grow and shrink faster than a Gaussian of
    /// `smoothing` seconds: a camera that moves back and forth with each step. 1 where it does not
    /// stand out from its noise. firstRowTimes: of all frames.
    std::vector<double> zooms(const std::vector<double>& firstRowTimes, double smoothing) const;

    /// Finds the camera's readout from how the pictures bend where their motion changes, takes it for
    /// the corrections in place of that of the camera, and returns it; 0 if the pictures do not tell.
    /// For a track at rest.
    double findReadout();

private:
    PinholeCamera camera_;
    OrientationTrack track_;
    LensShiftTrack shifts_;
    std::vector<UnexplainedTurn> turns_;
};

}  // namespace framehold
