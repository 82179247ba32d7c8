#pragma once

#include "smoothing/frame_correction.h"
#include "smoothing/point_mapper.h"
#include "smoothing/shared_array.h"
#include "smoothing/view_geometry.h"

#include <cstdint>

namespace qlx::zpr_framehold {

/// Mesh of input positions for the nodes of the output, one every kMeshStep pixels.
class CorrectionMesh {
public:
    /// view is borrowed. Throws std::bad_alloc if there is no memory for the nodes.
    explicit CorrectionMesh(const ViewGeometry& view);

    /// Fills the mesh with the positions that `mapper` finds. A node that it does not find keeps
    /// its position, and so do all rows below that node's row.
    void buildMesh(PointMapper& mapper);

    /// Fills the mesh with the plain centred crop and zoom.
    void buildCentredCrop();

    /// Nodes row by row; empty before the mesh is filled.
    const SharedArray<MeshPoint>& nodes() const { return nodes_; }

private:
    void clamp();

    int32_t outputX(uint32_t column) const;
    int32_t outputY(uint32_t row) const;

    const ViewGeometry& view_;
    uint32_t rows_;
    uint32_t cols_;
    SharedArray<MeshPoint> nodes_;
};

}  // namespace qlx::zpr_framehold
