// Nothing for processors without NEON, which the scalar kernels render on.
#if defined(__ARM_NEON)

#include "warp/row_kernels.h"

#include <arm_neon.h>

namespace qlx::zpr_framehold {

namespace {

// One table look-up takes a tap of each of a strip's even pixels out of 16 bytes of two source
// rows: the index selects column and row together.
#if defined(__aarch64__)
using TwoRows = uint8x16x2_t;

inline TwoRows twoRows(uint8x16_t upper, uint8x16_t lower) { return {{upper, lower}}; }
inline uint8x8_t lookUp(const TwoRows& rows, uint8x8_t index) { return vqtbl2_u8(rows, index); }
#else
using TwoRows = uint8x8x4_t;

inline TwoRows twoRows(uint8x16_t upper, uint8x16_t lower) {
    const uint8x16x2_t rows = {{upper, lower}};
    // Taking the halves one by one would go through memory.
    return __builtin_bit_cast(TwoRows, rows);
}
inline uint8x8_t lookUp(const TwoRows& rows, uint8x8_t index) { return vtbl4_u8(rows, index); }
#endif

constexpr uint8_t kLowerRow = 16;   // added to an index, takes from the lower row
constexpr uint8_t kNothing = 0x80;  // or-ed into an index, takes a zero

/// A value for the words of each piece.
template <int kPieces>
inline uint16x8_t spread(const int32_t* values) {
    if (kPieces == 1) return vdupq_n_u16(static_cast<uint16_t>(values[0]));
    uint16_t words[kStripEvens];
    for (int i = 0; i < kStripEvens; ++i) {
        words[i] = static_cast<uint16_t>(values[i * kPieces / kStripEvens]);
    }
    return vld1q_u16(words);
}

/// 16 bytes of two rows for each piece.
template <int kPieces>
struct Tables {
    TwoRows rows[kPieces];

    uint8x8_t lookUp(uint8x8_t index) const {
        if (kPieces == 1) return qlx::zpr_framehold::lookUp(rows[0], index);
        uint8x8_t taps = vdup_n_u8(0);
        for (int p = 0; p < kPieces; ++p) {
            uint8_t others[kStripEvens];
            for (int i = 0; i < kStripEvens; ++i) {
                others[i] = i * kPieces / kStripEvens == p ? uint8_t{0} : kNothing;
            }
            const uint8x8_t mine = vorr_u8(index, vld1_u8(others));
            taps = vorr_u8(taps, qlx::zpr_framehold::lookUp(rows[p], mine));
        }
        return taps;
    }
};

class NeonKernel {
public:
    explicit NeonKernel(const SourceFrame& source) : source_(source) {}

    template <int kPieces>
    [[gnu::noinline]] void render(const TargetRowPair& target, const SourcePositions& positions,
                ColumnRange columns) const {
        constexpr int kEvens = kStripEvens / kPieces;
        const int32_t evenX = positions.stepX;
        const int32_t evenY = positions.stepY;
        // From a piece's first even pixel to that with the upper row.
        const int32_t toUpper = evenY < 0 ? (kEvens - 1) * evenY : 0;

        // From the piece's first even pixel: fractions, and whole columns.
        const uint16_t kCount[kStripEvens] = {0, 1, 2, 3, 4, 5, 6, 7};
        const uint16x8_t evens = vandq_u16(vld1q_u16(kCount), vdupq_n_u16(kEvens - 1));
        const uint16x8_t fromFirstX = vmulq_n_u16(evens, static_cast<uint16_t>(evenX));
        const uint16x8_t fromUpperY = vsubq_u16(vmulq_n_u16(evens, static_cast<uint16_t>(evenY)),
                                                vdupq_n_u16(static_cast<uint16_t>(toUpper)));
        const auto wholeColumns = [&](uint16x4_t e) {
            const int32x4_t offset = vmulq_n_s32(vreinterpretq_s32_u32(vmovl_u16(e)), evenX);
            return vreinterpret_u16_s16(vshrn_n_s32(offset, kPositionShift));
        };
        const uint16x8_t whole =
            vcombine_u16(wholeColumns(vget_low_u16(evens)), wholeColumns(vget_high_u16(evens)));
        const uint8x8_t firstIndex = vmovn_u16(whole);

        int32_t firstX = positions.x;
        int32_t upperY = positions.y + toUpper;
        for (int32_t x = columns.begin; x < columns.end; x += kStrip) {
            Strip<kPieces> strip;
            findPieces(strip, firstX, upperY, evenX, evenY);
            if (x % kCacheLine == 0) fetchAhead(target, strip, x);

            const uint16x8_t pieceX = spread<kPieces>(strip.firstX);
            const uint16x8_t pieceY = spread<kPieces>(strip.upperY);
            const uint16x8_t fractionX = vaddq_u16(pieceX, fromFirstX);
            const uint16x8_t fractionY = vaddq_u16(pieceY, fromUpperY);
            const uint8x8_t carry = vmovn_u16(vcltq_u16(fractionX, pieceX));
            const uint8x8_t isLower = vmovn_u16(vcltq_u16(fractionY, pieceY));
            uint8x8_t index = vsub_u8(firstIndex, carry);
            if (strip.isAtEdge) {
                index = vadd_u8(index, vmovn_u16(spread<kPieces>(strip.back)));
            }
            const uint8x8_t lowerRow = vand_u8(isLower, vdup_n_u8(kLowerRow));
            renderLuma(target, x, strip, vadd_u8(index, lowerRow), fractionX, fractionY);

            const uint8x8_t odd = vmovn_u16(spread<kPieces>(strip.odd));
            const uint8x8_t even = vand_u8(vadd_u8(index, odd), vdup_n_u8(0xfe));
            renderChroma(target, x, strip, vadd_u8(even, lowerRow));

            firstX += kStripEvens * evenX;
            upperY += kStripEvens * evenY;
        }
    }

private:
    static constexpr int32_t kCacheLine = 64;

    template <int kPieces>
    struct Strip {
        int32_t firstX[kPieces];  // position of each piece's first even pixel
        int32_t upperY[kPieces];  // of that with the upper row
        const uint8_t* luma[kPieces];
        const uint8_t* chroma[2][kPieces];  // that of the upper luma row, and one luma row down
        int32_t odd[kPieces];               // 1 where luma starts one column after chroma
        int32_t back[kPieces];              // bytes from the loads' start to the first tap
        bool isAtEdge;                      // where loads from the first tap would leave the row
    };

    template <int kPieces>
    void findPieces(Strip<kPieces>& strip, int32_t firstX, int32_t upperY, int32_t evenX,
                    int32_t evenY) const {
        constexpr int kEvens = kStripEvens / kPieces;
        const int32_t lastLoad = source_.width - kStrip - 1;
        strip.isAtEdge = false;
        for (int p = 0; p < kPieces; ++p) {
            const int32_t column = firstX >> kPositionShift;
            const int32_t row = upperY >> kPositionShift;
            const int32_t first = column < lastLoad ? column : lastLoad;
            strip.firstX[p] = firstX;
            strip.upperY[p] = upperY;
            strip.luma[p] = source_.luma + row * source_.lumaPitch + first;
            strip.chroma[0][p] = source_.chroma + (row >> 1) * source_.chromaPitch + (first & ~1);
            strip.chroma[1][p] = strip.chroma[0][p] + (-(row & 1) & source_.chromaPitch);
            strip.odd[p] = first & 1;
            strip.back[p] = column - first;
            strip.isAtEdge = strip.isAtEdge || first != column;
            firstX += kEvens * evenX;
            upperY += kEvens * evenY;
        }
    }

    template <int kPieces>
    void renderLuma(const TargetRowPair& target, int32_t x, const Strip<kPieces>& strip,
                    uint8x8_t index, uint16x8_t fractionX, uint16x8_t fractionY) const {
        const uint8x8_t nextIndex = vadd_u8(index, vdup_n_u8(1));
        const uint8x8_t fx = vshr_n_u8(vshrn_n_u16(fractionX, 8), 4);
        const uint8x8_t fx0 = vsub_u8(vdup_n_u8(16), fx);
        const uint16x8_t fy = vshrq_n_u16(fractionY, 12);
        const uint16x8_t fy0 = vsubq_u16(vdupq_n_u16(16), fy);
        const ptrdiff_t pitch = source_.lumaPitch;

        uint16x8_t h[3][2];  // of each row, even and odd pixels
        uint8x16_t upper[2][kPieces];
        for (int p = 0; p < kPieces; ++p) {
            upper[0][p] = vld1q_u8(strip.luma[p]);
            upper[1][p] = vld1q_u8(strip.luma[p] + 1);
        }
        for (int row = 0; row < 3; ++row) {
            Tables<kPieces> rows[2];  // from the pieces' first columns, and from the next ones
            for (int p = 0; p < kPieces; ++p) {
                const uint8_t* below = strip.luma[p] + (row + 1) * pitch;
                for (int next = 0; next < 2; ++next) {
                    const uint8x16_t lower = vld1q_u8(below + next);
                    rows[next].rows[p] = twoRows(upper[next][p], lower);
                    upper[next][p] = lower;
                }
            }
            const uint8x8_t taps[3] = {rows[0].lookUp(index), rows[0].lookUp(nextIndex),
                                       rows[1].lookUp(nextIndex)};
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

    template <int kPieces>
    void renderChroma(const TargetRowPair& target, int32_t x, const Strip<kPieces>& strip,
                      uint8x8_t index) const {
        Tables<kPieces> rows;
        for (int p = 0; p < kPieces; ++p) {
            rows.rows[p] = twoRows(vld1q_u8(strip.chroma[0][p]), vld1q_u8(strip.chroma[1][p]));
        }
        const uint8x8x2_t pairs = {{rows.lookUp(index), rows.lookUp(vadd_u8(index, vdup_n_u8(1)))}};
        vst2_u8(target.chroma + x, pairs);
    }

    /// Fetches what the row pairs to come need.
    template <int kPieces>
    [[gnu::always_inline]] void fetchAhead(const TargetRowPair& target, const Strip<kPieces>& strip,
                                           int32_t x) const {
        constexpr int kRowPairsAhead = 3;
        constexpr int kTargetPairsAhead = 1;
        const uintptr_t luma = reinterpret_cast<uintptr_t>(strip.luma[0]);
        const auto pitch = static_cast<uintptr_t>(source_.lumaPitch);
        const auto fetch = [](uintptr_t address) {
            __builtin_prefetch(reinterpret_cast<const void*>(address));
        };
        fetch(luma + 2 * kRowPairsAhead * pitch);
        fetch(luma + (2 * kRowPairsAhead + 1) * pitch);
        fetch(reinterpret_cast<uintptr_t>(strip.chroma[0][0]) +
              kRowPairsAhead * static_cast<uintptr_t>(source_.chromaPitch));
        const auto toTarget = static_cast<uintptr_t>(x + 2 * kTargetPairsAhead * target.lumaPitch);
        const auto fetchForWriting = [](uintptr_t address) {
            __builtin_prefetch(reinterpret_cast<const void*>(address), 1);
        };
        fetchForWriting(reinterpret_cast<uintptr_t>(target.luma[0]) + toTarget);
        fetchForWriting(reinterpret_cast<uintptr_t>(target.luma[1]) + toTarget);
        fetchForWriting(reinterpret_cast<uintptr_t>(target.chroma) +
                        static_cast<uintptr_t>(x + kTargetPairsAhead * target.chromaPitch));
    }

    const SourceFrame source_;
};

}  // namespace

void renderStrips_neon(const SourceFrame& source, const TargetRowPair& target, Strips* strips,
                       int32_t count) {
    const NeonKernel kernel(source);
    for (int32_t i = 0; i < count; ++i) {
        const Strips& s = strips[i];
        if (s.pieces == 1) {
            kernel.render<1>(target, s.positions, s.columns);
        } else if (s.pieces == 2) {
            kernel.render<2>(target, s.positions, s.columns);
        } else {
            kernel.render<4>(target, s.positions, s.columns);
        }
        advance(strips[i]);
    }
}

}  // namespace qlx::zpr_framehold

#endif
