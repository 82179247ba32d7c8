#include "rendering/plane_resampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace framehold {

namespace {

// Positions are integers in units of 2^-16 samples; of those, the weights have 2^-8.
constexpr int kPositionBits = 16;
constexpr int kPhaseBits = 8;
constexpr int kPhases = 1 << kPhaseBits;
constexpr int kMaxGroups = 8;  // a shrinking to an eighth; beyond that, fine details alias

constexpr int kWeightBits = 14;

using Float4 = float __attribute__((vector_size(16)));
using Int4 = int32_t __attribute__((vector_size(16)));
using Short8 = int16_t __attribute__((vector_size(16)));

template <class Vector, class Number>
Vector vectorAt(const Number* from) {
    Vector value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// Sums of the products of each two neighbours.
Int4 pairProducts(Short8 a, Short8 b) {
#ifdef __SSE2__
    return reinterpret_cast<Int4>(
        _mm_madd_epi16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
#else
    const auto wide = [](Short8 v, auto... lanes) {
        return __builtin_convertvector(__builtin_shufflevector(v, v, lanes...), Int4);
    };
    return wide(a, 0, 2, 4, 6) * wide(b, 0, 2, 4, 6) + wide(a, 1, 3, 5, 7) * wide(b, 1, 3, 5, 7);
#endif
}

/// Cubic convolution kernel through the samples, Catmull and Rom's, with a part added that sharpens
/// most between samples, where the cubic blurs most: -1, 1, 1, -1 times a parabola, which moves no
/// shape that is smooth. A steeper cubic would move those by up to 0.05 samples, and sharpen least
/// next to samples. Six taps, of a kernel of higher order or Lanczos', take half as much time again.
double cubic(double x) {
    constexpr double kSharpening = 0.1;
    x = std::fabs(x);
    if (x < 1.0) return (1.5 * x - 2.5) * x * x + 1.0 + kSharpening * x * (1.0 - x);
    if (x < 2.0) {
        return -0.5 * (((x - 5.0) * x + 8.0) * x - 4.0) - kSharpening * (x - 1.0) * (2.0 - x);
    }
    return 0.0;
}

/// Sums of each of four vectors.
Float4 sums(Float4 a, Float4 b, Float4 c, Float4 d) {
    const Float4 ab =
        __builtin_shufflevector(a, b, 0, 4, 1, 5) + __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const Float4 cd =
        __builtin_shufflevector(c, d, 0, 4, 1, 5) + __builtin_shufflevector(c, d, 2, 6, 3, 7);
    return __builtin_shufflevector(ab, cd, 0, 1, 4, 5) +
           __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
}

/// Value of the middle of a depth's range, which samples are kept without, to fit into 16 bits.
int middleOf(int depth) { return 1 << (depth - 1); }

/// Pairs of the samples of two rows.
template <class Sample>
void pairRows(const uint8_t* upper, const uint8_t* lower, int middle, int16_t* to, int width,
              int margin) {
    const Sample* above = reinterpret_cast<const Sample*>(upper);
    const Sample* below = reinterpret_cast<const Sample*>(lower);
    for (int x = 0; x < width; ++x) {
        to[2 * x] = static_cast<int16_t>(above[x] - middle);
        to[2 * x + 1] = static_cast<int16_t>(below[x] - middle);
    }
    const int last = width - 1;
    for (int i = 1; i <= margin; ++i) {
        std::copy_n(to, 2, to - 2 * i);
        std::copy_n(to + 2 * last, 2, to + 2 * (last + i));
    }
}

int32_t fixed(double position) {
    constexpr int kBias = 4096;  // samples: rounding down is rounding to zero then
    const double scaled = (position + kBias) * (1 << kPositionBits) + 0.5;
    return static_cast<int32_t>(static_cast<int64_t>(scaled) - (int64_t{kBias} << kPositionBits));
}

/// Values brought into the range from 0 to `largest`, and rounded.
Int4 rounded(Float4 values, float largest) {
    values = values > 0.0f ? values : Float4{};
    values = values < largest ? values : Float4{} + largest;
    return __builtin_convertvector(values + 0.5f, Int4);
}

}  // namespace

void PlaneResampler::setShrinking(double shrinking) {
    const double scale = std::clamp(shrinking, 1.0, double(kMaxGroups));
    if (scale == shrinking_) return;
    shrinking_ = scale;
    groups_ = static_cast<int>(std::ceil(scale - 1e-6));
    margin_ = 2 * groups_ + 1;
    pitch_ = static_cast<size_t>(2 * (width_ + 2 * margin_));
    acrossWeights_.resize(static_cast<size_t>(kPhases * 4 * groups_));
    downWeights_.resize(static_cast<size_t>(kPhases * 16 * groups_));
    pairs_.resize(pitch_ * static_cast<size_t>(paddedRows()));
    const int taps = 4 * groups_;
    constexpr int kOne = 1 << kWeightBits;
    for (int phase = 0; phase < kPhases; ++phase) {
        const double centre = taps / 2 - 1 + phase / double(kPhases);
        std::vector<double> weights;
        double sum = 0.0;
        for (int i = 0; i < taps; ++i) sum += weights.emplace_back(cubic((i - centre) / scale));
        std::vector<int> whole;
        int rest = kOne;
        for (const double weight : weights) {
            rest -= whole.emplace_back(static_cast<int>(std::lround(weight / sum * kOne)));
        }
        *std::max_element(whole.begin(), whole.end()) += rest;
        float* across = acrossWeights_.data() + phase * taps;
        int16_t* down = downWeights_.data() + phase * 4 * taps;
        for (int i = 0; i < taps; ++i) {
            across[i] = static_cast<float>(weights[static_cast<size_t>(i)] / sum / kOne);
            for (int column = 0; column < 4; ++column) {
                down[i / 2 * 8 + 2 * column + i % 2] =
                    static_cast<int16_t>(whole[static_cast<size_t>(i)]);
            }
        }
    }
}

void PlaneResampler::load(const PlaneView& source, int from, int to) {
    const auto sourceRow = [&](int y) {
        return source.data + std::clamp(y, 0, height_ - 1) * source.pitch;
    };
    const int middle = middleOf(source.depth);
    const auto pair = source.depth > 8 ? pairRows<uint16_t> : pairRows<uint8_t>;
    for (int y = from - margin_; y < to - margin_; ++y) {
        pair(sourceRow(y), sourceRow(y + 1), middle, row(y), width_, margin_);
    }
}

template <int kSpacing, int kGroups, class Sample>
void PlaneResampler::fillCells(const SourceMesh& mesh, int cellRow, const PlaneView& result,
                               int outside) const {
    constexpr int kPhaseShift = kPositionBits - kPhaseBits;
    constexpr int kRounding = 1 << (kPhaseShift - 1);
    const int groups = kGroups > 0 ? kGroups : groups_;
    const int taps = 4 * groups;
    const int first = 1 - taps / 2;
    const auto middle = static_cast<float>(middleOf(result.depth));
    const auto largest = static_cast<float>((1 << result.depth) - 1);
    const int16_t* const corner = row(first) + 2 * first;
    // Half a sample around the centres of the outer samples is theirs.
    const int32_t half = 1 << (kPositionBits - 1);
    const int32_t right = (width_ << kPositionBits) - half;
    const int32_t bottom = (height_ << kPositionBits) - half;
    const auto isInside = [=](int32_t x, int32_t y) {
        return x >= -half && x <= right && y >= -half && y <= bottom;
    };
    // Places in pairs_ from that of the sample at 0, 0, and in the weights.
    const auto sample = [&](int32_t place, int32_t placeAcross, int32_t placeDown) {
        const int16_t* from = corner + place;
        const float* across = acrossWeights_.data() + placeAcross;
        const int16_t* down = downWeights_.data() + placeDown;
        Int4 columns[kGroups > 0 ? kGroups : kMaxGroups] = {};
        for (int i = 0; i < taps; i += 2, from += 2 * pitch_, down += 8) {
            for (int g = 0; g < groups; ++g) {
                columns[g] += pairProducts(vectorAt<Short8>(from + 8 * g), vectorAt<Short8>(down));
            }
        }
        Float4 sum = {};
        for (int g = 0; g < groups; ++g) {
            sum += __builtin_convertvector(columns[g], Float4) * vectorAt<Float4>(across + 4 * g);
        }
        return sum;
    };
    const auto pitch = static_cast<int32_t>(pitch_);
    const int firstRow = cellRow * kSpacing;
    const int lastRow = std::min(firstRow + kSpacing, result.height);
    for (int y = firstRow; y < lastRow; ++y) {
        const double share = (y - firstRow) / double(kSpacing);
        Sample* line = reinterpret_cast<Sample*>(result.data + y * result.pitch);
        const auto edge = [&](int column) -> Eigen::Vector2d {
            return (1.0 - share) * mesh.node(column, cellRow) +
                   share * mesh.node(column, cellRow + 1);
        };
        Eigen::Vector2d from = edge(0);
        for (int column = 0; column < mesh.cellColumns(); ++column) {
            const Eigen::Vector2d to = edge(column + 1);
            const Eigen::Vector2d step = (to - from) / kSpacing;
            const int32_t dx = fixed(step.x());
            const int32_t dy = fixed(step.y());
            const int32_t x0 = fixed(from.x()) + kRounding;
            const int32_t y0 = fixed(from.y()) + kRounding;
            from = to;
            int32_t xs[kSpacing];
            int32_t ys[kSpacing];
            for (int i = 0; i < kSpacing; ++i) xs[i] = x0 + i * dx;
            for (int i = 0; i < kSpacing; ++i) ys[i] = y0 + i * dy;
            const int last = kSpacing - 1;
            uint16_t blanks = 0;
            if (!isInside(xs[0], ys[0]) || !isInside(xs[last], ys[last])) {
                for (int i = 0; i < kSpacing; ++i) {
                    if (isInside(xs[i], ys[i])) continue;
                    blanks = static_cast<uint16_t>(blanks | 1 << i);
                    xs[i] = ys[i] = 0;
                }
            }
            int32_t places[kSpacing];
            for (int i = 0; i < kSpacing; ++i) {
                places[i] = (ys[i] >> kPositionBits) * pitch + 2 * (xs[i] >> kPositionBits);
                xs[i] = (xs[i] >> kPhaseShift & (kPhases - 1)) * taps;
                ys[i] = (ys[i] >> kPhaseShift & (kPhases - 1)) * 4 * taps;
            }
            int32_t values[kSpacing];
            for (int i = 0; i < kSpacing; i += 4) {
                const auto sampleAt = [&](int k) { return sample(places[k], xs[k], ys[k]); };
                const Float4 four =
                    sums(sampleAt(i), sampleAt(i + 1), sampleAt(i + 2), sampleAt(i + 3));
                const Int4 whole = rounded(four + middle, largest);
                std::memcpy(values + i, &whole, sizeof whole);
            }
            Sample cell[kSpacing];
            for (int i = 0; i < kSpacing; ++i) cell[i] = static_cast<Sample>(values[i]);
            for (int i = 0; blanks != 0 && i < kSpacing; ++i) {
                if ((blanks >> i & 1) != 0) cell[i] = static_cast<Sample>(outside);
            }
            const int x = column * kSpacing;
            std::copy_n(cell, std::min(kSpacing, result.width - x), line + x);
        }
    }
}

template <int kSpacing>
void PlaneResampler::fillSpaced(const SourceMesh& mesh, int cellRow, const PlaneView& result,
                                int outside) const {
    const auto fill = [&](auto groups) {
        constexpr int kGroups = decltype(groups)::value;
        if (result.depth > 8) {
            fillCells<kSpacing, kGroups, uint16_t>(mesh, cellRow, result, outside);
        } else {
            fillCells<kSpacing, kGroups, uint8_t>(mesh, cellRow, result, outside);
        }
    };
    if (groups_ == 1) return fill(std::integral_constant<int, 1>());
    if (groups_ == 2) return fill(std::integral_constant<int, 2>());
    fill(std::integral_constant<int, 0>());
}

void PlaneResampler::fill(const SourceMesh& mesh, int cellRow, const PlaneView& result,
                          int outside) const {
    constexpr int kSpacing = SourceMesh::kSpacing;
    if (mesh.spacing() == kSpacing) return fillSpaced<kSpacing>(mesh, cellRow, result, outside);
    if (mesh.spacing() == kSpacing / 2) {
        return fillSpaced<kSpacing / 2>(mesh, cellRow, result, outside);
    }
    fillSpaced<SourceMesh::kFinestSpacing>(mesh, cellRow, result, outside);
}

}  // namespace framehold
