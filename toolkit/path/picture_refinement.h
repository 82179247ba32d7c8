#pragma once

#include "path/orientation_track.h"
#include "path/pinhole_camera.h"
#include "tracking/feature_tracks.h"

#include <utility>
#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Rotation between two frames that a track does not explain, by the features of the steady rest of
/// the picture.
struct UnexplainedTurn {
    double from;  // seconds, of the middle rows
    double to;
    Eigen::Vector3d turn;      // rotation vector in device axes at the later frame, radians
    Eigen::Vector3d variance;  // of the turn's components; infinite where nothing was found
    /// Turn that shows for a turn that grows by one radian from the first row to the last one and
    /// is 0 in the middle.
    Eigen::Matrix3d leak = Eigen::Matrix3d::Zero();
};

/// Corrects a track by the features of a clip. A log misses what its bias and noise add to the
/// motion and how the camera moves from place to place; without a log all motion is in the pictures.
class PictureRefinement {
public:
    /// track: by the log, or at rest.
    PictureRefinement(const PinholeCamera& camera, OrientationTrack track)
        : camera_(camera), track_(std::move(track)) {}

    /// Takes the features' motions from a frame to the next one, with the times of the frames' first
    /// rows on the track's clock. Frames come in order of time.
    void add(double from, double to, const std::vector<FeatureMotion>& motions);

    /// Corrections of the track at the frames' middle rows. A turn counts as far as it stands out
    /// from its noise.
    std::vector<TrackCorrection> corrections() const;

    /// The track with these corrections.
    OrientationTrack refined() const;

    const std::vector<UnexplainedTurn>& turns() const { return turns_; }

private:
    PinholeCamera camera_;
    OrientationTrack track_;
    std::vector<UnexplainedTurn> turns_;
};

}  // namespace framehold
