#pragma once

#include "path/lens_shift_track.h"
#include "path/orientation_track.h"
#include "path/pinhole_camera.h"
#include "tracking/feature_tracks.h"

#include <limits>
#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Settings of a tracker whose features suffice for turns between frames.
inline constexpr TrackSettings kTurnTracking{300, 0, 960, 0.3};

/// Rotation between two frames that a track does not explain, and the zoom that no rotation explains,
/// by the features of the steady rest of the picture.
struct UnexplainedTurn {
    double from = 0.0;  // seconds, of the frames' first rows
    double to = 0.0;
    /// Rotation vector in device axes at the later frame, in radians.
    Eigen::Vector3d turn = Eigen::Vector3d::Zero();
    /// Variance of the turn's components; infinite where nothing was found.
    Eigen::Vector3d variance = Eigen::Vector3d::Constant(std::numeric_limits<double>::infinity());
    /// Turn that shows for a turn that grows by one radian from the first row to the last one and
    /// is 0 in the middle.
    Eigen::Matrix3d leak = Eigen::Matrix3d::Zero();
    /// Rows that the features move down, as a share of the height: so much later they are read.
    double later = 0.0;
    /// Growth of the turn about x and y from the first row to the last one, in radians, and its
    /// variance.
    Eigen::Vector2d growth = Eigen::Vector2d::Zero();
    Eigen::Vector2d growthVariance =
        Eigen::Vector2d::Constant(std::numeric_limits<double>::infinity());

    /// Growth of the picture about its centre, as a share of its size: by moving forward.
    double zoom = 0.0;
    double zoomVariance = std::numeric_limits<double>::infinity();
    /// Zoom that shows for a turn that grows over the rows, see leak.
    Eigen::RowVector3d zoomLeak = Eigen::RowVector3d::Zero();

    bool isKnown() const { return variance.allFinite(); }
};

/// Finds the turn from the features' motions, with the times of the frames' first rows on the
/// track's clock. shifts: of the lens, on the same clock.
UnexplainedTurn findUnexplainedTurn(const PinholeCamera& camera, const OrientationTrack& track,
                                    double from, double to,
                                    const std::vector<FeatureMotion>& motions,
                                    const LensShiftTrack& shifts = {});

}  // namespace framehold
