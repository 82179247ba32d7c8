#pragma once

#include "smoothing/frame_correction.h"

#include <algorithm>
#include <cstdint>

namespace zpr_test {

/// The correction of a frame by a mesh, as the warper takes it.
class MeshCorrection {
public:
    /// Of an output of this size; `sourceOf` gives the source position, as MeshPoint, of each output
    /// pixel where a node lies.
    template <class SourceOf>
    MeshCorrection(int32_t width, int32_t height, SourceOf sourceOf) {
        using namespace qlx::zpr_framehold;
        const uint32_t rows = meshNodes(height), columns = meshNodes(width);
        mesh_.resize(rows * columns);
        const auto along = [](uint32_t i, int32_t length) {
            return std::min(static_cast<int32_t>(i) * kMeshStep, length - 1);
        };
        for (uint32_t i = 0; i < rows * columns; ++i) {
            mesh_.writable()[i] = sourceOf(along(i % columns, width), along(i / columns, height));
        }
        correction_.resize(1);
        correction_.writable()[0].mesh = &mesh_;
    }
    MeshCorrection(const MeshCorrection&) = delete;

    operator const qlx::zpr_framehold::FrameCorrection&() const { return correction_; }

private:
    qlx::zpr_framehold::SharedArray<qlx::zpr_framehold::MeshPoint> mesh_;
    qlx::zpr_framehold::FrameCorrection correction_;
};

}  // namespace zpr_test
