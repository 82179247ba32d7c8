#include "warp/row_renderer.h"

#include "warp/segment.h"

#include <algorithm>

namespace qlx::zpr_framehold {

namespace {

/// Blocks of a tile, all of whose row pairs are rendered before those of the next tile: source rows
/// that two row pairs share are still in the nearest cache for the second.
constexpr int32_t kTileBlocks = 16;

EdgeSteps edgesFrom(const CornerDeltas& d) {
    return {2 * (d.dx[2] - d.dx[0]), 2 * (d.dx[3] - d.dx[1]), 2 * (d.dy[2] - d.dy[0]),
            2 * (d.dy[3] - d.dy[1]), kBlockSize * d.dx[0],    kBlockSize * d.dy[0],
            kBlockSize * d.dx[1],    kBlockSize * d.dy[1]};
}

/// The edges so many row pairs further down.
EdgeSteps edgesBelow(EdgeSteps e, int32_t pairs) {
    e.edgeLeftX += pairs * e.stepLeftX;
    e.edgeLeftY += pairs * e.stepLeftY;
    e.edgeRightX += pairs * e.stepRightX;
    e.edgeRightY += pairs * e.stepRightY;
    return e;
}

TargetRowPair rowPair(const ZPR_Image& target, int32_t y) {
    uint8_t* luma = target.plane[0] + ptrdiff_t{y} * target.pitch[0];
    return {{luma, luma + target.pitch[0]},
            target.plane[1] + ptrdiff_t{y / 2} * target.pitch[1],
            target.pitch[0],
            target.pitch[1]};
}

/// Number of pieces that the strips of a segment have to be cut into; 0 if that is too many, or the
/// columns run backwards.
int32_t piecesOf(const Segment& s) {
    const int32_t rise = s.slopeY < 0 ? -s.slopeY : s.slopeY;
    for (int32_t pieces = 1; pieces <= kMaxPieces; pieces *= 2) {
        // From a piece's first even pixel to its last: columns that fit into the load, and less
        // than one row.
        const int32_t steps = kStripEvens / pieces - 1;
        const int32_t widest = (kStripEvens - 1 - steps) << kOffsetShift;
        if (s.slopeX >= -(1 << kOffsetShift) && s.slopeX * int64_t{steps} <= widest &&
            2 * int64_t{steps} * rise < 1 << kOffsetShift) {
            return pieces;
        }
    }
    return 0;
}

/// The positions of a segment from its column x on.
SourcePositions positionsOf(const Segment& s, int32_t x) {
    constexpr int kSurplus = kOffsetShift - kPositionShift;
    const Segment rest = s.between(x, s.columns.end);
    const auto position = [](int64_t pixel, int64_t offset) {
        return static_cast<int32_t>(pixel * (1 << kPositionShift) + (offset >> kSurplus));
    };
    return {position(x, rest.ax), position(s.y, rest.ay), position(2, 2 * int64_t{s.slopeX}),
            position(0, 2 * int64_t{s.slopeY})};
}

SourcePositions difference(const SourcePositions& a, const SourcePositions& b) {
    const auto minus = [](int32_t p, int32_t q) { return static_cast<int32_t>(int64_t{p} - q); };
    return {minus(a.x, b.x), minus(a.y, b.y), minus(a.stepX, b.stepX), minus(a.stepY, b.stepY)};
}

/// Covers the columns `groups` of a segment, a strip at least. What whole strips leave of them is
/// rendered with some pixels before it, for the second time. Returns how many elements of `strips`
/// are used, 1 or 2.
int32_t coverWithStrips(const Segment& s, ColumnRange groups, int32_t pieces, Strips* strips) {
    const auto between = [&](int32_t begin, int32_t end) -> Strips {
        return {{begin, end}, pieces, positionsOf(s, begin), {}};
    };
    const int32_t whole = groups.begin + ((groups.end - groups.begin) & -kStrip);
    strips[0] = between(groups.begin, whole);
    if (whole == groups.end) return 1;
    strips[1] = between(groups.end - kStrip, groups.end);
    return 2;
}

class RowRenderer {
public:
    RowRenderer(const RowKernels& kernels, const BlockGrid& grid, const SourceFrame& source,
                const ZPR_Image& target, const BlockRow& blocks)
        : kernels_(kernels), grid_(grid), source_(source), target_(target), blocks_(blocks),
          hasStrips_(kernels.renderStrips != nullptr && source.width >= kStrip + 2 &&
                     source.width <= kLargest && source.height <= kLargest &&
                     source.lumaPitch <= INT16_MAX && source.chromaPitch <= INT16_MAX),
          yBegin_(blocks.row * kBlockSize),
          yEnd_(target.height - yBegin_ > kBlockSize ? yBegin_ + kBlockSize : target.height) {
        const int32_t lastCol = grid.cols - 1;
        columns_ = {std::max(blocks.spans[0].xStart, 0),
                    std::min(kBlockSize * lastCol + blocks.spans[lastCol].xEnd, grid.outWidth)};
    }

    void render() const {
        for (int32_t begin = 0; begin < grid_.cols; begin += kTileBlocks) {
            const int32_t end = std::min(begin + kTileBlocks, grid_.cols);
            Tile tile;
            for (int32_t col = begin; col < end; ++col) plan(tile, col);
            for (int32_t y = yBegin_; y < yEnd_; y += 2) renderRowPair(tile, y);
        }
    }

private:
    static constexpr int32_t kLargest = 1 << 14;  // positions past the end are in range, too
    static constexpr int32_t kNeighbourRows = 3;  // strips read one row more than their taps need

    /// Columns of a block from `begin` on that no strips were planned for.
    struct Rest {
        int32_t col;
        int32_t begin;
    };

    struct Tile {
        Strips strips[2 * kTileBlocks];
        int32_t stripsCount = 0;
        Rest rests[kTileBlocks];
        int32_t restCount = 0;
    };

    ColumnRange columnsOf(int32_t col) const {
        const int32_t from = kBlockSize * col;
        const bool isCut = col < grid_.cols - 1 && columns_.end > from + kBlockSize;
        return {std::max(columns_.begin, from), isCut ? from + kBlockSize : columns_.end};
    }

    Segment segmentAt(int32_t y, int32_t col, const EdgeSteps& edge) const {
        const BlockSpan& span = blocks_.spans[col];
        const int32_t slopeX = edge.edgeRightX - edge.edgeLeftX;
        const int32_t slopeY = edge.edgeRightY - edge.edgeLeftY;
        // Deliberate: the y offset starts from the span's yStart, not from its xStart.
        return {y,
                columnsOf(col),
                int64_t{span.xStart} * slopeX + int64_t{kBlockSize} * edge.edgeLeftX,
                int64_t{span.yStart} * slopeY + int64_t{kBlockSize} * edge.edgeLeftY,
                slopeX,
                slopeY};
    }

    bool isInside(const Segment& s) const { return liesInside(source_, s, kNeighbourRows); }

    /// Plans the strips of a block if they lie inside on all row pairs. All else is left for each
    /// row pair to find out.
    void plan(Tile& tile, int32_t col) const {
        EdgeSteps& edge = blocks_.edges[col];
        edge = edgesFrom(blocks_.deltas[col]);
        const Segment first = segmentAt(yBegin_, col, edge);
        const Segment second = segmentAt(yBegin_ + 2, col, edgesBelow(edge, 1));
        const Segment last = segmentAt(yEnd_ - 2, col, edgesBelow(edge, (yEnd_ - yBegin_) / 2 - 1));
        ColumnRange planned{first.columns.begin, first.columns.begin};
        if (const int32_t pieces = piecesFor(first, second, last)) {
            planned.end = groupAtOrBefore(first.columns.end);
            Strips* strips = tile.strips + tile.stripsCount;
            const int32_t count = coverWithStrips(first, planned, pieces, strips);
            for (int32_t i = 0; i < count; ++i) {
                strips[i].change =
                    difference(positionsOf(second, strips[i].columns.begin), strips[i].positions);
            }
            tile.stripsCount += count;
        }
        if (planned.end != first.columns.end) tile.rests[tile.restCount++] = {col, planned.end};
    }

    /// Number of pieces to cut the strips of a block with these segments into; 0 if it cannot be
    /// planned.
    int32_t piecesFor(const Segment& first, const Segment& second, const Segment& last) const {
        const ColumnRange& columns = first.columns;
        if (!hasStrips_ || columns.begin % kGroup != 0 || columns.end - columns.begin < kStrip ||
            !isInside(first) || !isInside(last)) {
            return 0;
        }
        // Steps finer than positions would be lost.
        if (((first.ax | first.ay | second.ax | second.ay) & 3) != 0) return 0;
        const int32_t atFirst = piecesOf(first);
        const int32_t atLast = piecesOf(last);
        return atFirst == 0 || atLast == 0 ? 0 : std::max(atFirst, atLast);
    }

    void renderRowPair(Tile& tile, int32_t y) const {
        const TargetRowPair pair = rowPair(target_, y);
        if (tile.stripsCount > 0) {
            kernels_.renderStrips(source_, pair, tile.strips, tile.stripsCount);
        }
        for (int32_t i = 0; i < tile.restCount; ++i) {
            const Rest& rest = tile.rests[i];
            EdgeSteps& edge = blocks_.edges[rest.col];
            const Segment s = segmentAt(y, rest.col, edge);
            renderSegment(pair, s.between(rest.begin, s.columns.end));
            edge = edgesBelow(edge, 1);
        }
    }

    void renderSegment(const TargetRowPair& target, const Segment& s) const {
        const int32_t begin = groupAtOrAfter(s.columns.begin);
        const int32_t end = groupAtOrBefore(s.columns.end);
        const int32_t pieces = hasStrips_ && end - begin >= kStrip ? piecesOf(s) : 0;
        if (pieces == 0) {
            renderSegment_scalar(source_, target, s);
        } else if (isInside(s)) {
            renderInside(target, s, {begin, end}, pieces);
        } else if (end - begin >= 2 * kStrip && (isInside(s.between(begin, begin + kStrip)) ||
                                                 isInside(s.between(end - kStrip, end)))) {
            const int32_t middle = groupAtOrBefore((begin + end) / 2);
            renderSegment(target, s.between(s.columns.begin, middle));
            renderSegment(target, s.between(middle, s.columns.end));
        } else {
            renderSegment_scalar(source_, target, s);
        }
    }

    /// A segment that lies inside, the columns `groups` of it in strips.
    void renderInside(const TargetRowPair& target, const Segment& s, ColumnRange groups,
                      int32_t pieces) const {
        const auto renderPixels = [&](int32_t from, int32_t to) {
            if (from < to) renderSegment_scalar(source_, target, s.between(from, to));
        };
        renderPixels(s.columns.begin, groups.begin);
        Strips strips[2];
        const int32_t count = coverWithStrips(s, groups, pieces, strips);
        kernels_.renderStrips(source_, target, strips, count);
        renderPixels(groups.end, s.columns.end);
    }

    const RowKernels& kernels_;
    const BlockGrid& grid_;
    const SourceFrame& source_;
    const ZPR_Image& target_;
    const BlockRow& blocks_;
    const bool hasStrips_;
    const int32_t yBegin_;
    const int32_t yEnd_;
    ColumnRange columns_;  // between the outer ends of the spans
};

}  // namespace

void renderRow(const RowKernels& kernels, const BlockGrid& grid, const SourceFrame& source,
               const ZPR_Image& target, const BlockRow& blocks) {
    if (target.height <= blocks.row * kBlockSize) return;
    RowRenderer(kernels, grid, source, target, blocks).render();
}

}  // namespace qlx::zpr_framehold
