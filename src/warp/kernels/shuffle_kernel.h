#pragma once

#include "warp/block_grid.h"
#include "warp/kernels/vectors_sse41.h"
#include "warp/row_kernels.h"

#include <cstring>

// The x86 kernels, for vectors V of one or two strips: one load and one shuffle give a source row's
// byte pairs for all even pixels of a piece, the same shuffle on a load one byte later those for
// the odd ones. Where the pixels of a piece differ by a row, the pairs of both rows are merged.
//
// Where `pieces` is an argument, it is a constant once all is inlined: loops over pieces are
// unrolled. Local to each kernel's file; see row_kernels.h.

namespace qlx::zpr_framehold {

namespace {

constexpr int kBlockStrips = kBlockSize / kStrip;

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
    Repeated<int16_t> sixteen = 16;
    Repeated<int16_t> signBit = 0x8000;
    Repeated<int16_t> bothBytes = 0x0101;
    Repeated<int16_t> firstPair = 0x0100;
    Repeated<int16_t> highNibble = 0xf000;
    Repeated<int16_t> scaled255 = 255 << 4;
    Repeated<int16_t> middleWeights = 0x0808;
    Repeated<int16_t> evenBytes = 0xfefe;
    Repeated<int16_t> highByte = 0xff00;
    Repeated<int32_t> one = 1;
    Repeated<int32_t> oddParity = 0x00010001;
};

constexpr Constants kConstants;

/// The constants, but the compiler does not know what they are.
[[gnu::always_inline]] inline const Constants& opaqueConstants() {
    const Constants* constants = &kConstants;
    asm("" : "+r"(constants));
    return *constants;
}

/// The even pixels with the upper source row of each piece: its first one, or its last one where
/// rows decrease along it.
struct UpperEnds {
    alignas(32) int32_t numbers[kBlockStrips * kMaxPieces] = {};  // of that pixel, for each piece
    alignas(32) int16_t distances[2 * kStripEvens] = {};  // of two strips' even pixels from it

    constexpr UpperEnds(int pieces, bool isLast) {
        const int evens = kStripEvens / pieces;
        const int end = isLast ? evens - 1 : 0;
        for (int i = 0; i < kBlockStrips * kMaxPieces; ++i) numbers[i] = i * evens + end;
        for (int i = 0; i < 2 * kStripEvens; ++i) {
            distances[i] = static_cast<int16_t>(i % evens - end);
        }
    }
};

/// By half the number of pieces, rounded down, and by whether the end is the last.
constexpr UpperEnds kUpperEnds[3][2] = {
    {{1, false}, {1, true}}, {{2, false}, {2, true}}, {{4, false}, {4, true}}};

/// Numbers of two strips' even pixels.
alignas(32) constexpr int16_t kEvenNumbers[2 * kStripEvens] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                               8, 9, 10, 11, 12, 13, 14, 15};

/// Starts of the bytes of a vector's pieces.
template <class V>
struct PieceStarts {
    const uint8_t* start[V::kStrips * kMaxPieces];

    /// The same columns one source row further down.
    [[gnu::always_inline]] PieceStarts down(ptrdiff_t pitch, int pieces) const {
        PieceStarts below;
        for (int p = 0; p < V::kStrips * pieces; ++p) below.start[p] = start[p] + pitch;
        return below;
    }

    /// The byte pairs at `index` of each piece's 16 bytes, zero for negative ones.
    [[gnu::always_inline]] V gather(ptrdiff_t offset, V index, int pieces) const {
        if (pieces == 1) return TableLookupBytesOr0(V::loadStrips(start, 1, offset), index);
        V pairs =
            TableLookupBytesOr0(V::loadStrips(start, pieces, offset), index | others(0, pieces));
        for (int j = 1; j < pieces; ++j) {
            pairs = pairs | TableLookupBytesOr0(V::loadStrips(start + j, pieces, offset),
                                                index | others(j, pieces));
        }
        return pairs;
    }

private:
    /// All ones in the lanes that are not of the piece `j` of their strip.
    [[gnu::always_inline]] static V others(int j, int pieces) {
        int32_t lanes[V::kStrips * kMaxPieces];
        for (int p = 0; p < V::kStrips * pieces; ++p) lanes[p] = p % pieces == j ? 0 : -1;
        return V::spread(lanes, pieces);
    }
};

/// Fractions of a segment's source positions, and their steps along its vectors.
template <class V>
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

    [[gnu::always_inline]] Fractions(const Constants& constants, const SourcePositions& positions,
                                     int pieces) {
        const UpperEnds* const ends = kUpperEnds[pieces / 2];
        const V signBit = V::Load(constants.signBit.lanes);
        const V evens = V::Load(kEvenNumbers);
        const V pieceEvens = V::Load(ends[0].distances);
        const V evenX = V::setLow(positions.stepX);
        const V evenY = V::setLow(positions.stepY);
        firstX = V::setLow(positions.x) + evens * evenX + signBit;
        firstY = V::setLow(positions.y) + evens * evenY;
        stepX = ShiftLeft<V::kLogEvens>(evenX);
        stepY = ShiftLeft<V::kLogEvens>(evenY);
        fromFirstX = pieceEvens * evenX + signBit;
        fromUpperY = V::Load(ends[positions.stepY < 0].distances) * evenY;
        const V columns = pieceEvens * V::setHigh(positions.stepX) + MulHigh(pieceEvens, evenX);
        pairIndex =
            columns * V::Load(constants.bothBytes.lanes) + V::Load(constants.firstPair.lanes);
    }
};

/// Starts of the bytes of a segment's pieces, as offsets in the source planes.
template <class V>
struct PieceOffsets {
    int32_t luma[kBlockStrips * kMaxPieces];
    int32_t chroma[kBlockStrips * kMaxPieces];
    int32_t nextChroma[kBlockStrips * kMaxPieces];  // one luma row further down
    int32_t parity[kBlockStrips * kMaxPieces];  // turns a pair's index into that of its chroma pair
    bool atEdge = false;                        // a load from some first tap would leave the row
    int32_t back[kBlockStrips * kMaxPieces];  // then set: bytes from the loads' start to first taps

    /// Of as many pieces as a block has, whether or not the segment and the source have them.
    [[gnu::always_inline]] PieceOffsets(const Constants& constants, const SourceFrame& source,
                                        const SourcePositions& positions, int pieces) {
        using N = typename V::I32;
        const int blockPieces = kBlockStrips * pieces;
        const UpperEnds* const ends = kUpperEnds[pieces / 2];
        const UpperEnds& upperEnds = ends[positions.stepY < 0];
        const N one = N::LoadU(constants.one.lanes);
        const N lastLoad = N::Set(source.width - kStrip - 1);
        const N lumaPitch = N::Set(static_cast<int32_t>(source.lumaPitch));
        const N chromaPitch = N::Set(static_cast<int32_t>(source.chromaPitch));
        for (int k = 0; k < blockPieces; k += N::kLanes) {
            const N column = ShiftRight<kPositionShift>(
                N::Set(positions.x) + N::LoadU(ends[0].numbers + k) * N::Set(positions.stepX));
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

/// Fetches what the row pairs to come need: source rows are crossed at too steep a slant for the
/// processor to foresee it.
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

/// The high bytes of the lanes for even and odd pixels, by turns.
template <class V>
[[gnu::always_inline]] inline V highBytes(const Constants& constants, V even, V odd) {
    const V highByte = V::Load(constants.highByte.lanes);
    if (V::kBlends) return IfThenElse(highByte, odd, ShiftRight<8>(even));
    return ShiftRight<8>(even) | (odd & highByte);
}

/// Byte pairs of all pixels, of each from its own one of two rows.
template <class V>
[[gnu::always_inline]] inline V gatherRows(const PieceStarts<V>& upper, const PieceStarts<V>& lower,
                                           V isUpper, ptrdiff_t offset, V index, int pieces) {
    if (V::kBlends || pieces > 1) {
        return IfThenElse(isUpper, upper.gather(offset, index, pieces),
                          lower.gather(offset, index, pieces));
    }
    // Inverted, an index takes nothing.
    const V ofLower = index ^ isUpper;
    const V ofUpper = ofLower ^ V::Set(-1);
    return upper.gather(offset, ofUpper, 1) | lower.gather(offset, ofLower, 1);
}

/// Renders columns of a segment, whole vectors; the first one has these positions.
template <class V>
[[gnu::always_inline]] inline void renderPieces(const SourceFrame& source,
                                                const TargetRowPair& target,
                                                const SourcePositions& positions,
                                                ColumnRange columns, int pieces) {
    constexpr int32_t kStep = V::kStrips * kStrip;
    constexpr int32_t kCacheLine = 64;
    const Constants& constants = opaqueConstants();
    const PieceOffsets<V> offsets(constants, source, positions, pieces);
    const Fractions<V> fractions(constants, positions, pieces);

    // Copies, since the stores to the target could change the originals for all the compiler knows.
    const uint8_t* const sourceLuma = source.luma;
    const uint8_t* const sourceChroma = source.chroma;
    const ptrdiff_t lumaPitch = source.lumaPitch;
    uint8_t* const targetLuma[2] = {target.luma[0], target.luma[1]};
    uint8_t* const targetChroma = target.chroma;
    const Fetcher fetcher(source, target);

    V fractionX = fractions.firstX;
    V fractionY = fractions.firstY;
    const int count = V::kStrips * pieces;
    int k = 0;
    for (int32_t x = columns.begin; x < columns.end; x += kStep, k += count) {
        PieceStarts<V> luma;
        PieceStarts<V> chroma;
        PieceStarts<V> nextChroma;
        for (int p = 0; p < count; ++p) {
            luma.start[p] = sourceLuma + offsets.luma[k + p];
            chroma.start[p] = sourceChroma + offsets.chroma[k + p];
            nextChroma.start[p] = sourceChroma + offsets.nextChroma[k + p];
        }
        if (k % (count * kCacheLine / kStep) == 0) {
            fetcher.fetch(luma.start[0], chroma.start[0], x);
        }

        V index = SubBytes(fractions.pairIndex, LtSigned(fractionX, fractions.fromFirstX));
        if (offsets.atEdge) index = AddBytes(index, V::spread(offsets.back + k, pieces));
        const V isUpper = Ge(fractionY, fractions.fromUpperY);

        const V parity = V::spread(offsets.parity + k, pieces);
        const V chromaIndex = (AddBytes(index, parity) & V::Load(constants.evenBytes.lanes)) |
                              V::Load(constants.firstPair.lanes);
        StoreU(gatherRows(chroma, nextChroma, isUpper, 0, chromaIndex, pieces), targetChroma + x);

        // Weights (16 - fx, fx) of a pair's bytes, and of the rows.
        const V weightsX = MulHighSigned(fractionX & V::Load(constants.highNibble.lanes),
                                         V::Load(constants.scaled255.lanes)) +
                           V::Load(constants.middleWeights.lanes);
        const V weight1 = ShiftRight<12>(fractionY);
        const V weight0 = V::Load(constants.sixteen.lanes) - weight1;

        V h[3][2];  // of each row, even and odd pixels
        for (int row = 0; row < 3; ++row) {
            const PieceStarts<V> below = luma.down(lumaPitch, pieces);
            for (int odd = 0; odd < 2; ++odd) {
                h[row][odd] = SatWidenMulPairwiseAdd(
                    gatherRows(luma, below, isUpper, odd, index, pieces), weightsX);
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

/// Renders columns of a segment, whole vectors; the first one has these positions.
template <class V>
[[gnu::always_inline]] inline void renderColumns(const SourceFrame& source,
                                                 const TargetRowPair& target,
                                                 const SourcePositions& positions,
                                                 ColumnRange columns, int pieces) {
    if (pieces == 1) {
        renderPieces<V>(source, target, positions, columns, 1);
    } else if (pieces == 2) {
        renderPieces<V>(source, target, positions, columns, 2);
    } else {
        renderPieces<V>(source, target, positions, columns, 4);
    }
}

}  // namespace

}  // namespace qlx::zpr_framehold
