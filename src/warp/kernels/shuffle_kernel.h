#pragma once

#include "warp/block_grid.h"
#include "warp/kernels/vectors_sse41.h"
#include "warp/row_kernels.h"

#include <cstring>

// The x86 kernel, for vectors V of one or more strips: one load and one shuffle give a source row's
// byte pairs for all even pixels of a piece, the same shuffle on a load one byte later those for
// the odd ones. Where the pixels of a piece differ by a row, the pairs of both rows are merged.
// Local to each kernel's file; see row_kernels.h.

namespace qlx::zpr_framehold {

namespace {

/// The same value for each lane of a vector.
template <class Lane>
struct alignas(32) Repeated {
    Lane lanes[32 / sizeof(Lane)] = {};

    constexpr Repeated(int32_t value) {
        for (Lane& lane : lanes) lane = static_cast<Lane>(value);
    }
};

/// Numbers that the loops need in vectors, kept in memory: the compiler would make them anew for
/// each segment.
struct Constants {
    Repeated<int16_t> sixteen{16};
    Repeated<int16_t> signBit{0x8000};
    Repeated<int16_t> bothBytes{0x0101};
    Repeated<int16_t> firstPair{0x0100};
    Repeated<int16_t> highNibble{0xf000};
    Repeated<int16_t> scaled255{255 << 4};
    Repeated<int16_t> middleWeights{0x0808};
    Repeated<int16_t> evenBytes{0xfefe};
    Repeated<int16_t> highByte{0xff00};
    Repeated<int32_t> one{1};
    Repeated<int32_t> oddParity{0x00010001};
};

constexpr Constants kConstants;

/// The constants, without the compiler's knowing what they are.
[[gnu::always_inline]] inline const Constants& opaqueConstants() {
    const Constants* constants = &kConstants;
    asm("" : "+r"(constants));
    return *constants;
}

/// Where each piece has its upper source row: at its first even pixel, or its last one where rows
/// decrease along it.
template <int kPieces>
struct UpperEnds {
    static constexpr int kEvens = kStripEvens / kPieces;
    static constexpr int kStrips = kBlockSize / kStrip;

    alignas(32) int32_t numbers[kStrips * kPieces] = {};  // of that pixel, for each piece
    alignas(32) int16_t distances[2 * kStripEvens] = {};  // of two strips' even pixels from it

    explicit constexpr UpperEnds(bool isLast) {
        const int end = isLast ? kEvens - 1 : 0;
        for (int i = 0; i < kStrips * kPieces; ++i) numbers[i] = i * kEvens + end;
        for (int i = 0; i < 2 * kStripEvens; ++i) {
            distances[i] = static_cast<int16_t>(i % kEvens - end);
        }
    }
};

template <int kPieces>
constexpr UpperEnds<kPieces> kUpperEnds[2] = {UpperEnds<kPieces>(false), UpperEnds<kPieces>(true)};

/// Numbers of two strips' even pixels.
alignas(32) constexpr int16_t kEvenNumbers[2 * kStripEvens] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                               8, 9, 10, 11, 12, 13, 14, 15};

/// Where the bytes of a vector's pieces start. Each strip is cut into kPieces, so narrow that the
/// taps of a piece lie in 17 bytes of four rows.
template <class V, int kPieces>
struct PieceStarts {
    static constexpr int kCount = V::kStrips * kPieces;
    static constexpr int32_t kPixels = kStrip / kPieces;
    static constexpr int32_t kEvens = kPixels / 2;

    const uint8_t* start[kCount];

    /// All ones in the words that are not of the piece `j` of their strip.
    [[gnu::always_inline]] static V others(int j) {
        int32_t words[kCount];
        for (int p = 0; p < kCount; ++p) words[p] = p % kPieces == j ? 0 : -1;
        return V::template spread<kPieces>(words);
    }

    /// The same columns one source row further down.
    [[gnu::always_inline]] PieceStarts down(ptrdiff_t pitch) const {
        PieceStarts below;
        for (int p = 0; p < kCount; ++p) below.start[p] = start[p] + pitch;
        return below;
    }

    /// The byte pairs at `index` of each piece's 16 bytes, zero for negative ones.
    [[gnu::always_inline]] V gather(ptrdiff_t offset, V index) const {
        if (kPieces == 1) {
            return TableLookupBytesOr0(V::loadStrips(start, kPieces, offset), index);
        }
        V pairs = TableLookupBytesOr0(V::loadStrips(start, kPieces, offset), index | others(0));
        for (int j = 1; j < kPieces; ++j) {
            pairs = pairs | TableLookupBytesOr0(V::loadStrips(start + j, kPieces, offset),
                                                index | others(j));
        }
        return pairs;
    }
};

/// Fractions of a segment's source positions, and their steps along its vectors.
template <class V, int kPieces>
struct Fractions {
    V firstX;  // of the first vector's even pixels, less a half
    V firstY;
    V stepX;  // to the next vector
    V stepY;
    V fromFirstX;  // from a piece's first even pixel, less a half: fractions below have run over
    V fromUpperY;  // from that with the upper row: likewise

    // Columns from the piece's first one on, as byte pairs (column, column + 1); one less than that
    // where the fractions have run over.
    V pairIndex;

    [[gnu::always_inline]] void set(const Constants& constants, const SourcePositions& positions) {
        const V evens = V::Load(kEvenNumbers);
        const V pieceEvens = V::Load(kUpperEnds<kPieces>[0].distances);
        const V evenX = V::setLow(positions.stepX);
        const V evenY = V::setLow(positions.stepY);
        firstX = V::setLow(positions.x) + evens * evenX + V::Load(constants.signBit.lanes);
        firstY = V::setLow(positions.y) + evens * evenY;
        stepX = ShiftLeft<V::kLogEvens>(evenX);
        stepY = ShiftLeft<V::kLogEvens>(evenY);
        fromFirstX = pieceEvens * evenX + V::Load(constants.signBit.lanes);
        fromUpperY = V::Load(kUpperEnds<kPieces>[positions.stepY < 0].distances) * evenY;
        const V columns = pieceEvens * V::setHigh(positions.stepX) + MulHigh(pieceEvens, evenX);
        pairIndex =
            columns * V::Load(constants.bothBytes.lanes) + V::Load(constants.firstPair.lanes);
    }
};

/// Where the bytes of a segment's pieces start, as offsets in the source planes.
template <class V, int kPieces>
struct PieceOffsets {
    using P = PieceStarts<V, kPieces>;
    using N = typename V::Numbers;
    static constexpr int kBlockPieces = kBlockSize / P::kPixels;

    int32_t luma[kBlockPieces];
    int32_t chroma[kBlockPieces];
    int32_t nextChroma[kBlockPieces];  // one luma row further down
    int32_t parity[kBlockPieces];      // turns the index of a pair into that of its chroma pair
    int32_t back[kBlockPieces];        // bytes from the load's start to the first tap, only set
    bool atEdge;                       // if loads from the first tap would leave the row

    /// Of as many pieces as a block has, whether or not the segment and the source have them.
    [[gnu::always_inline]] void set(const Constants& constants, const SourceFrame& source,
                                    const SourcePositions& positions) {
        const auto& firstEnds = kUpperEnds<kPieces>[0];
        const auto& upperEnds = kUpperEnds<kPieces>[positions.stepY < 0];
        const N one = N::LoadU(constants.one.lanes);
        const N chromaPitch = N::Set(static_cast<int32_t>(source.chromaPitch));
        const N lumaPitch = N::Set(static_cast<int32_t>(source.lumaPitch));
        const N lastLoad = N::Set(source.width - kStrip - 1);
        atEdge = false;
        for (int k = 0; k < kBlockPieces; k += N::kLanes) {
            const N column = ShiftRight<kPositionShift>(
                N::Set(positions.x) + N::LoadU(firstEnds.numbers + k) * N::Set(positions.stepX));
            const N row = ShiftRight<kPositionShift>(
                N::Set(positions.y) + N::LoadU(upperEnds.numbers + k) * N::Set(positions.stepY));
            const N base = Min(column, lastLoad);
            if (!AllFalse(Gt(column, base))) {
                if (!atEdge) std::memset(back, 0, sizeof back);
                atEdge = true;
                StoreU((column - base) * N::Set(0x01010101), back + k);
            }
            const N odd = base & one;
            const N chromaStart =
                WidenMulPairwiseAdd(ShiftRight<1>(row), chromaPitch) + (base - odd);
            StoreU(WidenMulPairwiseAdd(row, lumaPitch) + base, luma + k);
            StoreU(chromaStart, chroma + k);
            StoreU(chromaStart + WidenMulPairwiseAdd(row & one, chromaPitch), nextChroma + k);
            // The bytes (0, -1) twice for even columns, (1, 0) for odd ones.
            StoreU(AddBytes(odd - one, N::LoadU(constants.oddParity.lanes)), parity + k);
        }
    }
};

/// Fetches what the row pairs to come need: the walk across the source rows is too slanted for the
/// processor to foresee.
class Fetcher {
public:
    Fetcher(const SourceFrame& source, const TargetRowPair& target)
        : lumaPitch_(source.lumaPitch), luma_(2 * kRowPairsAhead * source.lumaPitch),
          chroma_(kRowPairsAhead * source.chromaPitch),
          target_{ahead(target.luma[0], 2 * kTargetPairsAhead * target.lumaPitch),
                  ahead(target.luma[1], 2 * kTargetPairsAhead * target.lumaPitch),
                  ahead(target.chroma, kTargetPairsAhead * target.chromaPitch)} {}

    /// For the cache line's worth of target columns from x on, whose taps start at these bytes.
    [[gnu::always_inline]] void fetch(const uint8_t* luma, const uint8_t* chroma, int32_t x) const {
        constexpr int kSecondCache = 2;  // the first one is too small for so many rows
        const auto fetch = [](uintptr_t address) {
            __builtin_prefetch(reinterpret_cast<const void*>(address), 0, kSecondCache);
        };
        fetch(ahead(luma, luma_));
        fetch(ahead(luma, luma_) + static_cast<uintptr_t>(lumaPitch_));
        fetch(ahead(chroma, chroma_));
        for (const uintptr_t row : target_) {
            __builtin_prefetch(reinterpret_cast<const void*>(row + static_cast<uintptr_t>(x)), 1);
        }
    }

private:
    static constexpr int kRowPairsAhead = 3;
    static constexpr int kTargetPairsAhead = 1;

    /// As a number: what is ahead may lie beyond the planes, where pointers must not go.
    [[gnu::always_inline]] static uintptr_t ahead(const uint8_t* byte, ptrdiff_t offset) {
        return reinterpret_cast<uintptr_t>(byte) + static_cast<uintptr_t>(offset);
    }

    ptrdiff_t lumaPitch_;
    ptrdiff_t luma_;
    ptrdiff_t chroma_;
    uintptr_t target_[3];
};

/// The high bytes of the words for even and odd pixels, by turns.
template <class V>
[[gnu::always_inline]] inline V highBytes(const Constants& constants, V even, V odd) {
    if constexpr (V::kBlends) {
        return IfThenElse(V::Load(constants.highByte.lanes), odd, ShiftRight<8>(even));
    } else {
        return ShiftRight<8>(even) | (odd & V::Load(constants.highByte.lanes));
    }
}

/// Renders the columns x to end, whole vectors, of a segment that lies inside.
template <class V, int kPieces>
[[gnu::always_inline]] inline void renderStrips(const Constants& constants,
                                                const SourceFrame& source,
                                                const TargetRowPair& target,
                                                const Fractions<V, kPieces>& fractions,
                                                const PieceOffsets<V, kPieces>& offsets, int32_t x,
                                                int32_t end) {
    using P = PieceStarts<V, kPieces>;
    constexpr int32_t kStep = V::kStrips * kStrip;
    constexpr int32_t kCacheLine = 64;

    // Copies, since the stores to the target could change the originals for all the compiler knows.
    const uint8_t* const sourceLuma = source.luma;
    const uint8_t* const sourceChroma = source.chroma;
    const ptrdiff_t lumaPitch = source.lumaPitch;
    uint8_t* const targetLuma[2] = {target.luma[0], target.luma[1]};
    uint8_t* const targetChroma = target.chroma;
    const Fetcher fetcher(source, target);

    V fractionX = fractions.firstX;
    V fractionY = fractions.firstY;

    for (int k = 0; x < end; k += P::kCount, x += kStep) {
        P luma;
        P chroma;
        P nextChroma;
        for (int p = 0; p < P::kCount; ++p) {
            luma.start[p] = sourceLuma + offsets.luma[k + p];
            chroma.start[p] = sourceChroma + offsets.chroma[k + p];
            nextChroma.start[p] = sourceChroma + offsets.nextChroma[k + p];
        }
        if (k % (P::kCount * kCacheLine / kStep) == 0) {
            fetcher.fetch(luma.start[0], chroma.start[0], x);
        }

        V index = SubBytes(fractions.pairIndex, LtSigned(fractionX, fractions.fromFirstX));
        if (offsets.atEdge) index = AddBytes(index, V::template spread<kPieces>(offsets.back + k));
        const V isUpper = Ge(fractionY, fractions.fromUpperY);
        // Byte pairs of all pixels, of each from its own one of two rows.
        const auto gather = [&](const P& upper, const P& lower, ptrdiff_t offset, V all) {
            if constexpr (V::kBlends || kPieces > 1) {
                return IfThenElse(isUpper, upper.gather(offset, all), lower.gather(offset, all));
            } else {
                // Inverted, an index takes nothing.
                const V ofLower = all ^ isUpper;
                const V ofUpper = ofLower ^ V::Set(-1);
                return upper.gather(offset, ofUpper) | lower.gather(offset, ofLower);
            }
        };

        const V parity = V::template spread<kPieces>(offsets.parity + k);
        const V chromaIndex = (AddBytes(index, parity) & V::Load(constants.evenBytes.lanes)) |
                              V::Load(constants.firstPair.lanes);
        StoreU(gather(chroma, nextChroma, 0, chromaIndex), targetChroma + x);

        // Weights (16 - fx, fx) of a pair's bytes, and of the rows.
        const V weightsX = MulHighSigned(fractionX & V::Load(constants.highNibble.lanes),
                                         V::Load(constants.scaled255.lanes)) +
                           V::Load(constants.middleWeights.lanes);
        const V weight1 = ShiftRight<12>(fractionY);
        const V weight0 = V::Load(constants.sixteen.lanes) - weight1;

        V h[3][2];  // of each row, even and odd pixels
        for (int row = 0; row < 3; ++row) {
            const P below = luma.down(lumaPitch);
            for (int odd = 0; odd < 2; ++odd) {
                h[row][odd] = SatWidenMulPairwiseAdd(gather(luma, below, odd, index), weightsX);
            }
            luma = below;
        }
        V sums[2][2];
        for (int row = 0; row < 2; ++row) {
            for (int odd = 0; odd < 2; ++odd) {
                sums[row][odd] = h[row][odd] * weight0 + h[row + 1][odd] * weight1;
            }
        }
        for (int row = 0; row < 2; ++row) {
            StoreU(highBytes(constants, sums[row][0], sums[row][1]), targetLuma[row] + x);
        }

        fractionX = fractionX + fractions.stepX;
        fractionY = fractionY + fractions.stepY;
    }
}

template <class V, int kPieces>
[[gnu::always_inline]] inline void renderCut(const Constants& constants, const SourceFrame& source,
                                             const TargetRowPair& target,
                                             const SourcePositions& positions,
                                             ColumnRange columns) {
    PieceOffsets<V, kPieces> offsets;
    Fractions<V, kPieces> fractions;
    offsets.set(constants, source, positions);
    fractions.set(constants, positions);
    renderStrips(constants, source, target, fractions, offsets, columns.begin, columns.end);
}

/// Renders some of the strips, whole vectors.
template <class V>
[[gnu::always_inline]] inline void renderColumns(const Constants& constants,
                                                 const SourceFrame& source,
                                                 const TargetRowPair& target,
                                                 const SourcePositions& positions,
                                                 ColumnRange columns, int32_t pieces) {
    if (pieces == 1) {
        renderCut<V, 1>(constants, source, target, positions, columns);
    } else if (pieces == 2) {
        renderCut<V, 2>(constants, source, target, positions, columns);
    } else {
        renderCut<V, 4>(constants, source, target, positions, columns);
    }
}

}  // namespace

}  // namespace qlx::zpr_framehold
