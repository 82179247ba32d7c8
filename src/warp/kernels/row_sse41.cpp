#include "warp/kernels/shuffle_kernel.h"

namespace qlx::zpr_framehold {

void renderStrips_sse41(const SourceFrame& source, const TargetRowPair& target, Strips* strips,
                        int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        const Strips& s = strips[i];
        renderColumns<U16x8>(source, target, s.positions, s.columns, s.pieces);
        advance(strips[i]);
    }
}

}  // namespace qlx::zpr_framehold
