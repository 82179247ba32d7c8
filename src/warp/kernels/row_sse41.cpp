#include "warp/kernels/levels.h"
#include "warp/kernels/shuffle_kernel.h"

namespace qlx::zpr_framehold {

void renderRow_sse41(const BlockGrid& grid, const SourceFrame& source, const ZPR_Image& target,
                     const BlockRow& blocks) {
    walkRow(StripRenderer<ShuffleKernel<U16x8>>(source), grid, target, blocks);
}

}  // namespace qlx::zpr_framehold
