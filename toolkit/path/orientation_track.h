#pragma once

#include "path/gyro_path.h"

#include <optional>
#include <utility>
#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Rotation that corrects a track at a time.
struct TrackCorrection {
    double time;              // seconds
    Eigen::Quaterniond turn;  // of the track's world, about its axes
};

/// Orientation of a camera over a clip, from device axes to a world whose axes are those of the
/// device at the track's start. It comes from a log, from pictures, or from a log that pictures
/// refine. Times are on the log's clock, where there is one.
class OrientationTrack {
public:
    /// A camera that does not turn.
    OrientationTrack() = default;

    explicit OrientationTrack(GyroPath gyro) : gyro_(std::move(gyro)) {}

    /// Applies rotations after the orientation so far; between their times along a cubic spline,
    /// outside as at the nearest one. In order of time, which differs. Replaces those of an earlier
    /// call.
    void correct(std::vector<TrackCorrection> corrections);

    bool isLogged() const { return gyro_.has_value(); }

    /// Rotation from device axes to the world at a time in seconds.
    Eigen::Quaterniond at(double time) const;

private:
    Eigen::Quaterniond correctionAt(double time) const;

    std::optional<GyroPath> gyro_;
    std::vector<TrackCorrection> corrections_;
    std::vector<Eigen::Vector3d> rates_;  // at the corrections, about the axes they turn to, rad/s
};

}  // namespace framehold
