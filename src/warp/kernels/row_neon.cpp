// Nothing for processors without NEON, which the scalar kernel renders on.
#if defined(__ARM_NEON)

#include "warp/row_kernels.h"

#include <arm_neon.h>

// Where `pieces` is an argument, it is a constant once all is inlined: loops over pieces are
// unrolled.

namespace qlx::zpr_framehold {

namespace {

// One table look-up takes a tap of each of a strip's even pixels out of 16 bytes of two source
// rows: the index selects column and row together, and nothing where it is too large.
#if defined(__aarch64__)
using TwoRows = uint8x16x2_t;

inline TwoRows twoRows(uint8x16_t upper, uint8x16_t lower) { return {{upper, lower}}; }
inline uint8x8_t TableLookupBytesOr0(const TwoRows& rows, uint8x8_t index) {
    return vqtbl2_u8(rows, index);
}
#else
using TwoRows = uint8x8x4_t;

inline TwoRows twoRows(uint8x16_t upper, uint8x16_t lower) {
    const uint8x16x2_t rows = {{upper, lower}};
    // Taking the halves one by one would go through memory.
    return __builtin_bit_cast(TwoRows, rows);
}
inline uint8x8_t TableLookupBytesOr0(const TwoRows& rows, uint8x8_t index) {
    return vtbl4_u8(rows, index);
}
#endif

constexpr uint8_t kLowerRow = 16;   // added to an index, takes from the lower row
constexpr uint8_t kNothing = 0x80;  // or-ed into an index, takes a zero

/// Each of `pieces` values for an equal share of a strip.
[[gnu::always_inline]] inline uint16x8_t spread(const int32_t* values, int pieces) {
    if (pieces == 1) return vdupq_n_u16(static_cast<uint16_t>(values[0]));
    uint16_t lanes[kStripEvens];
    for (int i = 0; i < kStripEvens; ++i) {
        lanes[i] = static_cast<uint16_t>(values[i * pieces / kStripEvens]);
    }
    return vld1q_u16(lanes);
}

/// 16 bytes of two rows for each piece.
struct PieceRows {
    TwoRows rows[kMaxPieces];

    /// The bytes at `index` of each piece's rows.
    [[gnu::always_inline]] uint8x8_t gather(uint8x8_t index, int pieces) const {
        if (pieces == 1) return TableLookupBytesOr0(rows[0], index);
        uint8x8_t taps = vdup_n_u8(0);
        for (int p = 0; p < pieces; ++p) {
            uint8_t others[kStripEvens];
            for (int i = 0; i < kStripEvens; ++i) {
                others[i] = i * pieces / kStripEvens == p ? uint8_t{0} : kNothing;
            }
            const uint8x8_t mine = vorr_u8(index, vld1_u8(others));
            taps = vorr_u8(taps, TableLookupBytesOr0(rows[p], mine));
        }
        return taps;
    }
};

/// Positions and addresses of a strip's pieces in the source.
struct PieceSources {
    int32_t firstX[kMaxPieces];  // position of each piece's first even pixel
    int32_t upperY[kMaxPieces];  // of that with the upper row
    const uint8_t* luma[kMaxPieces];
    const uint8_t* chroma[2][kMaxPieces];  // that of the upper luma row, and one luma row down
    int32_t odd[kMaxPieces];               // 1 where luma starts one column after chroma
    int32_t back[kMaxPieces];              // bytes from the loads' start to the first tap
    bool isAtEdge;                         // where loads from the first tap would leave the row

    [[gnu::always_inline]] PieceSources(const SourceFrame& source, int32_t x, int32_t y,
                                        int32_t stepX, int32_t stepY, int pieces) {
        const int evens = kStripEvens / pieces;
        const int32_t lastLoad = source.width - kStrip - 1;
        isAtEdge = false;
        for (int p = 0; p < pieces; ++p) {
            const int32_t column = x >> kPositionShift;
            const int32_t row = y >> kPositionShift;
            const int32_t first = column < lastLoad ? column : lastLoad;
            firstX[p] = x;
            upperY[p] = y;
            luma[p] = source.luma + row * source.lumaPitch + first;
            chroma[0][p] = source.chroma + (row >> 1) * source.chromaPitch + (first & ~1);
            chroma[1][p] = chroma[0][p] + (-(row & 1) & source.chromaPitch);
            odd[p] = first & 1;
            back[p] = column - first;
            isAtEdge = isAtEdge || first != column;
            x += evens * stepX;
            y += evens * stepY;
        }
    }
};

/// Fetches what the row pairs to come need.
[[gnu::always_inline]] inline void fetchAhead(const SourceFrame& source,
                                              const TargetRowPair& target,
                                              const PieceSources& strip, int32_t x) {
    constexpr int kRowPairsAhead = 3;
    constexpr int kTargetPairsAhead = 1;
    const uintptr_t luma = reinterpret_cast<uintptr_t>(strip.luma[0]);
    const auto pitch = static_cast<uintptr_t>(source.lumaPitch);
    const auto fetch = [](uintptr_t address) {
        __builtin_prefetch(reinterpret_cast<const void*>(address));
    };
    fetch(luma + 2 * kRowPairsAhead * pitch);
    fetch(luma + (2 * kRowPairsAhead + 1) * pitch);
    fetch(reinterpret_cast<uintptr_t>(strip.chroma[0][0]) +
          kRowPairsAhead * static_cast<uintptr_t>(source.chromaPitch));
    const auto toTarget = static_cast<uintptr_t>(x + 2 * kTargetPairsAhead * target.lumaPitch);
    const auto fetchForWriting = [](uintptr_t address) {
        __builtin_prefetch(reinterpret_cast<const void*>(address), 1);
    };
    fetchForWriting(reinterpret_cast<uintptr_t>(target.luma[0]) + toTarget);
    fetchForWriting(reinterpret_cast<uintptr_t>(target.luma[1]) + toTarget);
    fetchForWriting(reinterpret_cast<uintptr_t>(target.chroma) +
                    static_cast<uintptr_t>(x + kTargetPairsAhead * target.chromaPitch));
}

[[gnu::always_inline]] inline void renderLuma(const TargetRowPair& target, int32_t x,
                                              const PieceSources& strip, ptrdiff_t pitch,
                                              uint8x8_t index, uint16x8_t fractionX,
                                              uint16x8_t fractionY, int pieces) {
    const uint8x8_t nextIndex = vadd_u8(index, vdup_n_u8(1));
    const uint8x8_t fx = vshr_n_u8(vshrn_n_u16(fractionX, 8), 4);
    const uint8x8_t fx0 = vsub_u8(vdup_n_u8(16), fx);
    const uint16x8_t fy = vshrq_n_u16(fractionY, 12);
    const uint16x8_t fy0 = vsubq_u16(vdupq_n_u16(16), fy);

    uint16x8_t h[3][2];  // of each row, even and odd pixels
    uint8x16_t upper[2][kMaxPieces];
    for (int p = 0; p < pieces; ++p) {
        upper[0][p] = vld1q_u8(strip.luma[p]);
        upper[1][p] = vld1q_u8(strip.luma[p] + 1);
    }
    for (int row = 0; row < 3; ++row) {
        PieceRows rows[2];  // from the pieces' first columns, and from the next ones
        for (int p = 0; p < pieces; ++p) {
            const uint8_t* below = strip.luma[p] + (row + 1) * pitch;
            for (int next = 0; next < 2; ++next) {
                const uint8x16_t lower = vld1q_u8(below + next);
                rows[next].rows[p] = twoRows(upper[next][p], lower);
                upper[next][p] = lower;
            }
        }
        const uint8x8_t taps[3] = {rows[0].gather(index, pieces), rows[0].gather(nextIndex, pieces),
                                   rows[1].gather(nextIndex, pieces)};
        for (int odd = 0; odd < 2; ++odd) {
            h[row][odd] = vmlal_u8(vmull_u8(taps[odd], fx0), taps[odd + 1], fx);
        }
    }
    for (int row = 0; row < 2; ++row) {
        uint8x8x2_t pixels;
        for (int odd = 0; odd < 2; ++odd) {
            const uint16x8_t sum = vmulq_u16(h[row][odd], fy0);
            pixels.val[odd] = vshrn_n_u16(vmlaq_u16(sum, h[row + 1][odd], fy), 8);
        }
        vst2_u8(target.luma[row] + x, pixels);
    }
}

[[gnu::always_inline]] inline void renderChroma(const TargetRowPair& target, int32_t x,
                                                const PieceSources& strip, uint8x8_t index,
                                                int pieces) {
    PieceRows rows;
    for (int p = 0; p < pieces; ++p) {
        rows.rows[p] = twoRows(vld1q_u8(strip.chroma[0][p]), vld1q_u8(strip.chroma[1][p]));
    }
    const uint8x8x2_t pairs = {
        {rows.gather(index, pieces), rows.gather(vadd_u8(index, vdup_n_u8(1)), pieces)}};
    vst2_u8(target.chroma + x, pairs);
}

[[gnu::always_inline]] inline void renderPieces(const SourceFrame& source,
                                                const TargetRowPair& target,
                                                const SourcePositions& positions,
                                                ColumnRange columns, int pieces) {
    const int evensPerPiece = kStripEvens / pieces;
    const int32_t stepX = positions.stepX;
    const int32_t stepY = positions.stepY;
    // From a piece's first even pixel to that with the upper row.
    const int32_t toUpper = stepY < 0 ? (evensPerPiece - 1) * stepY : 0;

    // From the piece's first even pixel: fractions, and whole columns.
    const uint16_t kCount[kStripEvens] = {0, 1, 2, 3, 4, 5, 6, 7};
    const uint16x8_t evens =
        vandq_u16(vld1q_u16(kCount), vdupq_n_u16(static_cast<uint16_t>(evensPerPiece - 1)));
    const uint16x8_t fromFirstX = vmulq_n_u16(evens, static_cast<uint16_t>(stepX));
    const uint16x8_t fromUpperY = vsubq_u16(vmulq_n_u16(evens, static_cast<uint16_t>(stepY)),
                                            vdupq_n_u16(static_cast<uint16_t>(toUpper)));
    const auto wholeColumns = [&](uint16x4_t e) {
        const int32x4_t offset = vmulq_n_s32(vreinterpretq_s32_u32(vmovl_u16(e)), stepX);
        return vreinterpret_u16_s16(vshrn_n_s32(offset, kPositionShift));
    };
    const uint16x8_t whole =
        vcombine_u16(wholeColumns(vget_low_u16(evens)), wholeColumns(vget_high_u16(evens)));
    const uint8x8_t firstIndex = vmovn_u16(whole);

    int32_t firstX = positions.x;
    int32_t upperY = positions.y + toUpper;
    for (int32_t x = columns.begin; x < columns.end; x += kStrip) {
        constexpr int32_t kCacheLine = 64;
        const PieceSources strip(source, firstX, upperY, stepX, stepY, pieces);
        if (x % kCacheLine == 0) fetchAhead(source, target, strip, x);

        const uint16x8_t pieceX = spread(strip.firstX, pieces);
        const uint16x8_t pieceY = spread(strip.upperY, pieces);
        const uint16x8_t fractionX = vaddq_u16(pieceX, fromFirstX);
        const uint16x8_t fractionY = vaddq_u16(pieceY, fromUpperY);
        const uint8x8_t carry = vmovn_u16(vcltq_u16(fractionX, pieceX));
        const uint8x8_t isLower = vmovn_u16(vcltq_u16(fractionY, pieceY));
        uint8x8_t index = vsub_u8(firstIndex, carry);
        if (strip.isAtEdge) index = vadd_u8(index, vmovn_u16(spread(strip.back, pieces)));
        const uint8x8_t lowerRow = vand_u8(isLower, vdup_n_u8(kLowerRow));
        renderLuma(target, x, strip, source.lumaPitch, vadd_u8(index, lowerRow), fractionX,
                   fractionY, pieces);

        const uint8x8_t odd = vmovn_u16(spread(strip.odd, pieces));
        const uint8x8_t even = vand_u8(vadd_u8(index, odd), vdup_n_u8(0xfe));
        renderChroma(target, x, strip, vadd_u8(even, lowerRow), pieces);

        firstX += kStripEvens * stepX;
        upperY += kStripEvens * stepY;
    }
}

// Functions of their own, or the loops would have too few registers.
[[gnu::noinline]] void renderWhole(const SourceFrame& source, const TargetRowPair& target,
                                   const Strips& strips) {
    renderPieces(source, target, strips.positions, strips.columns, 1);
}
[[gnu::noinline]] void renderHalves(const SourceFrame& source, const TargetRowPair& target,
                                    const Strips& strips) {
    renderPieces(source, target, strips.positions, strips.columns, 2);
}
[[gnu::noinline]] void renderQuarters(const SourceFrame& source, const TargetRowPair& target,
                                      const Strips& strips) {
    renderPieces(source, target, strips.positions, strips.columns, 4);
}

}  // namespace

void renderStrips_neon(const SourceFrame& source, const TargetRowPair& target, Strips* strips,
                       int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        if (strips[i].pieces == 1) {
            renderWhole(source, target, strips[i]);
        } else if (strips[i].pieces == 2) {
            renderHalves(source, target, strips[i]);
        } else {
            renderQuarters(source, target, strips[i]);
        }
        advance(strips[i]);
    }
}

}  // namespace qlx::zpr_framehold

#endif
