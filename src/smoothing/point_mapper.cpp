#include "smoothing/point_mapper.h"

#include <cmath>

namespace qlx::zpr_framehold {

/// Computes the homography for the input row y into `last`, unless it has the same time already.
const PointMapper::Homography& PointMapper::homographyAt(double y, Homography& last) const {
    const double time = timing_.at(y);
    // +0 and -0 count as different times: interpolation may differ in the sign of a 0.
    if (time == last.time && std::signbit(time) == std::signbit(last.time)) return last;
    last.time = time;
    Quaternion measured;
    last.isKnown = hub_.getOrientation(time, measured);
    if (last.isKnown) {
        Matrix3 rotation;
        (toVirtual_ * measured).toRotationMatrix(rotation.m);
        last.matrix = view_.cropCamera * rotation * view_.cameraInv;
    }
    return last;
}

bool PointMapper::mapOutputPoint(double xTarget, double yTarget, double rowHint, MeshPoint& out) {
    constexpr int kMaxPasses = 20;
    constexpr double kConverged = 0.15;  // squared distance in output pixels

    const Vector3 target{xTarget, yTarget, 1.0};
    const Vector3 start = view_.cropInv * target;
    double x = start.x;
    double y = rowHint >= 0.0 ? rowHint : start.y;
    for (int pass = 1; pass <= kMaxPasses; ++pass) {
        const Homography& homography = homographyAt(y, pass == 1 ? first_ : later_);
        if (!homography.isKnown) return false;
        const Matrix3& h = homography.matrix;
        const Vector3 image = h * Vector3{x, y, 1.0};
        const double dx = xTarget - image.x / image.z;
        const double dy = yTarget - image.y / image.z;
        if (dx * dx + dy * dy < kConverged) {
            const Vector3 position = inverse(h) * target;
            out = {position.x / position.z, position.y / position.z};
            return true;
        }
        x += dx * h(2, 2) / h(0, 0);
        y += dy * h(2, 2) / h(1, 1);
    }
    return false;
}

}  // namespace qlx::zpr_framehold
