#pragma once

#include "warp/block_grid.h"
#include "warp/row_pair.h"
#include "zpr_framehold.h"

namespace qlx::zpr_framehold {

/// Renders a block row, two output rows at a time, from its blocks' corner offsets and spans.
/// `edges` is the row's scratch. Rows at and below the target's height are left out; columns
/// outside the outer ends of the first and the last span keep what they held.
void renderRow(const BlockGrid& grid, const SourceFrame& source, const ZPR_Image& target,
               int32_t row, const CornerDeltas* deltas, const BlockSpan* spans, EdgeSteps* edges);

}  // namespace qlx::zpr_framehold
