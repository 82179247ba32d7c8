#pragma once

#include "math/matrix3.h"
#include "smoothing/shared_array.h"

#include <cstdint>

namespace qlx::zpr_framehold {

/// Position in the input image, in input pixels.
struct MeshPoint {
    double x;
    double y;
};

/// Output pixels from one mesh node to the next, in both directions.
constexpr int32_t kMeshStep = 128;

/// Number of mesh nodes along an output dimension of `size` pixels; the last one sits on the last
/// pixel. `size` may be any positive number: the sum is unsigned.
constexpr uint32_t meshNodes(int32_t size) {
    constexpr uint32_t kStep = kMeshStep;
    return (kStep + static_cast<uint32_t>(size) - 1u) / kStep + 1u;
}

/// Part of a frame's correction.
struct CorrectionRecord {
    /// Not 0 in a band record: `x`, `y`, `width`, `height` are a band of the input, and `matrix`
    /// maps it forward into the output.
    uint8_t isBand;
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
    /// Maps output pixel positions to input positions (except in band records).
    Matrix3 matrix;
    /// Input positions of the output's mesh nodes, row by row; not owned. If set and not empty in
    /// the only record of a correction, the frame is rendered by it.
    const SharedArray<MeshPoint>* mesh;
};

/// Correction of one frame: either one record with a mesh, or one record with a matrix for every
/// block row, or band records.
using FrameCorrection = SharedArray<CorrectionRecord>;

}  // namespace qlx::zpr_framehold
