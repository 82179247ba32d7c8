#pragma once

#include "warp/block_grid.h"

namespace qlx::zpr_framehold {

enum class SpanResult { kValid = 0, kFolded = 2, kEmpty = 3 };

/// Finds the pixels of a block whose source lies inside the input. `span` is written only if valid.
SpanResult computeBlockSpan(const BlockGrid& grid, int32_t col, int32_t row,
                            const CornerDeltas& deltas, BlockSpan& span);

/// Cuts a span to the output image.
void clipBlockSpan(const BlockGrid& grid, int32_t col, int32_t row, BlockSpan& span);

}  // namespace qlx::zpr_framehold
