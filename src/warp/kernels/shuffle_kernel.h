#pragma once

#include "warp/kernels/strips.h"
#include "warp/kernels/vectors_sse41.h"

// The x86 kernel, for vectors V of one or more strips: one load and one shuffle give a source row's
// byte pairs for all even pixels of a piece, the same shuffle on a load one byte later those for
// the odd ones. Where the pixels of a piece differ by a row, the pairs of both rows are merged.
// Local to each kernel's file; see segment.h.

namespace qlx::zpr_framehold {

namespace {

/// Numbers that the loops need in vectors, kept in memory: the compiler would make them anew for
/// each segment.
template <class V>
struct Constants {
    V evens = V::evens().opaque();
    V sixteen = V::broadcast(16).opaque();
    V firstPair = V::broadcast(0x0201).opaque();
    V highNibble = V::broadcast(0xf000).opaque();
    V scaled255 = V::broadcast(255 << 4).opaque();
    V evenBytes = V::broadcast(0xfefe).opaque();
    V oddByte = V::broadcast(0x0100).opaque();
    V highByte = V::broadcast(0xff00).opaque();
};

/// A vector's strips, each cut into kPieces so narrow that the taps of a piece lie in 17 bytes of
/// four rows.
template <class V, int kPieces>
struct Pieces {
    static constexpr int kCount = V::kStrips * kPieces;
    static constexpr int32_t kPixels = kStrip / kPieces;
    static constexpr int32_t kEvens = kPixels / 2;

    /// Where the bytes of each piece start.
    const uint8_t* start[kCount];

    /// All ones in the words that are not of the piece `j` of their strip.
    [[gnu::always_inline]] static V others(int j) {
        int32_t words[kCount];
        for (int p = 0; p < kCount; ++p) words[p] = p % kPieces == j ? 0 : -1;
        return V::template spread<kPieces>(words);
    }

    /// The byte pairs at `index` of each piece's 16 bytes, zero for negative ones.
    [[gnu::always_inline]] V gather(ptrdiff_t offset, V index) const {
        if (kPieces == 1) return V::load(start, kPieces, offset).at(index);
        V pairs = V::load(start, kPieces, offset).at(index | others(0));
        for (int j = 1; j < kPieces; ++j) {
            pairs = pairs | V::load(start + j, kPieces, offset).at(index | others(j));
        }
        return pairs;
    }
};

/// Running offsets of a segment's vectors, in 2^-16 pixel without the whole pixels.
template <class V, int kPieces>
struct Line {
    using P = Pieces<V, kPieces>;

    V fractionX;  // of each even pixel
    V firstX;     // of its piece's first one
    V fractionY;
    V upperY;  // of that end of its piece that has the upper source row
    V evenX;   // change from one even pixel to the next
    V evenY;

    // Columns from the piece's first one on, as byte pairs (column, column + 1), and one more: that
    // is taken back where the fractions have not run over.
    V pairIndex;

    [[gnu::always_inline]] void set(const Constants<V>& constants, const Course& course) {
        // Each number's low word twice.
        int32_t words[4];
        (Numbers4::load(&course.ax) >> 2).lowWordsTwice().store(words);
        const V evens = constants.evens;
        const V pieceEvens = evens & V::broadcast(P::kEvens - 1);
        evenX = V::broadcastPair(words + 2);
        evenY = V::broadcastPair(words + 3);
        fractionX = V::broadcastPair(words) + evens * evenX;
        fractionY = V::broadcastPair(words + 1) + evens * evenY;
        firstX = fractionX - pieceEvens * evenX;
        upperY = fractionY - pieceEvens * evenY;
        if (course.evenY < 0) upperY = upperY + V::broadcast(P::kEvens - 1) * evenY;
        const V columns = pieceEvens * V::broadcast(2 + (course.evenX >> kOffsetShift)) +
                          pieceEvens.timesHigh(evenX);
        pairIndex = (columns << 8) + columns + constants.firstPair;
    }
};

/// Where the bytes of a segment's pieces lie, as offsets in the source planes.
template <class V, int kPieces>
struct Taps {
    using P = Pieces<V, kPieces>;
    using N = typename V::Numbers;
    static constexpr int kBlockPieces = kBlockSize / P::kPixels;

    int32_t luma[kBlockPieces];
    int32_t chroma[kBlockPieces];
    int32_t nextChroma[kBlockPieces];  // one luma row further down
    int32_t parity[kBlockPieces];      // turns the index of a pair into that of its chroma pair
    int32_t back[kBlockPieces];        // bytes from the load's start to the first tap, only set
    bool atEdge;                       // if loads from the first tap would leave the row

    /// Of the columns x to end of row y.
    [[gnu::always_inline]] void set(const SourceFrame& source, const Course& course, int32_t y,
                                    int32_t x, int32_t end) {
        const int32_t lastLoad = source.width - kStrip - 1;
        const int32_t toLastPiece = end - P::kPixels - x;
        atEdge = x + toLastPiece + ((course.ax + toLastPiece / 2 * course.evenX) >> kOffsetShift) >
                 lastLoad;
        const N lumaPitch = N::broadcast(static_cast<int32_t>(source.lumaPitch));
        const N chromaPitch = N::broadcast(static_cast<int32_t>(source.chromaPitch));
        // Of the upper source row of the first piece.
        const int32_t upperY = course.ay + (course.evenY < 0 ? (P::kEvens - 1) * course.evenY : 0);
        for (int k = 0; k < kBlockPieces / N::kLanes; ++k) {
            const int first = k * N::kLanes;
            const N piece = N::sequence(first);
            const N even = piece * N::broadcast(P::kEvens);
            const N column =
                ((N::broadcast(course.ax) + even * N::broadcast(course.evenX)) >> kOffsetShift) +
                (even + even + N::broadcast(x));
            const N row =
                ((N::broadcast(upperY) + even * N::broadcast(course.evenY)) >> kOffsetShift) +
                N::broadcast(y);
            const N base = column.least(N::broadcast(lastLoad));
            if (atEdge) ((column - base) * N::broadcast(0x01010101)).store(back + first);
            const N odd = base & N::broadcast(1);
            (row * lumaPitch + base).store(luma + first);
            ((row >> 1) * chromaPitch + (base - odd)).store(chroma + first);
            (((row + N::broadcast(1)) >> 1) * chromaPitch + (base - odd)).store(nextChroma + first);
            // The bytes (0, -1) twice for even columns, (1, 0) for odd ones.
            const N toOdd = N::broadcast(0x01000101);
            (N::broadcast(-0x00ff0100) + ((N::broadcast(0) - odd) & toOdd)).store(parity + first);
        }
    }
};

/// Renders the columns x to end, whole vectors, of a segment that lies inside.
template <class V, int kPieces>
[[gnu::always_inline]] inline void renderStrips(
    const Constants<V>& constants, const SourceFrame& source, const TargetRowPair& target,
    const Line<V, kPieces>& line, const Taps<V, kPieces>& taps, int32_t x, int32_t end) {
    using P = Pieces<V, kPieces>;
    constexpr int32_t kStep = V::kStrips * kStrip;

    // Copies, since the stores to the target could change the originals for all the compiler knows.
    const uint8_t* const sourceLuma = source.luma;
    const uint8_t* const sourceChroma = source.chroma;
    const ptrdiff_t lumaPitch = source.lumaPitch;
    uint8_t* const targetLuma[2] = {target.luma[0], target.luma[1]};
    uint8_t* const targetChroma = target.chroma;

    V fractionX = line.fractionX;
    V firstX = line.firstX;
    V fractionY = line.fractionY;
    V upperY = line.upperY;
    const V stepX = line.evenX << V::kLogEvens;
    const V stepY = line.evenY << V::kLogEvens;

    for (int k = 0; x < end; k += P::kCount, x += kStep) {
        P luma;
        P chroma;
        P nextChroma;
        for (int p = 0; p < P::kCount; ++p) {
            luma.start[p] = sourceLuma + taps.luma[k + p];
            chroma.start[p] = sourceChroma + taps.chroma[k + p];
            nextChroma.start[p] = sourceChroma + taps.nextChroma[k + p];
        }
        V index = line.pairIndex.plusBytes(fractionX.notBelow(firstX));
        if (taps.atEdge) index = index.plusBytes(V::template spread<kPieces>(taps.back + k));
        const V parity = V::template spread<kPieces>(taps.parity + k);
        const V chromaIndex = (index.plusBytes(parity) & constants.evenBytes) | constants.oddByte;
        const V isUpper = fractionY.notBelow(upperY);
        const V isLower = isUpper ^ V::broadcast(-1);

        // Weights (16 - fx, fx) of a pair's bytes, and of the rows.
        const V weightsX =
            (fractionX & constants.highNibble).timesHigh(constants.scaled255) + constants.sixteen;
        const V weight1 = fractionY >> 12;
        const V weight0 = constants.sixteen - weight1;
        V sums[2][2];
        for (int odd = 0; odd < 2; ++odd) {
            V h[3];
            for (int row = 0; row < 3; ++row) {
                const ptrdiff_t offset = row * lumaPitch + odd;
                const V pairs = luma.gather(offset, index | isLower) |
                                luma.gather(offset + lumaPitch, index | isUpper);
                h[row] = pairs.weighted(weightsX);
            }
            sums[0][odd] = h[0] * weight0 + h[1] * weight1;
            sums[1][odd] = h[1] * weight0 + h[2] * weight1;
        }
        for (int row = 0; row < 2; ++row) {
            const V pixels = (sums[row][0] >> 8) | (sums[row][1] & constants.highByte);
            pixels.store(targetLuma[row] + x);
        }
        const V pairs =
            chroma.gather(0, chromaIndex | isLower) | nextChroma.gather(0, chromaIndex | isUpper);
        pairs.store(targetChroma + x);

        firstX = firstX + stepX;
        fractionX = fractionX + stepX;
        upperY = upperY + stepY;
        fractionY = fractionY + stepY;
    }
}

template <class V>
class ShuffleKernel {
public:
    using Narrow = ShuffleKernel<Strip1>;

    static constexpr int32_t kStep = V::kStrips * kStrip;

    explicit ShuffleKernel(const SourceFrame& source) : source_(source) {}

    template <int kPieces>
    [[gnu::always_inline]] void render(const TargetRowPair& target, const Course& course, int32_t y,
                                       ColumnRange columns) const {
        Taps<V, kPieces> taps;
        Line<V, kPieces> line;
        taps.set(source_, course, y, columns.begin, columns.end);
        line.set(constants_, course);
        fetchAhead(target, taps, columns);
        renderStrips(constants_, source_, target, line, taps, columns.begin, columns.end);
    }

private:
    /// Fetches what the row pairs to come need: the walk across the source rows is too slanted for
    /// the processor to foresee.
    template <int kPieces>
    [[gnu::always_inline]] void fetchAhead(const TargetRowPair& target,
                                           const Taps<V, kPieces>& taps,
                                           const ColumnRange& columns) const {
        constexpr int kRowPairsAhead = 3;
        constexpr int kTargetPairsAhead = 1;
        constexpr int32_t kCacheLine = 64;
        constexpr int kSecondCache = 2;  // the first one is too small for so many rows
        // As numbers: what is ahead may lie beyond the planes, where pointers must not go.
        const auto ahead = [](const uint8_t* plane, ptrdiff_t offset) {
            return reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(plane) +
                                                 static_cast<uintptr_t>(offset));
        };
        const auto fetch = [&](const uint8_t* plane, ptrdiff_t offset) {
            __builtin_prefetch(ahead(plane, offset), 0, kSecondCache);
        };
        const auto fetchForWriting = [&](const uint8_t* plane, ptrdiff_t offset) {
            __builtin_prefetch(ahead(plane, offset), 1);
        };
        const ptrdiff_t lumaAhead = 2 * kRowPairsAhead * source_.lumaPitch;
        const ptrdiff_t chromaAhead = kRowPairsAhead * source_.chromaPitch;
        const ptrdiff_t targetLumaAhead = 2 * kTargetPairsAhead * target.lumaPitch;
        const ptrdiff_t targetChromaAhead = kTargetPairsAhead * target.chromaPitch;
        for (int32_t x = columns.begin; x < columns.end; x += kCacheLine) {
            fetchForWriting(target.luma[0], targetLumaAhead + x);
            fetchForWriting(target.luma[1], targetLumaAhead + x);
            fetchForWriting(target.chroma, targetChromaAhead + x);
        }
        for (int p = 0; p < (columns.end - columns.begin) / Pieces<V, kPieces>::kPixels;
             p += kCacheLine / kStrip) {
            const ptrdiff_t luma = taps.luma[p] + lumaAhead;
            fetch(source_.luma, luma);
            fetch(source_.luma, luma + source_.lumaPitch);
            fetch(source_.chroma, taps.chroma[p] + chromaAhead);
        }
    }

    const SourceFrame source_;
    const Constants<V> constants_;
};

}  // namespace

}  // namespace qlx::zpr_framehold
