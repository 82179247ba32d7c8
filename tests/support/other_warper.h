#pragma once

#include "api/instance.h"
#include "warp/block_warper.h"

#include <memory>

namespace zpr_test {

/// Makes an instance render with these kernels, on this pool (null: on the calling thread alone)
/// instead of its own.
inline void renderWith(ZPR_Handle instance, const qlx::zpr_framehold::RowKernels& kernels,
                       qlx::zpr_framehold::WorkerPool* pool) {
    const ZPR_Image& in = instance->params.inputImage;
    const ZPR_Image& out = instance->params.outputImage;
    auto warper = std::make_unique<qlx::zpr_framehold::BlockWarper>(
        in.width, in.height, out.width, out.height, out.format, nullptr, pool, kernels);
    delete instance->warper;
    instance->warper = warper.release();
}

}  // namespace zpr_test
