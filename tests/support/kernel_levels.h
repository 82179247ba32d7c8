#pragma once

#include "warp/row_kernels.h"

#include <vector>

namespace zpr_test {

/// The kernels that this machine can run, the scalar ones first.
inline std::vector<const qlx::zpr_framehold::RowKernels*> availableKernels() {
    using qlx::zpr_framehold::KernelLevel;
    std::vector<const qlx::zpr_framehold::RowKernels*> available;
    for (const KernelLevel level :
         {KernelLevel::kScalar, KernelLevel::kNeon, KernelLevel::kSse41, KernelLevel::kAvx2}) {
        const auto* kernels = qlx::zpr_framehold::findRowKernels(level);
        if (kernels != nullptr) available.push_back(kernels);
    }
    return available;
}

}  // namespace zpr_test
