#include "warp/band_conversion.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

namespace qlx::zpr_framehold {

namespace {

/// Output rows that a band comes to lie on, end exclusive.
struct BandRows {
    int32_t top;
    int32_t bottom;
    uint32_t record;

    bool operator<(const BandRows& other) const {
        return std::tie(top, bottom) < std::tie(other.top, other.bottom);
    }
};

double outputRow(const Matrix3& m, double x, double y) {
    const Vector3 p = m * Vector3{x, y, 1.0};
    const double reciprocal = std::fabs(p.z) < 1e-12 ? 1e12 : 1.0 / p.z;
    return p.y * reciprocal;
}

/// Rounded half away from zero, limited to `low` and `high` (not a number: to `low`), made even.
int32_t evenRow(double y, int32_t low, int32_t high) {
    const double rounded = std::round(y);
    if (!(rounded > low)) return low & ~1;
    return (rounded < high ? static_cast<int32_t>(rounded) : high) & ~1;
}

BandRows rowsOf(const CorrectionRecord& band, uint32_t index, int32_t outHeight) {
    constexpr int32_t kFarAbove = -(1 << 30);
    const double left = band.x;
    const double right = left + band.width;
    const double upper = band.y;
    const double lower = upper + band.height;
    const Matrix3& m = band.matrix;
    const double top = std::min(outputRow(m, left, upper), outputRow(m, right, upper));
    const double bottom = std::max(outputRow(m, left, lower), outputRow(m, right, lower));
    return {evenRow(top, 0, outHeight), evenRow(bottom, kFarAbove, outHeight), index};
}

/// The inverse, scaled to a last element of 1 where it has one, so that inverses can be averaged.
Matrix3 scaledInverse(const Matrix3& m) {
    Matrix3 r = inverse(m);
    const double scale = r.m[8];
    if (scale != 0.0) {
        for (double& v : r.m) v /= scale;
    }
    return r;
}

Matrix3 blockRowMatrix(const FrameCorrection& bands, const std::vector<BandRows>& sorted,
                       int32_t top, int32_t bottom) {
    Matrix3 sum{};
    int32_t weight = 0;
    uint32_t overlapping = 0;
    uint32_t only = 0;
    for (const BandRows& band : sorted) {
        const int32_t shared = std::min(band.bottom, bottom) - std::max(band.top, top);
        if (shared <= 0) continue;
        const Matrix3 m = scaledInverse(bands[band.record].matrix);
        for (int i = 0; i < 9; ++i) sum.m[i] += shared * m.m[i];
        weight += shared;
        only = band.record;
        ++overlapping;
    }
    if (overlapping == 0) return {};
    if (overlapping == 1) return inverse(bands[only].matrix);
    for (double& v : sum.m) v /= weight;
    return sum;
}

}  // namespace

void convertBands(const BlockGrid& grid, const FrameCorrection& bands, FrameCorrection& rows) {
    std::vector<BandRows> sorted;
    sorted.reserve(bands.size());
    for (uint32_t i = 0; i < bands.size(); ++i) {
        sorted.push_back(rowsOf(bands[i], i, grid.outHeight));
    }
    std::stable_sort(sorted.begin(), sorted.end());

    CorrectionRecord* record = rows.writable();
    for (int32_t row = 0; row < grid.rows; ++row, ++record) {
        const int32_t top = row * kBlockSize;
        record->isBand = row == grid.rows - 1 ? 0 : 1;
        record->matrix = blockRowMatrix(bands, sorted, top, top + grid.blockHeight(row));
    }
}

}  // namespace qlx::zpr_framehold
