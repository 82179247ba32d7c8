#pragma once

#include "api/instance.h"
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

inline const qlx::zpr_framehold::RowKernels& scalarKernels() { return *availableKernels().front(); }

/// Makes an instance that renders with these kernels on a pool of so many threads. Returns null if
/// there is none to be had.
inline ZPR_Handle createWith(const ZPR_Param& param, const qlx::zpr_framehold::RowKernels& kernels,
                             unsigned threads) {
    ZPR_Handle handle = nullptr;
    qlx::zpr_framehold::createInstance(nullptr, param, kernels, threads, handle);
    return handle;
}

}  // namespace zpr_test
