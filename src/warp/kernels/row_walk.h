#pragma once

#include "warp/segment.h"

// Local to each kernel's file; see segment.h.

namespace qlx::zpr_framehold {

static inline EdgeSteps edgesFrom(const CornerDeltas& d) {
    return {2 * (d.dx[2] - d.dx[0]), 2 * (d.dx[3] - d.dx[1]), 2 * (d.dy[2] - d.dy[0]),
            2 * (d.dy[3] - d.dy[1]), kBlockSize * d.dx[0],    kBlockSize * d.dy[0],
            kBlockSize * d.dx[1],    kBlockSize * d.dy[1]};
}

/// Takes the edges `pairs` row pairs down.
static inline void stepDown(EdgeSteps& e, int32_t pairs) {
    e.edgeLeftX += pairs * e.stepLeftX;
    e.edgeLeftY += pairs * e.stepLeftY;
    e.edgeRightX += pairs * e.stepRightX;
    e.edgeRightY += pairs * e.stepRightY;
}

static inline Segment segmentOf(int32_t y, ColumnRange columns, const EdgeSteps& edge,
                                const BlockSpan& span) {
    const int32_t slopeX = edge.edgeRightX - edge.edgeLeftX;
    const int32_t slopeY = edge.edgeRightY - edge.edgeLeftY;
    // Deliberate: the y offset starts from the span's yStart, not from its xStart.
    return {y,
            columns,
            int64_t{span.xStart} * slopeX + int64_t{kBlockSize} * edge.edgeLeftX,
            int64_t{span.yStart} * slopeY + int64_t{kBlockSize} * edge.edgeLeftY,
            slopeX,
            slopeY};
}

static inline TargetRowPair rowPair(const ZPR_Image& target, int32_t y) {
    uint8_t* luma = target.plane[0] + ptrdiff_t{y} * target.pitch[0];
    return {{luma, luma + target.pitch[0]},
            target.plane[1] + ptrdiff_t{y / 2} * target.pitch[1],
            target.pitch[0],
            target.pitch[1]};
}

/// A RenderRow that leaves the pixels to Renderer, which has
/// - struct Block, what it keeps of a block from row pair to row pair;
/// - ColumnRange plan(block, first, second, last): the columns of the block between these segments,
///   from their first one on, that it is going to render row pair by row pair; empty if none;
/// - void renderBlock(block, target): renders these columns of the next row pair;
/// - void renderSegment(target, segment): renders other columns of a row pair.
template <class Renderer>
static inline void walkRow(const Renderer& renderer, const BlockGrid& grid, const ZPR_Image& target,
                           const BlockRow& blocks) {
    // So many blocks at a time, through all row pairs: source rows that two of them share are still
    // in the nearest cache for the second.
    constexpr int32_t kTile = 16;
    const int32_t y0 = blocks.row * kBlockSize;
    if (target.height <= y0) return;
    const int32_t yEnd = target.height - y0 > kBlockSize ? y0 + kBlockSize : target.height;
    const int32_t lastCol = grid.cols - 1;
    const int32_t left = blocks.spans[0].xStart;
    const int32_t right = kBlockSize * lastCol + blocks.spans[lastCol].xEnd;
    const ColumnRange all{left > 0 ? left : 0, right < grid.outWidth ? right : grid.outWidth};
    const auto columnsOf = [&](int32_t col) -> ColumnRange {
        const int32_t from = kBlockSize * col;
        const bool isCut = col < lastCol && all.end > from + kBlockSize;
        return {all.begin > from ? all.begin : from, isCut ? from + kBlockSize : all.end};
    };
    const auto segmentAt = [&](int32_t y, int32_t col, const EdgeSteps& edge) {
        return segmentOf(y, columnsOf(col), edge, blocks.spans[col]);
    };

    for (int32_t tile = 0; tile < grid.cols; tile += kTile) {
        const int32_t tileEnd = tile + kTile < grid.cols ? tile + kTile : grid.cols;
        typename Renderer::Block planned[kTile];
        ColumnRange plannedColumns[kTile];
        for (int32_t col = tile; col < tileEnd; ++col) {
            EdgeSteps& edge = blocks.edges[col];
            edge = edgesFrom(blocks.deltas[col]);
            EdgeSteps second = edge;
            EdgeSteps last = edge;
            stepDown(second, 1);
            stepDown(last, (yEnd - y0) / 2 - 1);
            plannedColumns[col - tile] =
                renderer.plan(planned[col - tile], segmentAt(y0, col, edge),
                              segmentAt(y0 + 2, col, second), segmentAt(yEnd - 2, col, last));
        }
        for (int32_t y = y0; y < yEnd; y += 2) {
            const TargetRowPair pair = rowPair(target, y);
            for (int32_t col = tile; col < tileEnd; ++col) {
                const ColumnRange& done = plannedColumns[col - tile];
                const bool isPlanned = done.begin < done.end;
                if (isPlanned) {
                    renderer.renderBlock(planned[col - tile], pair);
                    if (done.end == columnsOf(col).end) continue;
                }
                EdgeSteps& edge = blocks.edges[col];
                const Segment s = segmentAt(y, col, edge);
                renderer.renderSegment(pair, isPlanned ? s.between(done.end, s.columns.end) : s);
                stepDown(edge, 1);
            }
        }
    }
}

}  // namespace qlx::zpr_framehold
