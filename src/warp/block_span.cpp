#include "warp/block_span.h"

#include <algorithm>

namespace qlx::zpr_framehold {

namespace {

int64_t ceilDiv(int64_t a, int64_t b) { return (a + b - 1) / b; }

/// The largest t with t * b < a.
int64_t floorLess(int64_t a, int64_t b) { return (a - 1 > 0 ? a - 1 : a - b) / b; }

/// First pixel along an edge from source position `from` to `to` whose source is not below 0.
int64_t firstInside(int64_t from, int64_t to) {
    return from < 0 ? ceilDiv(-from * kBlockSize, to - from) : 0;
}

/// Last pixel along an edge whose source is below `limit`, at most `last`.
int64_t lastInside(int64_t from, int64_t to, int64_t limit, int64_t last) {
    return to >= limit ? floorLess((limit - from) * kBlockSize, to - from) : last;
}

}  // namespace

SpanResult computeBlockSpan(const BlockGrid& grid, int32_t col, int32_t row,
                            const CornerDeltas& deltas, BlockSpan& span) {
    constexpr int64_t kBlock16 = 16 * kBlockSize;
    const int64_t bw = grid.blockWidth(col);
    const int64_t bh = grid.blockHeight(row);
    int64_t x[4];
    int64_t y[4];
    for (int i = 0; i < 4; ++i) {
        x[i] = kBlock16 * (col + i % 2) + deltas.dx[i];
        y[i] = kBlock16 * (row + i / 2) + deltas.dy[i];
    }
    if (x[0] >= x[1] || y[1] >= y[3] || y[0] >= y[2] || x[2] >= x[3]) return SpanResult::kFolded;

    // The last whole input pixel: beyond it a sample has no right or lower neighbour.
    const int64_t maxX = int64_t{16} * grid.inWidth - 16;
    const int64_t maxY = int64_t{16} * grid.inHeight - 16;

    const int64_t yStart = std::max(firstInside(y[0], y[2]), firstInside(y[1], y[3]));
    const int64_t yEnd = std::min({lastInside(y[0], y[2], maxY, bh - 1),
                                   lastInside(y[1], y[3], maxY, bh - 1), bh - 1}) +
                         1;
    const int64_t xStart = std::max(firstInside(x[0], x[1]), firstInside(x[2], x[3]));
    int64_t xEnd = bw;
    if (x[1] >= maxX || x[3] >= maxX) {
        const int64_t last = std::min(
            {lastInside(x[0], x[1], maxX, bw - 1), lastInside(x[2], x[3], maxX, bw - 1), bw - 1});
        // Deliberate: an end that would be a multiple of 4 loses its last pixel.
        xEnd = (last + 1) % 4 == 0 ? last : last + 1;
    }
    if (yEnd <= yStart || yEnd <= 0 || bh <= yStart || bw <= xStart || xEnd <= 0 ||
        xEnd <= xStart) {
        return SpanResult::kEmpty;
    }
    span = {static_cast<int32_t>(xStart), static_cast<int32_t>(yStart), static_cast<int32_t>(xEnd),
            static_cast<int32_t>(yEnd)};
    return SpanResult::kValid;
}

void clipBlockSpan(const BlockGrid& grid, int32_t col, int32_t row, BlockSpan& span) {
    if (col == 0) span.xStart = std::max(span.xStart, 0);
    if (col == grid.cols - 1) span.xEnd = std::min(span.xEnd, grid.blockWidth(col));
    if (row == 0) span.yStart = std::max(span.yStart, 0);
    if (row == grid.rows - 1) span.yEnd = std::min(span.yEnd, grid.blockHeight(row));
}

}  // namespace qlx::zpr_framehold
