// The mapping of output pixels into the input under a rolling shutter, and what follows from it
// for the virtual orientation: the part of Smoother that keeps the output inside the input.
#include "smoothing/smoother.h"

namespace qlx::zpr_framehold {

/// Finds the input position whose row, at its own readout time, is seen at the output position.
/// rowHint: an input row to start from, negative for none.
bool Smoother::mapOutputPoint(const Quaternion& q, double t, double xTarget, double yTarget,
                              double rowHint, MeshPoint& out) const {
    constexpr int kMaxPasses = 20;
    constexpr double kConverged = 0.15;  // squared distance in output pixels

    const Vector3 target{xTarget, yTarget, 1.0};
    const Vector3 start = cropMatrixInv_ * target;
    const Quaternion toVirtual = q.inverse();
    double x = start.x;
    double y = rowHint >= 0.0 ? rowHint : start.y;
    Matrix3 h;
    for (int pass = 1;; ++pass) {
        const double rowTime = rollingShutter_ ? t + y * params_->readoutTime / inputHeight_ : t;
        Quaternion measured;
        if (!hub_->getOrientation(rowTime, measured)) return false;
        Matrix3 rotation;
        (toVirtual * measured).toRotationMatrix(rotation.m);
        h = cropCameraMatrix_ * rotation * cameraMatrixInv_;
        const Vector3 image = h * Vector3{x, y, 1.0};
        const double dx = xTarget - image.x / image.z;
        const double dy = yTarget - image.y / image.z;
        if (dx * dx + dy * dy < kConverged) break;
        if (pass == kMaxPasses) return false;
        x += dx * h(2, 2) / h(0, 0);
        y += dy * h(2, 2) / h(1, 1);
    }
    const Vector3 position = inverse(h) * target;
    out = {position.x / position.z, position.y / position.z};
    return true;
}

bool Smoother::isOutside(const Quaternion& q, double t, int32_t x, int32_t y) const {
    MeshPoint p;
    if (!mapOutputPoint(q, t, x, y, -1.0, p)) return true;
    return !(p.x >= 0.0 && p.x <= inputWidth_ - 1 && p.y >= 0.0 && p.y <= inputHeight_ - 1);
}

bool Smoother::violatesCrop(const Quaternion& q, double t) {
    Quaternion atReadoutEnd;
    rollingShutter_ = hub_->getOrientation(t + params_->readoutTime, atReadoutEnd);

    const int32_t right = outputWidth_ - 1;
    const int32_t bottom = outputHeight_ - 1;
    if (isOutside(q, t, 0, 0) || isOutside(q, t, right, 0) || isOutside(q, t, 0, bottom) ||
        isOutside(q, t, right, bottom)) {
        return true;
    }
    // 64 bits, so that the step past the last row of the tallest frame does not overflow.
    for (int64_t y = 0; y < bottom; y += kMeshStep) {
        const auto row = static_cast<int32_t>(y);
        if (isOutside(q, t, 0, row) || isOutside(q, t, right, row)) return true;
    }
    return false;
}

void Smoother::pullIntoCrop(Quaternion& q, double t) {
    if (!violatesCrop(q, t)) return;
    Quaternion measured;
    if (!queryOrientation(t, measured)) return;
    float lo = 0.0f;
    float hi = 1.0f;
    do {
        const float mid = (lo + hi) * 0.5f;
        if (violatesCrop(slerp(q, measured, mid), t)) {
            lo = mid;
        } else {
            hi = mid;
        }
    } while (hi - lo > 0.001f);
    q = slerp(q, measured, hi);
}

}  // namespace qlx::zpr_framehold
