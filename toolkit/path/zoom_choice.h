#pragma once

#include "path/optimal_path.h"

#include <functional>
#include <optional>
#include <vector>

namespace framehold {

// Crops are percentages of the picture's sides that are shown.

/// Crops that are chosen among, or zoomed to, as the path needs it.
constexpr int kSmallestCrop = 70;
constexpr int kLargestCrop = 98;

/// Bounds of a zoom that changes.
constexpr double kZoomSpeed = 0.03;  // share of the size per second, at most
constexpr double kZoomHold = 4.0;    // seconds that the picture stays larger, at least

/// What a path is looked for. Everything is borrowed.
struct PathTask {
    const OrientationTrack& track;
    const std::vector<double>& firstRowTimes;  // see findOptimalPath
    const PinholeCamera& source;
    const PathSettings& settings;
    std::function<PinholeCamera(double crop)> outputFor;
    std::function<void(double)> onProgress;  // see findOptimalPath
};

/// Crop that was chosen, and the path for it.
struct ChosenCrop {
    double crop;
    OptimalPath path;
    double forcedSpeed;  // see chooseCrop
};

/// Speed of the shake that a border may force into a path without it being seen, as a share of the
/// width per second. A shake of 1 Hz and 0.08 % of the width is as fast, one of 3 Hz and 0.03 %.
constexpr double kUnseenSpeed = 0.005;

/// Chooses the largest crop from `kSmallestCrop` to `kLargestCrop` whose border forces no shake into
/// the path that can be seen; the smallest where none does. Forced is the motion faster than about a
/// quarter hertz by which the path differs from one that no border limits; its speed, root mean
/// square over the worst second, may be `kUnseenSpeed`. Finds up to five paths.
ChosenCrop chooseCrop(const PathTask& task);

/// Finds the path of a view that zooms out from the crop to `kLargestCrop` where the path leaves room,
/// as one that no border limits: no faster than `kZoomSpeed`, and not for less than `kZoomHold`.
OptimalPath findZoomingPath(const PathTask& task, double crop);

/// Finds the path for a crop, or if there is none for the one that chooseCrop chooses. zooms: of a
/// view that zooms out from it, see findZoomingPath.
ChosenCrop findCroppedPath(const PathTask& task, std::optional<double> crop, bool zooms);

/// Smallest zooms that change no faster than `kZoomSpeed`, are held as `kZoomHold` says and are at
/// least those needed. times: in order; may repeat.
std::vector<double> easedZooms(const std::vector<double>& times, const std::vector<double>& needed);

}  // namespace framehold
