#include "warp/row_renderer.h"

#include <algorithm>

namespace qlx::zpr_framehold {

namespace {

EdgeSteps edgesFrom(const CornerDeltas& d) {
    return {2 * (d.dx[2] - d.dx[0]), 2 * (d.dx[3] - d.dx[1]), 2 * (d.dy[2] - d.dy[0]),
            2 * (d.dy[3] - d.dy[1]), kBlockSize * d.dx[0],    kBlockSize * d.dy[0],
            kBlockSize * d.dx[1],    kBlockSize * d.dy[1]};
}

void stepDown(EdgeSteps& e) {
    e.edgeLeftX += e.stepLeftX;
    e.edgeLeftY += e.stepLeftY;
    e.edgeRightX += e.stepRightX;
    e.edgeRightY += e.stepRightY;
}

TargetRowPair rowPair(const ZPR_Image& target, int32_t y) {
    uint8_t* luma = target.plane[0] + ptrdiff_t{y} * target.pitch[0];
    return {{luma, luma + target.pitch[0]}, target.plane[1] + ptrdiff_t{y / 2} * target.pitch[1]};
}

}  // namespace

void renderRow(const BlockGrid& grid, const SourceFrame& source, const ZPR_Image& target,
               int32_t row, const CornerDeltas* deltas, const BlockSpan* spans, EdgeSteps* edges) {
    const int32_t y0 = row * kBlockSize;
    const auto yEnd =
        static_cast<int32_t>(std::min<int64_t>(int64_t{y0} + kBlockSize, target.height));
    const int32_t lastCol = grid.cols - 1;
    const int32_t rowXStart = std::max(spans[0].xStart, 0);
    const int32_t rowXEnd = std::min(kBlockSize * lastCol + spans[lastCol].xEnd, grid.outWidth);
    std::transform(deltas, deltas + grid.cols, edges, edgesFrom);
    for (int32_t y = y0; y < yEnd; y += 2) {
        renderRowPair(source, rowPair(target, y), y, rowXStart, rowXEnd, grid.cols, edges, spans);
        std::for_each(edges, edges + grid.cols, stepDown);
    }
}

}  // namespace qlx::zpr_framehold
