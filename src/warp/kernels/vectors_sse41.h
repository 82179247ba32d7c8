#pragma once

#include <cstddef>
#include <cstdint>

#include <smmintrin.h>

// Vectors of 128 bits and operations on their lanes. An operation with a capital letter is what
// Highway calls so, on lanes of the type's width unless the name says otherwise. Local to each
// kernel's file; see segment.h.

namespace qlx::zpr_framehold {

namespace {

/// 32-bit lanes, one for each of some pieces.
struct I32x4 {
    static constexpr int kLanes = 4;

    __m128i v;

    static I32x4 Set(int32_t value) { return {_mm_set1_epi32(value)}; }
    static I32x4 LoadU(const int32_t* source) {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(source))};
    }
};

inline I32x4 operator+(I32x4 a, I32x4 b) { return {_mm_add_epi32(a.v, b.v)}; }
inline I32x4 operator-(I32x4 a, I32x4 b) { return {_mm_sub_epi32(a.v, b.v)}; }
inline I32x4 operator*(I32x4 a, I32x4 b) { return {_mm_mullo_epi32(a.v, b.v)}; }
inline I32x4 operator&(I32x4 a, I32x4 b) { return {_mm_and_si128(a.v, b.v)}; }
inline I32x4 Min(I32x4 a, I32x4 b) { return {_mm_min_epi32(a.v, b.v)}; }
inline I32x4 Gt(I32x4 a, I32x4 b) { return {_mm_cmpgt_epi32(a.v, b.v)}; }
inline bool AllFalse(I32x4 mask) { return _mm_movemask_epi8(mask.v) == 0; }
template <int kBits>
inline I32x4 ShiftRight(I32x4 a) {
    return {_mm_srai_epi32(a.v, kBits)};
}
/// Of the 16-bit halves: products of whole lanes where these are from 0 to 32767.
inline I32x4 WidenMulPairwiseAdd(I32x4 a, I32x4 b) { return {_mm_madd_epi16(a.v, b.v)}; }
inline I32x4 AddBytes(I32x4 a, I32x4 b) { return {_mm_add_epi8(a.v, b.v)}; }
inline void StoreU(I32x4 a, int32_t* target) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), a.v);
}

/// One strip: a 16-bit lane for each even pixel, unsigned unless an operation says otherwise.
struct U16x8 {
    using I32 = I32x4;

    static constexpr int kStrips = 1;
    static constexpr int kLogEvens = 3;
    // Whether IfThenElse is one operation: with AVX it is three on many processors.
#ifdef __AVX__
    static constexpr bool kBlends = false;
#else
    static constexpr bool kBlends = true;
#endif

    __m128i v;

    static U16x8 Set(int32_t value) { return {_mm_set1_epi16(static_cast<int16_t>(value))}; }
    static U16x8 Load(const int16_t* source) {
        return {_mm_load_si128(reinterpret_cast<const __m128i*>(source))};
    }
    /// The low half of a number in each lane, and its high half.
    static U16x8 setLow(const int32_t& number) {
        return {_mm_shuffle_epi8(_mm_cvtsi32_si128(number), _mm_set1_epi16(0x0100))};
    }
    static U16x8 setHigh(const int32_t& number) {
        return {_mm_shuffle_epi8(_mm_cvtsi32_si128(number), _mm_set1_epi16(0x0302))};
    }
    /// 16 bytes for each strip from start[0], start[stride] ...
    static U16x8 loadStrips(const uint8_t* const* start, int /*stride*/, ptrdiff_t offset) {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(start[0] + offset))};
    }
    /// Each of `pieces` values for an equal share of a strip.
    static U16x8 spread(const int32_t* values, int pieces) {
        if (pieces == 1) return {_mm_set1_epi32(values[0])};
        if (pieces == 2) {
            const __m128i two = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(values));
            return {_mm_unpacklo_epi32(two, two)};
        }
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(values))};
    }
};

inline U16x8 operator+(U16x8 a, U16x8 b) { return {_mm_add_epi16(a.v, b.v)}; }
inline U16x8 operator-(U16x8 a, U16x8 b) { return {_mm_sub_epi16(a.v, b.v)}; }
inline U16x8 operator*(U16x8 a, U16x8 b) { return {_mm_mullo_epi16(a.v, b.v)}; }
inline U16x8 operator&(U16x8 a, U16x8 b) { return {_mm_and_si128(a.v, b.v)}; }
inline U16x8 operator|(U16x8 a, U16x8 b) { return {_mm_or_si128(a.v, b.v)}; }
inline U16x8 operator^(U16x8 a, U16x8 b) { return {_mm_xor_si128(a.v, b.v)}; }
template <int kBits>
inline U16x8 ShiftLeft(U16x8 a) {
    return {_mm_slli_epi16(a.v, kBits)};
}
template <int kBits>
inline U16x8 ShiftRight(U16x8 a) {
    return {_mm_srli_epi16(a.v, kBits)};
}
inline U16x8 MulHigh(U16x8 a, U16x8 b) { return {_mm_mulhi_epu16(a.v, b.v)}; }
inline U16x8 MulHighSigned(U16x8 a, U16x8 b) { return {_mm_mulhi_epi16(a.v, b.v)}; }
inline U16x8 AddBytes(U16x8 a, U16x8 b) { return {_mm_add_epi8(a.v, b.v)}; }
inline U16x8 SubBytes(U16x8 a, U16x8 b) { return {_mm_sub_epi8(a.v, b.v)}; }
inline U16x8 Ge(U16x8 a, U16x8 b) { return {_mm_cmpeq_epi16(_mm_max_epu16(a.v, b.v), a.v)}; }
inline U16x8 LtSigned(U16x8 a, U16x8 b) { return {_mm_cmplt_epi16(a.v, b.v)}; }
inline U16x8 IfThenElse(U16x8 mask, U16x8 yes, U16x8 no) {
    return {_mm_blendv_epi8(no.v, yes.v, mask.v)};
}
/// Within each strip's 16 bytes.
inline U16x8 TableLookupBytesOr0(U16x8 bytes, U16x8 index) {
    return {_mm_shuffle_epi8(bytes.v, index.v)};
}
/// Of byte pairs and their weights.
inline U16x8 SatWidenMulPairwiseAdd(U16x8 bytes, U16x8 weights) {
    return {_mm_maddubs_epi16(bytes.v, weights.v)};
}
inline void StoreU(U16x8 a, uint8_t* target) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), a.v);
}

}  // namespace

}  // namespace qlx::zpr_framehold
