#pragma once

#include "path/orientation_track.h"
#include "path/pinhole_camera.h"
#include "path/view.h"

#include <array>
#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Orientations of a camera while it reads the rows of one frame.
class RowOrientations {
public:
    RowOrientations(const OrientationTrack& track, const PinholeCamera& source,
                    double firstRowTime);

    /// Orientation when row y was read; rows outside the picture get the nearest.
    Eigen::Quaterniond at(double y) const;

    /// Orientation when the middle row was read.
    const Eigen::Quaterniond& middle() const { return rows_[kSteps / 2]; }

private:
    static constexpr int kSteps = 16;  // a log rarely has more rates in a frame

    std::array<Eigen::Quaterniond, kSteps + 1> rows_;
    double stepsPerRow_;
};

/// Border of the output picture, seen in the source: tells by how far it leaves the source.
class OutputBorder {
public:
    static constexpr int kPerSide = 5;  // points, with the two corners
    static constexpr int kCount = 4 * kPerSide;

    /// Distances of the border's points from the sides of the source that they lie next to, in
    /// pixels of the source, positive outside.
    using Distances = Eigen::Matrix<double, kCount, 1>;

    /// Derivatives of distances by a turn of the view about its own axes, in pixels per radian.
    using Slopes = Eigen::Matrix<double, kCount, 3>;

    OutputBorder(const PinholeCamera& source, const PinholeCamera& output);

    /// Distances for a view. slopes: may be null.
    Distances distances(const RowOrientations& rows, const View& view,
                        Slopes* slopes = nullptr) const;

    /// Largest share of the way that a point has gone to the source's border from where it is for a
    /// camera at rest with the view's zoom: 0 in the middle, 1 at the border.
    double shareUsed(const RowOrientations& rows, const View& view) const;

private:
    struct Point {
        Eigen::Vector2d pixel;  // of the output
        int axis;               // of the side it lies next to: 0 for x
        double sign;            // 1 if the source is left where the axis grows
    };

    /// Pixels by which a side bends out between its points, at most, of a view that does not zoom.
    double largestBend() const;

    PinholeCamera source_;
    PinholeCamera output_;
    std::array<Point, kCount> points_;
    double bend_ = 0.0;  // largestBend
    RowOrientations atRest_;
};

}  // namespace framehold
