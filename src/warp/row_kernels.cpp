// Compiled for the least processor of the platform: it runs before anybody knows what there is.
#include "warp/row_kernels.h"

#include "warp/kernels/levels.h"

#include <initializer_list>

namespace qlx::zpr_framehold {

namespace {

constexpr RowKernels kScalarKernels{"scalar", renderRow_scalar};

}  // namespace

const RowKernels* findRowKernels(KernelLevel level) {
    switch (level) {
        case KernelLevel::kScalar:
            return &kScalarKernels;
        default:
            return nullptr;
    }
}

const RowKernels& selectRowKernels() {
    for (const KernelLevel level : {KernelLevel::kAvx2, KernelLevel::kSse41, KernelLevel::kNeon}) {
        if (const RowKernels* kernels = findRowKernels(level)) return *kernels;
    }
    return kScalarKernels;
}

}  // namespace qlx::zpr_framehold
