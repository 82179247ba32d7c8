#pragma once

#include "warp/block_grid.h"
#include "warp/row_kernels.h"

namespace qlx::zpr_framehold {

// Running source offsets are in 2^-18 pixel: 4 bits of 1/16 pixel, and kBlockShift bits each for
// the interpolation down and across a block. Samples use the upper 4 fractional bits.
constexpr int kOffsetShift = 2 * kBlockShift + 4;

/// Pixels of a group, whose odd pixels take the fractions of their even neighbours. Groups start
/// at multiples of their size; pixels before the first and after the last have their own.
constexpr int32_t kGroup = 8;

inline int32_t groupAtOrBefore(int32_t x) { return x & ~(kGroup - 1); }
inline int32_t groupAtOrAfter(int32_t x) { return groupAtOrBefore(x + kGroup - 1); }

/// One block's share of a row pair. The offsets belong to the first column, the slopes are their
/// change from pixel to pixel.
struct Segment {
    int32_t y;
    ColumnRange columns;
    int64_t ax;
    int64_t ay;
    int32_t slopeX;
    int32_t slopeY;

    /// Its columns `begin` to `end`.
    Segment between(int32_t begin, int32_t end) const {
        const int64_t skipped = begin - columns.begin;
        return {y, {begin, end}, ax + skipped * slopeX, ay + skipped * slopeY, slopeX, slopeY};
    }
};

/// True if the source positions of a segment along one axis, with `neighbours` more, lie within 0
/// and size - 1, and the offsets fit into 32 bits up to a block past the end. Positions change
/// evenly, so the two ends decide.
inline bool staysWithin(int64_t first, int64_t last, int64_t offset, int64_t slope, int32_t pixels,
                        int32_t size, int32_t neighbours) {
    const int64_t endOffset = offset + slope * (pixels - 1);
    const int64_t pastEnd = endOffset + slope * kBlockSize;
    const int64_t from = first + (offset >> kOffsetShift);
    const int64_t to = last + (endOffset >> kOffsetShift);
    return from >= 0 && to >= 0 && from < size - neighbours && to < size - neighbours &&
           offset == static_cast<int32_t>(offset) && pastEnd == static_cast<int32_t>(pastEnd);
}

/// True if all taps of a segment lie inside the source: two more columns and `neighbourRows` more
/// rows than the positions. The same holds between two segments of a block that lie inside.
inline bool liesInside(const SourceFrame& source, const Segment& s, int32_t neighbourRows) {
    const int32_t begin = s.columns.begin;
    const int32_t end = s.columns.end;
    // A segment within one group is rendered in an order of its own.
    if (groupAtOrAfter(begin) > groupAtOrBefore(end)) return false;
    return staysWithin(begin, end - 1, s.ax, s.slopeX, end - begin, source.width, 2) &&
           staysWithin(s.y, s.y, s.ay, s.slopeY, end - begin, source.height, neighbourRows);
}

/// Renders any segment, pixel by pixel: the reference of all kernels, and what renders the segments
/// and the columns of segments that they do not.
void renderSegment_scalar(const SourceFrame& source, const TargetRowPair& target, const Segment& s);

}  // namespace qlx::zpr_framehold
