#pragma once

#include "path/optimal_path.h"
#include "path/output_border.h"

#include <array>
#include <functional>
#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Path of the virtual camera over frames without a long gap between them: orientations at evenly
/// spaced nodes, about 30 a second, and a cubic between them. Nodes lie on the frames of a clip of
/// constant frame rate up to that.
class PathSegment {
public:
    /// firstRowTimes: of the frames, in order of time, at least one. zooms: of the frames'
    /// views. The path starts as the track.
    PathSegment(const OrientationTrack& track, const PinholeCamera& source,
                const OutputBorder& border, const PathSettings& settings,
                const std::vector<double>& firstRowTimes, const std::vector<double>& zooms);

    size_t nodeCount() const { return nodes_.size(); }
    double step() const { return step_; }  // seconds between nodes

    /// Optimises nodes [begin, end); those before stay, and the path goes on from them smoothly.
    /// onProgress: see findOptimalPath.
    void solve(size_t begin, size_t end, const std::function<void(double)>& onProgress);

    /// Orientation of the view for a frame.
    Eigen::Quaterniond orientationAt(double firstRowTime) const;

private:
    /// Nodes that a view is interpolated between, and their shares.
    struct Stencil {
        size_t first;
        size_t count;
        std::array<double, 4> shares;
    };

    class Window;

    Stencil stencilAt(double firstRowTime) const;
    Eigen::Quaterniond orientationAt(const Stencil& stencil) const;

    const OrientationTrack& track_;
    const PinholeCamera& source_;
    const OutputBorder& border_;
    double smoothing_;
    std::vector<double> frameTimes_;
    std::vector<double> zooms_;  // of the frames
    double step_;
    std::vector<Eigen::Quaterniond> targets_;  // what the path comes close to, at each node
    std::vector<Eigen::Quaterniond> nodes_;
};

}  // namespace framehold
