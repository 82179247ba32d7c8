#include "warp/segment.h"

#include <algorithm>

namespace qlx::zpr_framehold {

namespace {

constexpr int kFractionShift = kOffsetShift - 4;
constexpr int32_t kFractionMask = (1 << kOffsetShift) - 1;

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

/// Source position of an output pixel: whole pixel and fraction in 1/16.
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
[[gnu::always_inline]] inline void renderLuma(const Taps& taps, const TargetRowPair& target,
                                              int32_t x, const Position<typename Taps::Offset>& p,
                                              int shift) {
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
    const int32_t middle = groupAtOrAfter(s.columns.begin);
    const int32_t tail = groupAtOrBefore(s.columns.end);
    renderPixels(s.columns.begin, std::min(middle, s.columns.end));
    for (int32_t x = middle; x < tail; x += 2) {
        renderPixelPair(taps, target, x, locate(x, s.y, ax, ay));
        ax += 2 * Offset{s.slopeX};
        ay += 2 * Offset{s.slopeY};
    }
    renderPixels(tail, s.columns.end);
}

constexpr int32_t kNeighbourRows = 2;

}  // namespace

void renderSegment_scalar(const SourceFrame& source, const TargetRowPair& target,
                          const Segment& s) {
    if (liesInside(source, s, kNeighbourRows)) {
        renderSegment(InsideTaps(source), target, s);
    } else {
        renderSegment(ClampedTaps(source), target, s);
    }
}

}  // namespace qlx::zpr_framehold
