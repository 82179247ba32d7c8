#pragma once

#include "warp/kernels/row_walk.h"

// What the vector kernels have in common: they render output in strips, and cut the strips into
// pieces where the picture is scaled down or turned so much that a strip's taps are too far apart.
// Local to each kernel's file; see segment.h.

namespace qlx::zpr_framehold {

namespace {

/// Output columns of a strip. The taps of a piece of it lie in 17 bytes of four rows.
constexpr int32_t kStrip = 16;
constexpr int32_t kStripEvens = kStrip / 2;

/// Into how many pieces the strips of a segment have to be cut; 0 if that is too many, or the
/// columns run backwards.
int piecesOf(const Segment& s) {
    const int32_t rise = s.slopeY < 0 ? -s.slopeY : s.slopeY;
    for (int pieces = 1; pieces <= 4; pieces *= 2) {
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

/// Fractional bits of source positions. Those of groups have no more, as slopes are even.
constexpr int kPositionShift = 16;

/// Source position of a segment's first even pixel, and the step from there to the next even one.
/// From row pair to row pair of a block all of it changes by the same amount.
struct SourcePositions {
    int32_t x;
    int32_t y;
    int32_t stepX;
    int32_t stepY;

    /// Their change since `earlier`.
    SourcePositions minus(const SourcePositions& earlier) const {
        const auto minus = [](int32_t a, int32_t b) {
            return static_cast<int32_t>(int64_t{a} - b);
        };
        return {minus(x, earlier.x), minus(y, earlier.y), minus(stepX, earlier.stepX),
                minus(stepY, earlier.stepY)};
    }

    /// The change past the last row pair may leave the range.
    [[gnu::always_inline]] void add(const SourcePositions& change) {
        const auto plus = [](int32_t a, int32_t b) {
            return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
        };
        x = plus(x, change.x);
        y = plus(y, change.y);
        stepX = plus(stepX, change.stepX);
        stepY = plus(stepY, change.stepY);
    }
};

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

/// Renders whole groups of a segment that lies inside and is a strip long at least. What is left
/// of the last strip is rendered with some pixels before it, for the second time.
template <class Kernel, int kPieces>
[[gnu::noinline]] void renderGroups(const SourceFrame& source, const TargetRowPair& target,
                                    const Segment& s, int32_t begin, int32_t end) {
    constexpr int32_t kStep = Kernel::kStep;
    const Kernel kernel(source);
    const auto render = [&](int32_t from, int32_t to) {
        kernel.template render<kPieces>(target, positionsOf(s, from), {from, to});
    };
    const int32_t whole = begin + ((end - begin) & -kStep);
    if (begin < whole) render(begin, whole);
    if (whole == end) return;
    if (kStep > kStrip) {
        renderGroups<typename Kernel::Narrow, kPieces>(source, target, s, whole, end);
    } else {
        render(end - kStrip, end);
    }
}

/// The Renderer for walkRow, by Kernel, which has
/// - constexpr int32_t kStep, the columns it renders at a time: a strip or more;
/// - class Narrow, the kernel for a single strip;
/// - void render<kPieces>(target, positions, columns) const: renders whole steps of a segment that lies
///   inside with its strips cut into kPieces.
template <class Kernel>
class StripRenderer {
public:
    struct Block {
        ColumnRange columns;
        int pieces;
        SourcePositions positions;  // at the current row pair
        SourcePositions change;     // to the next
    };

    explicit StripRenderer(const SourceFrame& source)
        : source_(source), kernel_(source),
          fits_(source.width >= kStrip + 2 && source.width <= kLargest &&
                source.height <= kLargest && source.lumaPitch <= INT16_MAX &&
                source.chromaPitch <= INT16_MAX) {}

    ColumnRange plan(Block& block, const Segment& first, const Segment& second,
                     const Segment& last) const {
        const int32_t begin = first.columns.begin;
        const int32_t end = begin + ((first.columns.end - begin) & -kStep);
        constexpr ColumnRange kNone{0, 0};
        if (begin % kGroup != 0 || end <= begin || !liesInside(first) || !liesInside(last)) {
            return kNone;
        }
        // Steps finer than source positions would be lost.
        if (((first.ax | first.ay | second.ax | second.ay) & 3) != 0) return kNone;
        const int atFirst = piecesOf(first);
        const int atLast = piecesOf(last);
        block.pieces = atFirst > atLast ? atFirst : atLast;
        if (atFirst == 0 || atLast == 0 || block.pieces > 2) return kNone;
        block.columns = {begin, end};
        block.positions = positionsOf(first, begin);
        block.change = positionsOf(second, begin).minus(block.positions);
        return block.columns;
    }

    [[gnu::always_inline]] void renderBlock(Block& block, const TargetRowPair& target) const {
        if (block.pieces == 1) {
            kernel_.template render<1>(target, block.positions, block.columns);
        } else {
            kernel_.template render<2>(target, block.positions, block.columns);
        }
        block.positions.add(block.change);
    }

    void renderSegment(const TargetRowPair& target, const Segment& s) const {
        const int32_t begin = groupAtOrAfter(s.columns.begin);
        const int32_t end = groupAtOrBefore(s.columns.end);
        const int pieces = end - begin < kStrip ? 0 : piecesOf(s);
        if (pieces == 0) {
            renderSegment_scalar(source_, target, s);
        } else if (liesInside(s)) {
            renderInside(target, s, {begin, end}, pieces);
        } else if (end - begin >= 2 * kStrip && (liesInside(s.between(begin, begin + kStrip)) ||
                                                 liesInside(s.between(end - kStrip, end)))) {
            const int32_t middle = groupAtOrBefore((begin + end) / 2);
            renderSegment(target, s.between(s.columns.begin, middle));
            renderSegment(target, s.between(middle, s.columns.end));
        } else {
            renderSegment_scalar(source_, target, s);
        }
    }

private:
    static constexpr int32_t kStep = Kernel::kStep;
    static constexpr int32_t kLargest = 1 << 14;  // positions past the end are in range, too

    /// A segment that lies inside, the columns `groups` of it with its strips cut into pieces.
    void renderInside(const TargetRowPair& target, const Segment& s, ColumnRange groups,
                      int pieces) const {
        const auto renderPixels = [&](int32_t from, int32_t to) {
            if (from < to) renderSegment_scalar(source_, target, s.between(from, to));
        };
        renderPixels(s.columns.begin, groups.begin);
        if (pieces == 1) {
            renderGroups<Kernel, 1>(source_, target, s, groups.begin, groups.end);
        } else if (pieces == 2) {
            renderGroups<Kernel, 2>(source_, target, s, groups.begin, groups.end);
        } else {
            renderGroups<Kernel, 4>(source_, target, s, groups.begin, groups.end);
        }
        renderPixels(groups.end, s.columns.end);
    }

    /// Strips read one row more than their taps need.
    bool liesInside(const Segment& s) const {
        constexpr int32_t kNeighbourRows = 3;
        return fits_ && qlx::zpr_framehold::liesInside(source_, s, kNeighbourRows);
    }

    const SourceFrame source_;
    const Kernel kernel_;
    const bool fits_;  // positions in 32 bits, pitches in 16, and a load in a row
};

}  // namespace

}  // namespace qlx::zpr_framehold
