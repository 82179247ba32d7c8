#include "warp/kernels/shuffle_kernel.h"

#include <cstring>

#include <immintrin.h>

namespace qlx::zpr_framehold {

namespace {

/// See I32x4.
struct I32x8 {
    static constexpr int kLanes = 8;

    __m256i v;

    static I32x8 Set(int32_t value) { return {_mm256_set1_epi32(value)}; }
    static I32x8 LoadU(const int32_t* source) {
        return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(source))};
    }
};

inline I32x8 operator+(I32x8 a, I32x8 b) { return {_mm256_add_epi32(a.v, b.v)}; }
inline I32x8 operator-(I32x8 a, I32x8 b) { return {_mm256_sub_epi32(a.v, b.v)}; }
inline I32x8 operator*(I32x8 a, I32x8 b) { return {_mm256_mullo_epi32(a.v, b.v)}; }
inline I32x8 operator&(I32x8 a, I32x8 b) { return {_mm256_and_si256(a.v, b.v)}; }
inline I32x8 Min(I32x8 a, I32x8 b) { return {_mm256_min_epi32(a.v, b.v)}; }
inline I32x8 Gt(I32x8 a, I32x8 b) { return {_mm256_cmpgt_epi32(a.v, b.v)}; }
inline bool AllFalse(I32x8 mask) { return _mm256_movemask_epi8(mask.v) == 0; }
template <int kBits>
inline I32x8 ShiftRight(I32x8 a) {
    return {_mm256_srai_epi32(a.v, kBits)};
}
inline I32x8 WidenMulPairwiseAdd(I32x8 a, I32x8 b) { return {_mm256_madd_epi16(a.v, b.v)}; }
inline I32x8 AddBytes(I32x8 a, I32x8 b) { return {_mm256_add_epi8(a.v, b.v)}; }
inline void StoreU(I32x8 a, int32_t* target) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(target), a.v);
}

/// Two strips; see U16x8.
struct U16x16 {
    using I32 = I32x8;

    static constexpr int kStrips = 2;
    static constexpr int kLogEvens = 4;
    static constexpr bool kBlends = false;

    __m256i v;

    static U16x16 Set(int32_t value) { return {_mm256_set1_epi16(static_cast<int16_t>(value))}; }
    static U16x16 Load(const int16_t* source) {
        return {_mm256_load_si256(reinterpret_cast<const __m256i*>(source))};
    }
    static U16x16 setLow(const int32_t& number) { return setHalf(number, 0); }
    static U16x16 setHigh(const int32_t& number) { return setHalf(number, 1); }
    static U16x16 loadStrips(const uint8_t* const* start, int stride, ptrdiff_t offset) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(start[0] + offset));
        const __m128i high =
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(start[stride] + offset));
        return {_mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1)};
    }
    static U16x16 spread(const int32_t* values, int pieces) {
        const auto* source = reinterpret_cast<const __m128i*>(values);
        if (pieces == 4) return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(values))};
        if (pieces == 2) {
            const __m256i four = _mm256_broadcastsi128_si256(_mm_loadu_si128(source));
            return {_mm256_permutevar8x32_epi32(four, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3))};
        }
        const __m256i two = _mm256_broadcastq_epi64(_mm_loadl_epi64(source));
        const __m256i first = _mm256_setr_epi8(0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 4, 5,
                                               6, 7, 4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7);
        return {_mm256_shuffle_epi8(two, first)};
    }

private:
    /// From memory: from a register it would take two shuffles.
    static U16x16 setHalf(const int32_t& number, int half) {
        int16_t lane;
        std::memcpy(&lane, reinterpret_cast<const char*>(&number) + 2 * half, sizeof lane);
        return {_mm256_set1_epi16(lane)};
    }
};

inline U16x16 operator+(U16x16 a, U16x16 b) { return {_mm256_add_epi16(a.v, b.v)}; }
inline U16x16 operator-(U16x16 a, U16x16 b) { return {_mm256_sub_epi16(a.v, b.v)}; }
inline U16x16 operator*(U16x16 a, U16x16 b) { return {_mm256_mullo_epi16(a.v, b.v)}; }
inline U16x16 operator&(U16x16 a, U16x16 b) { return {_mm256_and_si256(a.v, b.v)}; }
inline U16x16 operator|(U16x16 a, U16x16 b) { return {_mm256_or_si256(a.v, b.v)}; }
inline U16x16 operator^(U16x16 a, U16x16 b) { return {_mm256_xor_si256(a.v, b.v)}; }
template <int kBits>
inline U16x16 ShiftLeft(U16x16 a) {
    return {_mm256_slli_epi16(a.v, kBits)};
}
template <int kBits>
inline U16x16 ShiftRight(U16x16 a) {
    return {_mm256_srli_epi16(a.v, kBits)};
}
inline U16x16 MulHigh(U16x16 a, U16x16 b) { return {_mm256_mulhi_epu16(a.v, b.v)}; }
inline U16x16 MulHighSigned(U16x16 a, U16x16 b) { return {_mm256_mulhi_epi16(a.v, b.v)}; }
inline U16x16 AddBytes(U16x16 a, U16x16 b) { return {_mm256_add_epi8(a.v, b.v)}; }
inline U16x16 SubBytes(U16x16 a, U16x16 b) { return {_mm256_sub_epi8(a.v, b.v)}; }
inline U16x16 Ge(U16x16 a, U16x16 b) {
    return {_mm256_cmpeq_epi16(_mm256_max_epu16(a.v, b.v), a.v)};
}
inline U16x16 LtSigned(U16x16 a, U16x16 b) { return {_mm256_cmpgt_epi16(b.v, a.v)}; }
inline U16x16 IfThenElse(U16x16 mask, U16x16 yes, U16x16 no) {
    return {_mm256_blendv_epi8(no.v, yes.v, mask.v)};
}
inline U16x16 TableLookupBytesOr0(U16x16 bytes, U16x16 index) {
    return {_mm256_shuffle_epi8(bytes.v, index.v)};
}
inline U16x16 SatWidenMulPairwiseAdd(U16x16 bytes, U16x16 weights) {
    return {_mm256_maddubs_epi16(bytes.v, weights.v)};
}
inline void StoreU(U16x16 a, uint8_t* target) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(target), a.v);
}

/// A last strip that does not fill a vector.
[[gnu::noinline]] void renderLastStrip(const SourceFrame& source, const TargetRowPair& target,
                                       const Strips& strips) {
    const int32_t begin = strips.columns.end - kStrip;
    const int32_t steps = (begin - strips.columns.begin) / 2;
    SourcePositions positions = strips.positions;
    positions.x += steps * positions.stepX;
    positions.y += steps * positions.stepY;
    renderColumns<U16x8>(source, target, positions, {begin, strips.columns.end}, strips.pieces);
}

}  // namespace

void renderStrips_avx2(const SourceFrame& source, const TargetRowPair& target, Strips* strips,
                       int32_t count) {
    constexpr int32_t kStep = 2 * kStrip;
    for (int32_t i = 0; i < count; ++i) {
        const Strips& s = strips[i];
        const int32_t begin = s.columns.begin;
        const int32_t end = begin + ((s.columns.end - begin) & -kStep);
        if (begin < end) {
            renderColumns<U16x16>(source, target, s.positions, {begin, end}, s.pieces);
        }
        if (end < s.columns.end) renderLastStrip(source, target, s);
        advance(strips[i]);
    }
}

}  // namespace qlx::zpr_framehold
