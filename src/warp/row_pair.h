#pragma once

#include "warp/block_grid.h"

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

/// Where a pair of output rows goes: luma rows y and y + 1, and the chroma row they share.
struct TargetRowPair {
    uint8_t* luma[2];
    uint8_t* chroma;
};

/// Renders the output rows y and y + 1 from column rowXStart up to and without rowXEnd; `blockCols`
/// blocks with their edges at row y.
///
/// Luma is sampled bilinearly at 1/16 pixel, truncated; chroma takes the nearest pair. No byte
/// outside the source is read: taps beyond its border take the nearest pixel or pair.
void renderRowPair(const SourceFrame& source, const TargetRowPair& target, int32_t y,
                   int32_t rowXStart, int32_t rowXEnd, int32_t blockCols, const EdgeSteps* edges,
                   const BlockSpan* spans);

}  // namespace qlx::zpr_framehold
