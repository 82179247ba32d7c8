// Compiled for the least processor of the platform: it runs before anybody knows what there is.
#include "warp/row_kernels.h"

#include <initializer_list>

namespace qlx::zpr_framehold {

namespace {

constexpr RowKernels kScalarKernels{"scalar", nullptr};
#if defined(__ARM_NEON)
constexpr RowKernels kNeonKernels{"neon", renderStrips_neon};
#elif defined(__x86_64__) || defined(__i386__)
constexpr RowKernels kSse41Kernels{"sse41", renderStrips_sse41};
constexpr RowKernels kAvx2Kernels{"avx2", renderStrips_avx2};
#endif

}  // namespace

const RowKernels* findRowKernels(KernelLevel level) {
    switch (level) {
        case KernelLevel::kScalar:
            return &kScalarKernels;
#if defined(__ARM_NEON)
        case KernelLevel::kNeon:
            return &kNeonKernels;
#elif defined(__x86_64__) || defined(__i386__)
        case KernelLevel::kSse41:
            return __builtin_cpu_supports("sse4.1") ? &kSse41Kernels : nullptr;
        case KernelLevel::kAvx2:
            return __builtin_cpu_supports("avx2") ? &kAvx2Kernels : nullptr;
#endif
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
