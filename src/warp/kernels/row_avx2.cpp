#include "warp/kernels/levels.h"
#include "warp/kernels/shuffle_kernel.h"

#include <cstring>

#include <immintrin.h>

namespace qlx::zpr_framehold {

namespace {

/// See Numbers4.
struct Numbers8 {
    static constexpr int kLanes = 8;

    __m256i v;

    static Numbers8 broadcast(int32_t number) { return {_mm256_set1_epi32(number)}; }
    void store(int32_t* target) const {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target), v);
    }
    static Numbers8 load(const int32_t* source) {
        return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(source))};
    }
    Numbers8 opaque() const {
        Numbers8 a = *this;
        asm("" : "+x"(a.v));
        return a;
    }

    Numbers8 operator+(Numbers8 b) const { return {_mm256_add_epi32(v, b.v)}; }
    Numbers8 operator-(Numbers8 b) const { return {_mm256_sub_epi32(v, b.v)}; }
    Numbers8 operator*(Numbers8 b) const { return {_mm256_mullo_epi32(v, b.v)}; }
    Numbers8 operator&(Numbers8 b) const { return {_mm256_and_si256(v, b.v)}; }
    Numbers8 operator>>(int n) const { return {_mm256_srai_epi32(v, n)}; }
    Numbers8 least(Numbers8 b) const { return {_mm256_min_epi32(v, b.v)}; }
    Numbers8 timesWord(Numbers8 b) const { return {_mm256_madd_epi16(v, b.v)}; }
    Numbers8 plusBytes(Numbers8 b) const { return {_mm256_add_epi8(v, b.v)}; }
    bool anyAbove(Numbers8 b) const {
        return _mm256_movemask_epi8(_mm256_cmpgt_epi32(v, b.v)) != 0;
    }
};

/// Two strips; see Strip1.
struct Strip2 {
    using Numbers = Numbers8;

    static constexpr int kStrips = 2;
    static constexpr int kLogEvens = 4;
    static constexpr bool kBlends = false;

    __m256i v;

    static Strip2 broadcast(int32_t word) {
        return {_mm256_set1_epi16(static_cast<int16_t>(word))};
    }
    static Strip2 broadcastLow(const int32_t& number) { return broadcastWord(number, 0); }
    static Strip2 broadcastHigh(const int32_t& number) { return broadcastWord(number, 1); }
    static Strip2 words(const int16_t* words) {
        return {_mm256_load_si256(reinterpret_cast<const __m256i*>(words))};
    }
    static Strip2 load(const uint8_t* const* start, int stride, ptrdiff_t offset) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(start[0] + offset));
        const __m128i high =
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(start[stride] + offset));
        return {_mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1)};
    }
    template <int kPieces>
    static Strip2 spread(const int32_t* values) {
        const auto* source = reinterpret_cast<const __m128i*>(values);
        if (kPieces == 4) return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(values))};
        if (kPieces == 2) {
            const __m256i four = _mm256_broadcastsi128_si256(_mm_loadu_si128(source));
            return {_mm256_permutevar8x32_epi32(four, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3))};
        }
        const __m256i two = _mm256_broadcastq_epi64(_mm_loadl_epi64(source));
        const __m256i first = _mm256_setr_epi8(0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 4, 5,
                                               6, 7, 4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7);
        return {_mm256_shuffle_epi8(two, first)};
    }
    void store(uint8_t* target) const {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target), v);
    }
    Strip2 opaque() const {
        Strip2 a = *this;
        asm("" : "+x"(a.v));
        return a;
    }

    Strip2 operator+(Strip2 b) const { return {_mm256_add_epi16(v, b.v)}; }
    Strip2 operator-(Strip2 b) const { return {_mm256_sub_epi16(v, b.v)}; }
    Strip2 operator*(Strip2 b) const { return {_mm256_mullo_epi16(v, b.v)}; }
    Strip2 operator&(Strip2 b) const { return {_mm256_and_si256(v, b.v)}; }
    Strip2 operator|(Strip2 b) const { return {_mm256_or_si256(v, b.v)}; }
    Strip2 operator^(Strip2 b) const { return {_mm256_xor_si256(v, b.v)}; }
    Strip2 operator<<(int n) const { return {_mm256_slli_epi16(v, n)}; }
    Strip2 operator>>(int n) const { return {_mm256_srli_epi16(v, n)}; }
    Strip2 timesHigh(Strip2 b) const { return {_mm256_mulhi_epu16(v, b.v)}; }
    Strip2 timesHighSigned(Strip2 b) const { return {_mm256_mulhi_epi16(v, b.v)}; }
    Strip2 plusBytes(Strip2 b) const { return {_mm256_add_epi8(v, b.v)}; }
    Strip2 minusBytes(Strip2 b) const { return {_mm256_sub_epi8(v, b.v)}; }
    Strip2 notBelow(Strip2 b) const { return {_mm256_cmpeq_epi16(_mm256_max_epu16(v, b.v), v)}; }
    Strip2 below(Strip2 b) const { return {_mm256_cmpgt_epi16(b.v, v)}; }
    static Strip2 blend(Strip2 mask, Strip2 a, Strip2 b) {
        return {_mm256_blendv_epi8(b.v, a.v, mask.v)};
    }
    Strip2 at(Strip2 index) const { return {_mm256_shuffle_epi8(v, index.v)}; }
    Strip2 weighted(Strip2 weights) const { return {_mm256_maddubs_epi16(v, weights.v)}; }

private:
    /// From memory: from a register it would take two shuffles.
    static Strip2 broadcastWord(const int32_t& number, int half) {
        int16_t word;
        std::memcpy(&word, reinterpret_cast<const char*>(&number) + 2 * half, sizeof word);
        return {_mm256_set1_epi16(word)};
    }
};

}  // namespace

void renderRow_avx2(const BlockGrid& grid, const SourceFrame& source, const ZPR_Image& target,
                    const BlockRow& blocks) {
    walkRow(StripRenderer<ShuffleKernel<Strip2>>(source), grid, target, blocks);
}

}  // namespace qlx::zpr_framehold
