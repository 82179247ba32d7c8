#include "rendering/source_mesh.h"

#include <algorithm>
#include <cmath>

namespace framehold {

namespace {

// Rows between rotations that are taken from the track. Between them they change on a straight
// line: in half a millisecond no hand deviates from that by a hundredth of a pixel.
constexpr int kRowSpacing = 8;

}  // namespace

RowRotations::RowRotations(const PinholeCamera& source, double firstRowTime,
                           const OrientationTrack& track, const Eigen::Quaterniond& view,
                           const LensShiftTrack& shifts)
    : source_(source) {
    const int count = (source.height + kRowSpacing - 1) / kRowSpacing + 1;
    rotations_.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const double time = source.rowTime(firstRowTime, i * kRowSpacing);
        rotations_.push_back((track.at(time).conjugate() * view).toRotationMatrix());
        if (!shifts.isAtRest()) shifts_.push_back(shifts.at(time));
    }
}

template <class Value>
Value RowRotations::between(const std::vector<Value>& values, double row) const {
    const double place = std::clamp(row, 0.0, double(source_.height)) / kRowSpacing;
    const size_t i = std::min(static_cast<size_t>(place), values.size() - 2);
    return values[i] + (place - static_cast<double>(i)) * (values[i + 1] - values[i]);
}

Eigen::Matrix3d RowRotations::at(double row) const { return between(rotations_, row); }

Eigen::Vector2d RowRotations::sourcePixel(const Eigen::Vector3d& direction, double guess) const {
    constexpr int kMaxSteps = 20;        // each leaves a fifth of the error on the strongest shake
    constexpr double kTolerance = 1e-3;  // rows
    Eigen::Vector2d pixel(0.0, guess);
    for (int i = 0; i < kMaxSteps; ++i) {
        const double row = pixel.y();
        const Eigen::Vector3d seen = at(row) * direction;
        if (source_.lens.isNone() && seen.z() > -1e-3 * direction.norm())
            return {-source_.width, -source_.height};
        pixel = source_.project(seen);
        if (!shifts_.empty()) pixel += between(shifts_, row);
        if (std::fabs(pixel.y() - row) < kTolerance) break;
    }
    return pixel;
}

bool SampleGrid::operator==(const SampleGrid& other) const {
    return width == other.width && height == other.height && (step == other.step).all() &&
           (offset == other.offset).all();
}

SourceMesh::SourceMesh(const SampleGrid& output, const SampleGrid& source, int spacing)
    : output_(output), source_(source), spacing_(spacing),
      columns_((output.width - 1) / spacing + 2), rows_((output.height - 1) / spacing + 2),
      nodes_(static_cast<size_t>(columns_) * static_cast<size_t>(rows_)) {}

int SourceMesh::spacingFor(const SampleGrid& samples, const PinholeCamera& output,
                           const PinholeCamera& source) {
    if (output.lens == source.lens) return kSpacing;
    constexpr double kTolerance = 0.03;  // pixels of the source; turns add to it
    constexpr int kCells = 32;           // a side, that are looked at
    const auto seen = [&](double column, double row) {
        const Eigen::Vector2d pixel = Eigen::Array2d(column, row) * samples.step + samples.offset;
        return source.project(output.ray(pixel));
    };
    const auto errorAt = [&](double column, double row, double spacing) {
        const Eigen::Vector2d middle = seen(column, row);
        const double half = spacing / 2.0;
        const auto error = [&](double x, double y) {
            return (middle - (seen(column - x, row - y) + seen(column + x, row + y)) / 2.0).norm();
        };
        return error(half, 0.0) + error(0.0, half);
    };
    int spacing = kSpacing;
    for (; spacing > kFinestSpacing; spacing /= 2) {
        double largest = 0.0;
        for (int i = 0; i < kCells * kCells; ++i) {
            const double column = double(i % kCells) / (kCells - 1) * samples.width;
            const double row = double(i / kCells) / (kCells - 1) * samples.height;
            largest = std::max(largest, errorAt(column, row, spacing));
        }
        if (largest <= kTolerance) break;
    }
    return spacing;
}

void SourceMesh::setRow(int row, const RowRotations& rotations, const PinholeCamera& output) {
    // Far outside is outside: positions stay small enough for the resampler's integers.
    const Eigen::Array2d size(source_.width, source_.height);
    constexpr double kMargin = 1024.0;  // more than a cell has
    double guess = 0.5 * source_.step.y() * source_.height;
    for (int column = 0; column < columns_; ++column) {
        const Eigen::Array2d sample = Eigen::Array2d(column, row) * spacing_;
        const Eigen::Vector2d pixel = sample * output_.step + output_.offset;
        const Eigen::Vector2d seen = rotations.sourcePixel(output.ray(pixel), guess);
        guess = seen.y();
        const Eigen::Array2d position = (seen.array() - source_.offset) / source_.step;
        nodes_[static_cast<size_t>(row * columns_ + column)] =
            position.max(-kMargin).min(size + kMargin);
    }
}

}  // namespace framehold
