#pragma once

#include "path/horizon.h"
#include "path/orientation_track.h"
#include "path/pinhole_camera.h"
#include "path/view.h"

#include <functional>
#include <vector>

namespace framehold {

/// Path of the virtual camera over a clip.
struct OptimalPath {
    std::vector<View> views;  // for each frame

    /// For each frame, the largest share of the room between the crop with its zoom and the source's
    /// border that the output's border uses: 0 for none, 1 if it touches.
    std::vector<double> shareUsed;
};

/// Error of the motion above 1 Hz from a phone's gyroscope at rest, in radians.
constexpr double kGyroNoise = 1e-4;

struct PathSettings {
    /// Standard deviation, in seconds, of the Gaussian that the path comes close to where the border
    /// gives room.
    double smoothing = 1.0;

    /// Root mean square error of the track's motion above 1 Hz, in radians. Motion that does not
    /// exceed it is left in the picture, where correcting it would add as much.
    double trackNoise = kGyroNoise;

    /// Zoom of each frame's view; 1 where there are none.
    std::vector<double> zooms;

    /// What the path is levelled to, by this share of the camera's roll; none: it keeps the roll.
    const Horizon* horizon = nullptr;
    double levelling = 1.0;
};

/// Seconds of smoothing for a strength from 1 to 10.
double smoothingSeconds(int strength);

/// Finds the path of least speed, acceleration and jerk on which every output pixel stays inside
/// the source.
/// firstRowTimes: of the frames, in order of time; may repeat. onProgress: share of the work that is
/// done, from 0 to 1; may throw.
OptimalPath findOptimalPath(const OrientationTrack& track, const std::vector<double>& firstRowTimes,
                            const PinholeCamera& source, const PinholeCamera& output,
                            const PathSettings& settings,
                            const std::function<void(double)>& onProgress);

}  // namespace framehold
