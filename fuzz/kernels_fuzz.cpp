// Any corner offsets and spans straight into the row kernels: each level must write the same bytes
// as the scalar one, and touch nothing else.
#include "draw.h"
#include "support/guarded_frame.h"
#include "support/kernel_levels.h"
#include "warp/row_renderer.h"

#include <algorithm>
#include <optional>
#include <vector>

using namespace qlx::zpr_framehold;
using zpr_fuzz::Draw;
using zpr_test::GuardedFrame;

namespace {

/// A block row without its images.
struct Blocks {
    std::vector<CornerDeltas> deltas;
    std::vector<BlockSpan> spans;
};

/// Offsets of a block's corners in 1/16 pixel: around a common one, or anywhere.
void drawCorners(Draw& draw, int32_t offsets[4]) {
    const int kind = draw.integer(0, 3);
    const int32_t common = draw.integer(-2000, 2000);
    const int32_t stray = kind == 0 ? 0 : kind == 1 ? 127 : 4000;
    for (int i = 0; i < 4; ++i) {
        offsets[i] = kind == 3 ? std::clamp(draw.word(), -kMaxCornerDelta, kMaxCornerDelta)
                               : common + draw.integer(-stray, stray);
    }
}

/// A span as the warper makes them: within the block, or still all zeros.
BlockSpan drawSpan(Draw& draw, int32_t width, int32_t height) {
    if (draw.integer(0, 7) == 0) return {};
    BlockSpan span{0, 0, width, height};
    if (draw.flag()) {
        span.xStart = draw.integer(0, width - 1);
        span.xEnd = draw.integer(span.xStart + 1, width);
        span.yStart = draw.integer(0, height - 1);
    }
    return span;
}

Blocks drawBlocks(Draw& draw, const BlockGrid& grid) {
    Blocks blocks;
    for (int32_t col = 0; col < grid.cols; ++col) {
        CornerDeltas deltas;
        drawCorners(draw, deltas.dx);
        drawCorners(draw, deltas.dy);
        blocks.deltas.push_back(deltas);
        blocks.spans.push_back(
            drawSpan(draw, grid.blockWidth(col), grid.blockHeight(grid.rows - 1)));
    }
    return blocks;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Draw draw(data, size);
    const int outWidth = draw.even(2, 300);
    const int rows = 128 * draw.integer(0, 1) + draw.even(2, 128);
    const BlockGrid grid(draw.even(2, 320), draw.even(2, 200), outWidth, rows);
    const bool atEnd = draw.flag();
    GuardedFrame source(grid.inWidth, grid.inHeight, grid.inWidth + draw.integer(0, 40),
                        grid.inWidth + draw.integer(0, 40), atEnd);
    source.fill(draw.byte());
    const int pitches[2] = {outWidth + draw.integer(0, 40), outWidth + draw.integer(0, 40)};
    const Blocks blocks = drawBlocks(draw, grid);

    const SourceFrame frame{source.image.plane[0], source.image.plane[1], source.image.pitch[0],
                            source.image.pitch[1], grid.inWidth,          grid.inHeight};
    std::optional<std::vector<uint8_t>> expected;
    for (const RowKernels* kernels : zpr_test::availableKernels()) {
        GuardedFrame target(outWidth, rows, pitches[0], pitches[1], atEnd);
        target.fill(0);
        std::vector<EdgeSteps> edges(blocks.deltas.size());
        renderRow(*kernels, grid, frame, target.image,
                  {grid.rows - 1, blocks.deltas.data(), blocks.spans.data(), edges.data()});
        if (!expected) expected = target.bytes();
        zpr_fuzz::require(target.bytes() == *expected, "all kernels write the same bytes");
    }
    return 0;
}
