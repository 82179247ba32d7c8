#pragma once

#include <cstddef>
#include <cstdint>

#include <smmintrin.h>

// Vectors of 128 bits for strips.h. Local to each kernel's file; see segment.h.

namespace qlx::zpr_framehold {

namespace {

/// 32-bit numbers, one for each of some pieces.
struct Numbers4 {
    static constexpr int kLanes = 4;

    __m128i v;

    static Numbers4 broadcast(int32_t number) { return {_mm_set1_epi32(number)}; }
    /// first, first + 1 ...
    static Numbers4 sequence(int32_t first) {
        return {_mm_setr_epi32(first, first + 1, first + 2, first + 3)};
    }
    void store(int32_t* target) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(target), v); }

    static Numbers4 load(const int32_t* source) {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(source))};
    }
    /// Each number's low 16 bits in its low and high half.
    Numbers4 lowWordsTwice() const {
        return {
            _mm_shuffle_epi8(v, _mm_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13))};
    }

    Numbers4 operator+(Numbers4 b) const { return {_mm_add_epi32(v, b.v)}; }
    Numbers4 operator-(Numbers4 b) const { return {_mm_sub_epi32(v, b.v)}; }
    Numbers4 operator*(Numbers4 b) const { return {_mm_mullo_epi32(v, b.v)}; }
    Numbers4 operator&(Numbers4 b) const { return {_mm_and_si128(v, b.v)}; }
    Numbers4 operator>>(int n) const { return {_mm_srai_epi32(v, n)}; }
    Numbers4 least(Numbers4 b) const { return {_mm_min_epi32(v, b.v)}; }
};

/// One strip: a 16-bit word for each even pixel.
struct Strip1 {
    using Numbers = Numbers4;

    static constexpr int kStrips = 1;
    static constexpr int kLogEvens = 3;

    __m128i v;

    static Strip1 broadcast(int32_t word) { return {_mm_set1_epi16(static_cast<int16_t>(word))}; }
    /// The two words at `words` by turns.
    static Strip1 broadcastPair(const int32_t* words) { return {_mm_set1_epi32(*words)}; }
    /// The numbers 0, 1, 2 ... of the even pixels.
    static Strip1 evens() { return {_mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7)}; }
    /// 16 bytes for each strip from start[0], start[stride] ...
    static Strip1 load(const uint8_t* const* start, int /*stride*/, ptrdiff_t offset) {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(start[0] + offset))};
    }
    /// Each of kPieces values for an equal share of a strip.
    template <int kPieces>
    static Strip1 spread(const int32_t* values) {
        if (kPieces == 1) return {_mm_set1_epi32(values[0])};
        if (kPieces == 2) {
            const __m128i two = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(values));
            return {_mm_unpacklo_epi32(two, two)};
        }
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(values))};
    }
    void store(uint8_t* target) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(target), v); }
    /// The same, but the compiler does not know any more what it is.
    Strip1 opaque() const {
        Strip1 a = *this;
        asm("" : "+x"(a.v));
        return a;
    }

    Strip1 operator+(Strip1 b) const { return {_mm_add_epi16(v, b.v)}; }
    Strip1 operator-(Strip1 b) const { return {_mm_sub_epi16(v, b.v)}; }
    Strip1 operator*(Strip1 b) const { return {_mm_mullo_epi16(v, b.v)}; }
    Strip1 operator&(Strip1 b) const { return {_mm_and_si128(v, b.v)}; }
    Strip1 operator|(Strip1 b) const { return {_mm_or_si128(v, b.v)}; }
    Strip1 operator^(Strip1 b) const { return {_mm_xor_si128(v, b.v)}; }
    Strip1 operator<<(int n) const { return {_mm_slli_epi16(v, n)}; }
    Strip1 operator>>(int n) const { return {_mm_srli_epi16(v, n)}; }
    /// The upper halves of unsigned products.
    Strip1 timesHigh(Strip1 b) const { return {_mm_mulhi_epu16(v, b.v)}; }
    Strip1 plusBytes(Strip1 b) const { return {_mm_add_epi8(v, b.v)}; }
    /// All ones where the word is at least that of b, as unsigned numbers.
    Strip1 notBelow(Strip1 b) const { return {_mm_cmpeq_epi16(_mm_max_epu16(v, b.v), v)}; }
    /// Bytes at the positions in `index`, within each strip's 16; zero for negative ones.
    Strip1 at(Strip1 index) const { return {_mm_shuffle_epi8(v, index.v)}; }
    /// Weighted sums of byte pairs.
    Strip1 weighted(Strip1 weights) const { return {_mm_maddubs_epi16(v, weights.v)}; }
};

}  // namespace

}  // namespace qlx::zpr_framehold
