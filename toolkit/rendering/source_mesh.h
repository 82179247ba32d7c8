#pragma once

#include "path/lens_shift_track.h"
#include "path/orientation_track.h"
#include "path/pinhole_camera.h"

#include <vector>

#include <Eigen/Geometry>

namespace framehold {

/// Rotations from a virtual camera to the device at the times at which a frame's rows were read, and
/// shifts of the device's lens.
class RowRotations {
public:
    /// source: camera of the frame. view: orientation of the virtual camera, device -> world.
    RowRotations(const PinholeCamera& source, double firstRowTime, const OrientationTrack& track,
                 const Eigen::Quaterniond& view, const LensShiftTrack& shifts = {});

    /// Pixel of the source that sees a direction of the virtual camera while its row is read.
    /// guess: of the row. A direction behind the camera gets a pixel far outside.
    Eigen::Vector2d sourcePixel(const Eigen::Vector3d& direction, double guess) const;

private:
    /// Rotation at a row; beyond the picture that of its first or last row.
    Eigen::Matrix3d at(double row) const;

    /// Value at a row of values that are kRowSpacing rows apart.
    template <class Value>
    Value between(const std::vector<Value>& values, double row) const;

    PinholeCamera source_;
    std::vector<Eigen::Matrix3d> rotations_;  // every kRowSpacing rows
    std::vector<Eigen::Vector2d> shifts_;     // likewise, in pixels; empty: none
};

/// Samples of a plane: sample i has its centre at pixel i * step + offset, where pixel 0 begins at
/// 0 and ends at 1, so that the optical axis is in the middle of the picture. The library, the
/// simulator and feature tracks count from the centre of pixel 0. Between the two the axis differs by
/// half a pixel, and where things are after turns by 0.02 radians, on 1920x1080, by less than 0.02.
struct SampleGrid {
    int width = 0;  // samples
    int height = 0;
    Eigen::Array2d step{1.0, 1.0};
    Eigen::Array2d offset{0.5, 0.5};

    bool operator==(const SampleGrid& other) const;
};

/// Positions in a plane of the source that the samples of the same plane of the output read: exact
/// at the nodes and linear between them.
class SourceMesh {
public:
    // Samples between nodes, of luma and chroma alike: no pixel is off by more than 0.05 on strong
    // shake (tests/toolkit/rendering_test.cpp).
    static constexpr int kSpacing = 16;
    static constexpr int kFinestSpacing = 4;

    /// output, source: the plane's samples in the two frames. spacing: kSpacing, or a half or a
    /// quarter of it.
    SourceMesh(const SampleGrid& output, const SampleGrid& source, int spacing = kSpacing);

    /// Spacing that two cameras need, because their lenses differ.
    static int spacingFor(const SampleGrid& samples, const PinholeCamera& output,
                          const PinholeCamera& source);

    /// Samples between nodes.
    int spacing() const { return spacing_; }

    /// Number of rows of cells.
    int cellRows() const { return rows_ - 1; }
    int cellColumns() const { return columns_ - 1; }

    /// Sets the nodes of one row.
    void setRow(int row, const RowRotations& rotations, const PinholeCamera& output);

    /// Number of rows of nodes.
    int nodeRows() const { return rows_; }

    /// Position in samples, that of the first sample being 0, of a node.
    const Eigen::Vector2d& node(int column, int row) const {
        return nodes_[static_cast<size_t>(row) * static_cast<size_t>(columns_) +
                      static_cast<size_t>(column)];
    }

private:
    SampleGrid output_;
    SampleGrid source_;
    int spacing_;
    int columns_;
    int rows_;
    std::vector<Eigen::Vector2d> nodes_;
};

}  // namespace framehold
