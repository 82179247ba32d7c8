// The mesh of input positions that a virtual orientation gives: the part of Smoother that fills
// the correction handed to the warper.
#include "smoothing/smoother.h"

namespace qlx::zpr_framehold {

/// Output pixel of a mesh column; the last column sits on the last pixel.
int32_t Smoother::meshX(uint32_t column) const {
    return column + 1 == meshCols_ ? view_.outputWidth - 1
                                   : static_cast<int32_t>(column) * kMeshStep;
}

int32_t Smoother::meshY(uint32_t row) const {
    return row + 1 == meshRows_ ? view_.outputHeight - 1 : static_cast<int32_t>(row) * kMeshStep;
}

void Smoother::buildMesh(const Quaternion& q, const RowTiming& timing) {
    mesh_.resize(meshRows_ * meshCols_);
    MeshPoint* node = mesh_.writable();
    PointMapper mapper(view_, *hub_, q, timing);
    double rowHint = -1.0;
    bool complete = true;
    for (uint32_t i = 0; i < meshRows_ && complete; ++i) {
        for (uint32_t j = 0; j < meshCols_; ++j, ++node) {
            // A node that cannot be mapped keeps its contents; no rows follow its row.
            if (!mapper.map(meshX(j), meshY(i), rowHint, *node)) complete = false;
            rowHint = node->y;
        }
    }
    clampMesh();
}

void Smoother::clampMesh() {
    const uint32_t nodes = mesh_.size();
    MeshPoint* mesh = mesh_.writable();
    const double right = view_.inputWidth - 1;
    const double bottom = view_.inputHeight - 1;
    for (uint32_t j = 0; j < meshCols_; ++j) {
        if (mesh[j].y < 0.0) mesh[j].y = 0.0;
        MeshPoint& last = mesh[nodes - meshCols_ + j];
        if (last.y > bottom) last.y = bottom;
    }
    for (uint32_t first = 0; first < nodes; first += meshCols_) {
        if (mesh[first].x < 0.0) mesh[first].x = 0.0;
        // Deliberate: the row count as a column index. On an output wider than tall it clamps an
        // inner column; on a taller one it reaches into the next row, and past the last row there
        // is nothing to clamp.
        const uint32_t clamped = first + meshRows_ - 1;
        if (clamped < nodes && mesh[clamped].x > right) mesh[clamped].x = right;
    }
}

void Smoother::pointAtMesh(FrameCorrection& out) const {
    out.resize(1);
    out.writable()[0].mesh = &mesh_;
}

void Smoother::fillCorrection(const Quaternion& q, const RowTiming& timing, bool isRolling,
                              FrameCorrection& out) {
    rollingShutter_ = isRolling && !cropLimit_.violatesCrop(q, timing);
    RowTiming meshTiming = timing;
    meshTiming.isRolling = rollingShutter_;
    pointAtMesh(out);
    buildMesh(q, meshTiming);
}

FrameCorrection* Smoother::fallbackCorrection(FrameCorrection* out) {
    if (out == nullptr) return nullptr;
    pointAtMesh(*out);
    mesh_.resize(meshRows_ * meshCols_);
    MeshPoint* node = mesh_.writable();
    const double* m = view_.cropInv.m;
    for (uint32_t i = 0; i < meshRows_; ++i) {
        for (uint32_t j = 0; j < meshCols_; ++j, ++node) {
            const double x = meshX(j);
            const double y = meshY(i);
            *node = {m[0] * x + m[1] * y + m[2], m[3] * x + m[4] * y + m[5]};
        }
    }
    return out;
}

}  // namespace qlx::zpr_framehold
