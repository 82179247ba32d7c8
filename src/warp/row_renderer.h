#pragma once

#include "warp/block_grid.h"
#include "warp/row_kernels.h"
#include "zpr_framehold.h"

namespace qlx::zpr_framehold {

/// The blocks of one block row, `cols` of each, and scratch for as many edges.
struct BlockRow {
    int32_t row;
    const CornerDeltas* deltas;
    const BlockSpan* spans;
    EdgeSteps* edges;
};

/// Renders a block row, two output rows at a time, from its blocks' corner offsets and spans. Rows
/// at and below the target's height are left out; columns outside the outer ends of the first and
/// the last span keep what they held.
///
/// Luma is sampled bilinearly at 1/16 pixel, truncated; chroma takes the nearest pair. No byte
/// outside the source is read: taps beyond its border take the nearest pixel or pair.
void renderRow(const RowKernels& kernels, const BlockGrid& grid, const SourceFrame& source,
               const ZPR_Image& target, const BlockRow& blocks);

}  // namespace qlx::zpr_framehold
