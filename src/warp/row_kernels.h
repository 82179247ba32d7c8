#pragma once

#include "warp/block_grid.h"
#include "zpr_framehold.h"

#include <cstddef>
#include <cstdint>

namespace qlx::zpr_framehold {

/// The source frame: `height` rows of `width` luma bytes and half as many rows of chroma pairs.
struct SourceFrame {
    const uint8_t* luma;
    const uint8_t* chroma;
    ptrdiff_t lumaPitch;
    ptrdiff_t chromaPitch;
    int32_t width;
    int32_t height;
};

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
using RenderRow = void(const BlockGrid& grid, const SourceFrame& source, const ZPR_Image& target,
                       const BlockRow& blocks);

/// The kernels of one instruction set. Whatever the set, they write the same bytes.
struct RowKernels {
    const char* name;
    RenderRow* renderRow;
};

/// Instruction sets, each with more to offer than the one before.
enum class KernelLevel { kScalar, kNeon, kSse41, kAvx2 };

/// The kernels of a level; null if they are not built for this platform or the processor lacks
/// them.
const RowKernels* findRowKernels(KernelLevel level);

/// The best kernels that this processor runs.
const RowKernels& selectRowKernels();

}  // namespace qlx::zpr_framehold
