#include "warp/row_pair.h"

#include <algorithm>
#include <limits>

namespace qlx::zpr_framehold {

namespace {

// Running source offsets are in 2^-18 pixel: 4 bits of 1/16 pixel, and kBlockShift bits each for
// the interpolation down and across a block. Samples use the upper 4 fractional bits.
constexpr int kOffsetShift = 2 * kBlockShift + 4;
constexpr int kFractionShift = 2 * kBlockShift;
constexpr int32_t kFractionMask = (1 << kOffsetShift) - 1;
constexpr int32_t kGroup = 8;

int32_t alignDown(int32_t x) { return x & ~(kGroup - 1); }
int32_t alignUp(int32_t x) { return alignDown(x + kGroup - 1); }

/// One block's share of a row pair. The offsets belong to column xFrom.
struct Segment {
    int32_t y;
    int32_t xFrom;
    int32_t xTo;
    int64_t ax;
    int64_t ay;
    int32_t slopeX;
    int32_t slopeY;
};

/// Reads a source whose taps are known to lie inside.
class InsideTaps {
public:
    using Offset = int32_t;

    explicit InsideTaps(const SourceFrame& source) : source_(source) {}

    int luma(Offset row, Offset column) const {
        return source_.luma[row * source_.lumaPitch + column];
    }
    const uint8_t* chromaPair(Offset row, Offset column) const {
        return source_.chroma + row * source_.chromaPitch + column;
    }

private:
    const SourceFrame& source_;
};

/// Reads the nearest pixel or pair of a source for taps outside it. Offsets of any size.
class ClampedTaps {
public:
    using Offset = int64_t;

    explicit ClampedTaps(const SourceFrame& source) : source_(source) {}

    int luma(Offset row, Offset column) const {
        return source_.luma[nearest(row, source_.height - 1) * source_.lumaPitch +
                            nearest(column, source_.width - 1)];
    }
    const uint8_t* chromaPair(Offset row, Offset column) const {
        return source_.chroma + nearest(row, source_.height / 2 - 1) * source_.chromaPitch +
               nearest(column, source_.width - 2);
    }

private:
    static ptrdiff_t nearest(Offset position, int32_t last) {
        return static_cast<ptrdiff_t>(std::clamp<Offset>(position, 0, last));
    }

    const SourceFrame& source_;
};

/// Where an output pixel comes from: whole source pixel and fraction in 1/16.
template <class Offset>
struct Position {
    Offset x;
    Offset y;
    int fx;
    int fy;
};

template <class Offset>
Position<Offset> locate(int32_t x, int32_t y, Offset ax, Offset ay) {
    return {x + (ax >> kOffsetShift), y + (ay >> kOffsetShift),
            static_cast<int>(ax & kFractionMask) >> kFractionShift,
            static_cast<int>(ay & kFractionMask) >> kFractionShift};
}

uint8_t blend(int a0, int a1, int b0, int b1, int fx, int fy) {
    const int left = 16 * a0 + fy * (b0 - a0);
    const int right = 16 * a1 + fy * (b1 - a1);
    return static_cast<uint8_t>((16 * left + fx * (right - left)) >> 8);
}

/// Output pixel x of both rows, sampled at p from source column p.x + shift on.
/// Deliberate: the second row takes the first one's position, one source row lower.
template <class Taps>
void renderLuma(const Taps& taps, const TargetRowPair& target, int32_t x,
                const Position<typename Taps::Offset>& p, int shift) {
    const typename Taps::Offset column = p.x + shift;
    const int b0 = taps.luma(p.y + 1, column);
    const int b1 = taps.luma(p.y + 1, column + 1);
    target.luma[0][x] =
        blend(taps.luma(p.y, column), taps.luma(p.y, column + 1), b0, b1, p.fx, p.fy);
    target.luma[1][x] =
        blend(b0, b1, taps.luma(p.y + 2, column), taps.luma(p.y + 2, column + 1), p.fx, p.fy);
}

template <class Taps>
void renderChroma(const Taps& taps, const TargetRowPair& target, int32_t x,
                  typename Taps::Offset row, typename Taps::Offset column) {
    const uint8_t* pair = taps.chromaPair(row >> 1, column & ~1);
    target.chroma[x & ~1] = pair[0];
    target.chroma[x | 1] = pair[1];
}

/// Head and tail of a segment: each pixel has its own position.
/// Deliberate: the chroma pair is that of the next source column, unlike in groups.
template <class Taps>
void renderPixel(const Taps& taps, const TargetRowPair& target, int32_t x,
                 const Position<typename Taps::Offset>& p) {
    renderLuma(taps, target, x, p, 0);
    renderChroma(taps, target, x, p.y, p.x + 1);
}

/// Middle of a segment: the position is found for even pixels only, and the odd neighbour is
/// sampled one source column further on.
template <class Taps>
void renderPixelPair(const Taps& taps, const TargetRowPair& target, int32_t x,
                     const Position<typename Taps::Offset>& p) {
    renderLuma(taps, target, x, p, 0);
    renderLuma(taps, target, x + 1, p, 1);
    renderChroma(taps, target, x, p.y, p.x);
}

template <class Taps>
void renderSegment(const Taps& taps, const TargetRowPair& target, const Segment& s) {
    using Offset = typename Taps::Offset;
    auto ax = static_cast<Offset>(s.ax);
    auto ay = static_cast<Offset>(s.ay);
    const auto renderPixels = [&](int32_t from, int32_t to) {
        for (int32_t x = from; x < to; ++x) {
            renderPixel(taps, target, x, locate(x, s.y, ax, ay));
            ax += s.slopeX;
            ay += s.slopeY;
        }
    };
    const int32_t middle = alignUp(s.xFrom);
    const int32_t tail = alignDown(s.xTo);
    renderPixels(s.xFrom, std::min(middle, s.xTo));
    for (int32_t x = middle; x < tail; x += 2) {
        renderPixelPair(taps, target, x, locate(x, s.y, ax, ay));
        ax += 2 * Offset{s.slopeX};
        ay += 2 * Offset{s.slopeY};
    }
    renderPixels(tail, s.xTo);
}

/// Whether the source positions of a segment along one axis, with their neighbours, lie within
/// 0 and size - 1, and the offsets fit into 32 bits up to a group past the end. Positions change
/// evenly, so the two ends tell.
bool staysWithin(int64_t first, int64_t last, int64_t offset, int64_t slope, int32_t pixels,
                 int32_t size) {
    constexpr int kNeighbours = 2;
    const int64_t endOffset = offset + slope * (pixels - 1);
    const int64_t from = first + (offset >> kOffsetShift);
    const int64_t to = last + (endOffset >> kOffsetShift);
    const auto fits = [](int64_t a) {
        return a >= std::numeric_limits<int32_t>::min() && a <= std::numeric_limits<int32_t>::max();
    };
    return std::min(from, to) >= 0 && std::max(from, to) + kNeighbours < size && fits(offset) &&
           fits(endOffset + slope * kGroup);
}

bool liesInside(const SourceFrame& source, const Segment& s) {
    const int32_t pixels = s.xTo - s.xFrom;
    // A segment within one group of eight is walked in an order of its own.
    if (alignUp(s.xFrom) > alignDown(s.xTo)) return false;
    return staysWithin(s.xFrom, s.xTo - 1, s.ax, s.slopeX, pixels, source.width) &&
           staysWithin(s.y, s.y, s.ay, s.slopeY, pixels, source.height);
}

}  // namespace

void renderRowPair(const SourceFrame& source, const TargetRowPair& target, int32_t y,
                   int32_t rowXStart, int32_t rowXEnd, int32_t blockCols, const EdgeSteps* edges,
                   const BlockSpan* spans) {
    for (int32_t b = 0; b < blockCols; ++b) {
        const EdgeSteps& edge = edges[b];
        Segment s;
        s.y = y;
        s.xFrom = std::max(rowXStart, kBlockSize * b);
        s.xTo = b == blockCols - 1 ? rowXEnd : std::min(rowXEnd, kBlockSize * (b + 1));
        s.slopeX = edge.edgeRightX - edge.edgeLeftX;
        s.slopeY = edge.edgeRightY - edge.edgeLeftY;
        // Deliberate: the y offset starts from the span's yStart, not from its xStart.
        s.ax = int64_t{spans[b].xStart} * s.slopeX + int64_t{kBlockSize} * edge.edgeLeftX;
        s.ay = int64_t{spans[b].yStart} * s.slopeY + int64_t{kBlockSize} * edge.edgeLeftY;
        if (liesInside(source, s)) {
            renderSegment(InsideTaps(source), target, s);
        } else {
            renderSegment(ClampedTaps(source), target, s);
        }
    }
}

}  // namespace qlx::zpr_framehold
