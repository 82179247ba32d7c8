#include "sensors/fusion.h"

#include <cmath>

namespace qlx::zpr_framehold {

namespace {

Vector3 cross(const Vector3& a, const Vector3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double dot(const Vector3& a, const Vector3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

double length(const Vector3& a) { return std::sqrt(dot(a, a)); }

/// Returns the rotation by 2 * halfAngle about `axis`, which need not be of unit length.
Quaternion rotationAbout(const Vector3& axis, double halfAngle) {
    const double n = length(axis);
    const double s = std::sin(halfAngle);
    return {std::cos(halfAngle), axis.x * s / n, axis.y * s / n, axis.z * s / n};
}

/// Returns `orientation` advanced by the rate `w` over `seconds`.
Quaternion integrate(const Quaternion& orientation, const double w[3], double seconds) {
    Quaternion next = orientation * Quaternion::fromRotationVector(w, seconds);
    next.normalize();
    return next;
}

}  // namespace

Complementary::Complementary(int kind, int unitMode)
    : kind_(kind), gravityScale_(unitMode == 1 ? 1.0 : 1.0 / kStandardGravity),
      reference_{0.0, 0.0, unitMode == 1 ? -1.0 : 1.0} {}

Quaternion Complementary::orientationFromGravity(const Vector3& a) const {
    const Vector3 axis = cross(a, reference_);
    // Deliberate: gravity exactly against the reference gives the identity, too.
    if (dot(axis, axis) <= 1e-6) return {1.0, 0.0, 0.0, 0.0};
    return rotationAbout(axis, std::acos(dot(a, reference_) / length(a)) / 2.0);
}

void Complementary::addGravity(const double a[3], double t) {
    const Vector3 gravity{a[0], a[1], a[2]};
    if (gravityTime_ < 0.0) orientation_ = orientationFromGravity(gravity);
    gravityTime_ = t;
    lastGravity_ = gravity;
    trusted_ = std::fabs(length(gravity) * gravityScale_ - 1.0) < kTrustTolerance;
}

Quaternion Complementary::correctTilt(const Quaternion& orientation) const {
    const Quaternion reading(0.0, lastGravity_.x, lastGravity_.y, lastGravity_.z);
    Quaternion world = orientation * reading * orientation.inverse();
    world.normalize();
    const Vector3 measured{world.x, world.y, world.z};
    const Vector3 axis = cross(measured, reference_);
    if (!(dot(axis, axis) > 1e-12)) return orientation;
    const double tilt = std::acos(dot(measured, reference_) / length(measured));
    Quaternion corrected = rotationAbout(axis, kGain * 0.5 * tilt) * orientation;
    corrected.normalize();
    return corrected;
}

bool Complementary::addRate(const double w[3], double t) {
    if (gravityTime_ >= 0.0 && integratedTime_ < t) {
        Quaternion next = orientation_;
        double from = integratedTime_;
        // Deliberate: > 0, so the sample that starts the integration never corrects the tilt.
        if (gravityTime_ > from && from > 0.0 && trusted_) {
            next = correctTilt(integrate(next, w, gravityTime_ - from));
            from = gravityTime_;
        } else if (from < 0.0) {
            from = gravityTime_;
        }
        next = integrate(next, w, t - from);
        if (!next.isFinite()) return false;
        orientation_ = next;
    }
    lastRate_ = {w[0], w[1], w[2]};
    integratedTime_ = t;
    return true;
}

}  // namespace qlx::zpr_framehold
