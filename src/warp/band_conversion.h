#pragma once

#include "smoothing/frame_correction.h"
#include "warp/block_grid.h"

namespace qlx::zpr_framehold {

/// Turns band records, whose matrices map bands of the input forward into the output, into one
/// record for every block row of `rows`, with a matrix from output to input. A block row that no
/// band reaches gets a zero matrix; one that several reach, their inverses weighted by the rows
/// they share with it.
void convertBands(const BlockGrid& grid, const FrameCorrection& bands, FrameCorrection& rows);

}  // namespace qlx::zpr_framehold
