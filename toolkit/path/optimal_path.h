#pragma once

#include "path/orientation_track.h"
#include "path/pinhole_camera.h"

#include <functional>
#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Path of the virtual camera over a clip.
struct OptimalPath {
    std::vector<Eigen::Quaterniond> views;  // device -> world, for each frame

    /// For each frame, the largest share of the room between the plain crop and the source's border
    /// that the output's border uses: 0 for none, 1 if it touches.
    std::vector<double> shareUsed;
};

/// Error of the motion above 1 Hz from a phone's gyroscope at rest, in radians.
constexpr double kGyroNoise = 1e-4;

/// Seconds of smoothing for a strength from 1 to 10.
double smoothingSeconds(int strength);

/// Finds the path of least speed, acceleration and jerk on which every output pixel stays inside
/// the source. Where the border gives room, it is close to the track smoothed by a Gaussian of
/// standard deviation `smoothing` seconds.
/// firstRowTimes: of the frames, in order of time; may repeat. onProgress: share of the work that is
/// done, from 0 to 1; may throw.
/// trackNoise: root mean square error of the track's motion above 1 Hz, in radians. Motion that does
/// not exceed it is left in the picture, where correcting it would add as much.
OptimalPath findOptimalPath(const OrientationTrack& track, const std::vector<double>& firstRowTimes,
                            const PinholeCamera& source, const PinholeCamera& output,
                            double smoothing, const std::function<void(double)>& onProgress,
                            double trackNoise = kGyroNoise);

}  // namespace framehold
