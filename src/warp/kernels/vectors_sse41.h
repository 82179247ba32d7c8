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
    void store(int32_t* target) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(target), v); }
    static Numbers4 load(const int32_t* source) {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(source))};
    }
    /// The same, but the compiler does not know any more what it is.
    Numbers4 opaque() const {
        Numbers4 a = *this;
        asm("" : "+x"(a.v));
        return a;
    }

    Numbers4 operator+(Numbers4 b) const { return {_mm_add_epi32(v, b.v)}; }
    Numbers4 operator-(Numbers4 b) const { return {_mm_sub_epi32(v, b.v)}; }
    Numbers4 operator*(Numbers4 b) const { return {_mm_mullo_epi32(v, b.v)}; }
    Numbers4 operator&(Numbers4 b) const { return {_mm_and_si128(v, b.v)}; }
    Numbers4 operator>>(int n) const { return {_mm_srai_epi32(v, n)}; }
    Numbers4 least(Numbers4 b) const { return {_mm_min_epi32(v, b.v)}; }
    /// Products of numbers from 0 to 32767.
    Numbers4 timesWord(Numbers4 b) const { return {_mm_madd_epi16(v, b.v)}; }
    Numbers4 plusBytes(Numbers4 b) const { return {_mm_add_epi8(v, b.v)}; }
    bool anyAbove(Numbers4 b) const { return _mm_movemask_epi8(_mm_cmpgt_epi32(v, b.v)) != 0; }
};

/// One strip: a 16-bit word for each even pixel.
struct Strip1 {
    using Numbers = Numbers4;

    static constexpr int kStrips = 1;
    static constexpr int kLogEvens = 3;
    // Whether blending is one operation: with AVX it is three on many processors.
#ifdef __AVX__
    static constexpr bool kBlends = false;
#else
    static constexpr bool kBlends = true;
#endif

    __m128i v;

    static Strip1 broadcast(int32_t word) { return {_mm_set1_epi16(static_cast<int16_t>(word))}; }
    /// The low half of a number, and its high half.
    static Strip1 broadcastLow(const int32_t& number) {
        return {_mm_shuffle_epi8(_mm_cvtsi32_si128(number), _mm_set1_epi16(0x0100))};
    }
    static Strip1 broadcastHigh(const int32_t& number) {
        return {_mm_shuffle_epi8(_mm_cvtsi32_si128(number), _mm_set1_epi16(0x0302))};
    }
    /// As many words as there are even pixels, from an aligned place.
    static Strip1 words(const int16_t* words) {
        return {_mm_load_si128(reinterpret_cast<const __m128i*>(words))};
    }
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
    /// The upper halves of unsigned products, and of signed ones.
    Strip1 timesHigh(Strip1 b) const { return {_mm_mulhi_epu16(v, b.v)}; }
    Strip1 timesHighSigned(Strip1 b) const { return {_mm_mulhi_epi16(v, b.v)}; }
    Strip1 plusBytes(Strip1 b) const { return {_mm_add_epi8(v, b.v)}; }
    Strip1 minusBytes(Strip1 b) const { return {_mm_sub_epi8(v, b.v)}; }
    /// All ones where the word is at least that of b, as unsigned numbers.
    Strip1 notBelow(Strip1 b) const { return {_mm_cmpeq_epi16(_mm_max_epu16(v, b.v), v)}; }
    /// All ones where the word is below that of b, as signed numbers.
    Strip1 below(Strip1 b) const { return {_mm_cmplt_epi16(v, b.v)}; }
    /// a's bytes where `mask` is all ones, b's where it is zero.
    static Strip1 blend(Strip1 mask, Strip1 a, Strip1 b) {
        return {_mm_blendv_epi8(b.v, a.v, mask.v)};
    }
    /// Bytes at the positions in `index`, within each strip's 16; zero for negative ones.
    Strip1 at(Strip1 index) const { return {_mm_shuffle_epi8(v, index.v)}; }
    /// Weighted sums of byte pairs.
    Strip1 weighted(Strip1 weights) const { return {_mm_maddubs_epi16(v, weights.v)}; }
};

}  // namespace

}  // namespace qlx::zpr_framehold
