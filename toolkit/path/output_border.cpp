#include "path/output_border.h"

#include "path/rotation_vector.h"

#include <algorithm>
#include <cmath>

namespace framehold {

namespace {

using Eigen::Quaterniond;
using Eigen::Vector2d;
using Eigen::Vector3d;

/// Pixels of the source around one that a renderer reads: from 1 before to 2 after, if it is
/// bicubic.
constexpr double kMargin = 2.0;

/// Between orientations that lie close together.
Quaterniond between(const Quaterniond& from, const Quaterniond& to, double share) {
    const double sign = from.dot(to) < 0.0 ? -1.0 : 1.0;
    return Quaterniond((1.0 - share) * from.coeffs() + share * sign * to.coeffs()).normalized();
}

Eigen::Matrix3d crossMatrix(const Vector3d& v) {
    Eigen::Matrix3d result;
    result << 0.0, -v.z(), v.y(), v.z(), 0.0, -v.x(), -v.y(), v.x(), 0.0;
    return result;
}

}  // namespace

RowOrientations::RowOrientations(const OrientationTrack& track, const PinholeCamera& source,
                                 double firstRowTime)
    : stepsPerRow_(static_cast<double>(kSteps) / source.height) {
    if (source.readout == 0.0) {
        rows_.fill(track.at(firstRowTime));
        return;
    }
    for (int i = 0; i <= kSteps; ++i) {
        rows_[static_cast<size_t>(i)] = track.at(source.rowTime(firstRowTime, i / stepsPerRow_));
    }
}

Quaterniond RowOrientations::at(double y) const {
    const double step = std::clamp(y * stepsPerRow_, 0.0, static_cast<double>(kSteps));
    const auto before = static_cast<size_t>(std::min(static_cast<int>(step), kSteps - 1));
    return between(rows_[before], rows_[before + 1], step - static_cast<double>(before));
}

OutputBorder::OutputBorder(const PinholeCamera& source, const PinholeCamera& output)
    : source_(source), output_(output), atRest_({}, source, 0.0) {
    auto point = points_.begin();
    for (int axis = 0; axis < 2; ++axis) {
        for (const double sign : {-1.0, 1.0}) {
            for (int i = 0; i < kPerSide; ++i) {
                const double along = static_cast<double>(i) / (kPerSide - 1);
                const double across = sign < 0.0 ? 0.0 : 1.0;
                const Vector2d place =
                    axis == 0 ? Vector2d(across, along) : Vector2d(along, across);
                const Vector2d size(output.width, output.height);
                *point++ = {place.cwiseProduct(size), axis, sign};
            }
        }
    }
    if (!source.lens.isNone()) bend_ = largestBend();
}

double OutputBorder::largestBend() const {
    const Distances plain = distances(atRest_, View());
    // Turns that bring a side to that of the source: there it is bent most.
    Vector3d turn = Vector3d::Zero();
    for (int axis = 0; axis < 2; ++axis) {
        double room = INFINITY;
        for (int i = 0; i < kCount; ++i) {
            if (points_[static_cast<size_t>(i)].axis == axis) room = std::min(room, -plain[i]);
        }
        const double edge = (axis == 0 ? source_.width : source_.height) / 2.0;
        turn[1 - axis] = source_.lens.angle(edge / source_.focal) -
                         source_.lens.angle(std::max(0.0, edge - room) / source_.focal);
    }
    double result = 0.0;
    for (int i = 0; i < 9; ++i) {
        const Quaterniond view = rotationBy(turn.cwiseProduct(Vector3d(i % 3 - 1, i / 3 - 1, 0.0)));
        const auto seen = [&](const Vector2d& pixel) {
            return source_.project(view * output_.ray(pixel));
        };
        for (size_t j = 0; j + 1 < points_.size(); ++j) {
            const Point& point = points_[j];
            const Point& next = points_[j + 1];
            if (j % kPerSide == kPerSide - 1) continue;  // another side's
            const Vector2d middle = (point.pixel + next.pixel) / 2.0;
            const Vector2d bend = seen(middle) - (seen(point.pixel) + seen(next.pixel)) / 2.0;
            result = std::max(result, point.sign * bend[point.axis]);
        }
    }
    return result;
}

OutputBorder::Distances OutputBorder::distances(const RowOrientations& rows, const View& view,
                                                Slopes* slopes) const {
    constexpr int kRounds = 4;        // each leaves a tenth of the error, or less
    constexpr double kRowStep = 1.0;  // rows, for the derivative
    const PinholeCamera output = view.zoomed(output_);
    // Parts of a larger border are longer, and bent more.
    const double margin = kMargin + bend_ / std::min(1.0, view.zoom * view.zoom);
    Distances result;
    for (int i = 0; i < kCount; ++i) {
        const Point& point = points_[static_cast<size_t>(i)];
        const Vector3d ray = output.ray(point.pixel);
        const Vector3d direction = view.orientation * ray;
        const auto seen = [&](double y) -> Vector3d {
            Vector3d d = rows.at(y).conjugate() * direction;
            // A view so far from the camera is no candidate; keeps numbers finite.
            if (source_.lens.isNone()) d.z() = std::min(d.z(), -0.05 * ray.norm());
            return d;
        };
        double y = source_.height / 2.0;
        Vector2d pixel;
        for (int round = 0; round < kRounds; ++round) {
            pixel = source_.project(seen(y));
            y = std::clamp(pixel.y(), 0.0, static_cast<double>(source_.height));
        }
        const double size = point.axis == 0 ? source_.width : source_.height;
        // Valid for pixels at whole coordinates and for those at halves.
        const double limit = point.sign < 0.0 ? margin : size - 1.0 - margin;
        result[i] = point.sign * (pixel[point.axis] - limit);
        if (!slopes) continue;
        const Vector3d d = seen(y);
        const Eigen::Matrix<double, 2, 3> still =
            source_.projectSlopes(d) * rows.at(y).conjugate().toRotationMatrix() *
            view.orientation.toRotationMatrix() * -crossMatrix(ray);
        // A point that moves down is read later, when the camera has turned on.
        const Vector2d perRow =
            (source_.project(seen(y + kRowStep)) - source_.project(seen(y - kRowStep))) /
            (2.0 * kRowStep);
        const Eigen::RowVector3d down = still.row(1) / std::max(0.2, 1.0 - perRow.y());
        slopes->row(i) = point.sign * (point.axis == 0 ? still.row(0) + perRow.x() * down : down);
    }
    return result;
}

double OutputBorder::shareUsed(const RowOrientations& rows, const View& view) const {
    const Distances used = distances(rows, view);
    const Distances plain = distances(atRest_, {Quaterniond::Identity(), view.zoom});
    double result = 0.0;
    for (int i = 0; i < kCount; ++i) {
        const double room = -plain[i];
        result = std::max(result, room > 0.0 ? 1.0 + used[i] / room : 1.0);
    }
    return result;
}

}  // namespace framehold
