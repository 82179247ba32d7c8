#pragma once

#include <cmath>
#include <type_traits>

namespace qlx::zpr_framehold {

/// Quaternion of four doubles, used as the rotation from device to world coordinates.
///
/// Storage order is x, y, z, w; argument order is w first. A unit quaternion with
/// w = cos(a / 2) and (x, y, z) = n * sin(a / 2) rotates by the angle a about the unit axis n.
/// Only `normalize` and `inverse` bring the length to 1.
///
/// Products follow Hamilton: a * b applies b in the frame of a, so an orientation q is advanced by
/// a rotation d in device coordinates as q * d.
struct Quaternion {
    double x;
    double y;
    double z;
    double w;

    /// Deliberate: leaves the components unset, so that making a buffer of records costs nothing.
    Quaternion() {}

    Quaternion(double w_, double x_, double y_, double z_) : x(x_), y(y_), z(z_), w(w_) {}

    /// Returns the rotation by the vector v * scale (axis times angle). A v of length 5e-8 or less
    /// gives the identity, whatever the scale.
    static Quaternion fromRotationVector(const double v[3], double scale) {
        const double n = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        if (n <= 5e-8) return {1.0, 0.0, 0.0, 0.0};
        const double h = scale * 0.5 * n;
        const double inv = 1.0 / n;
        const double s = std::sin(h);
        return {std::cos(h), v[0] * inv * s, v[1] * inv * s, v[2] * inv * s};
    }

    double squaredNorm() const { return w * w + x * x + y * y + z * z; }
    double norm() const { return std::sqrt(squaredNorm()); }

    /// Returns true if all components are finite.
    bool isFinite() const {
        return std::isfinite(w) && std::isfinite(x) && std::isfinite(y) && std::isfinite(z);
    }

    /// Returns true if the length is 1 but for rounding.
    bool isOfUnitLength() const { return std::fabs(squaredNorm() - 1.0) <= 1e-13; }

    /// Compares exactly, without tolerance.
    bool operator==(const Quaternion& other) const {
        return w == other.w && x == other.x && y == other.y && z == other.z;
    }

    Quaternion operator*(const Quaternion& b) const {
        return {w * b.w - x * b.x - y * b.y - z * b.z, w * b.x + x * b.w + y * b.z - z * b.y,
                w * b.y - x * b.z + y * b.w + z * b.x, w * b.z + x * b.y - y * b.x + z * b.w};
    }

    Quaternion& operator*=(const Quaternion& b) { return *this = *this * b; }

    Quaternion operator*(double s) const { return {w * s, x * s, y * s, z * s}; }

    Quaternion& operator*=(double s) { return *this = *this * s; }

    /// Divides by the length. The zero quaternion becomes NaN.
    void normalize() {
        const double n = norm();
        w /= n;
        x /= n;
        y /= n;
        z /= n;
    }

    /// Returns the conjugate at unit length.
    /// Deliberate: not divided by the squared length, which differs unless the length is 1.
    Quaternion inverse() const {
        Quaternion r(w, -x, -y, -z);
        r.normalize();
        return r;
    }

    /// Writes the 3 x 3 rotation matrix of a unit quaternion, row by row.
    void toRotationMatrix(double m[9]) const {
        const auto twice = [](double t) { return t + t; };
        m[0] = 1.0 - twice(y * y + z * z);
        m[1] = twice(x * y - w * z);
        m[2] = twice(x * z + w * y);
        m[3] = twice(x * y + w * z);
        m[4] = 1.0 - twice(x * x + z * z);
        m[5] = twice(y * z - w * x);
        m[6] = twice(x * z - w * y);
        m[7] = twice(y * z + w * x);
        m[8] = 1.0 - twice(x * x + y * y);
    }
};

static_assert(std::is_trivially_copyable_v<Quaternion>);
static_assert(sizeof(Quaternion) == 4 * sizeof(double));

/// Angle between two quaternions as points of the unit sphere, and its sine. Not a number where
/// rounding makes their dot product exceed 1.
struct Arc {
    double angle;
    double sine;
};

inline Arc arcBetween(const Quaternion& a, const Quaternion& b) {
    const double angle = std::acos(a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z);
    return {angle, std::sin(angle)};
}

/// Spherical linear interpolation from a (t = 0) to b (t = 1) along the arc between them. The
/// result is not renormalised.
///
/// Deliberate: b is not flipped to the shorter arc when the dot product is negative, and the dot
/// product is not clamped; where the angle's sine is 0 or not a number the result is a.
inline Quaternion slerp(const Quaternion& a, const Quaternion& b, const Arc& arc, double t) {
    if (!(arc.sine > 0.0)) return a;
    const double ka = std::sin((1.0 - t) * arc.angle) / arc.sine;
    const double kb = std::sin(t * arc.angle) / arc.sine;
    return {ka * a.w + kb * b.w, ka * a.x + kb * b.x, ka * a.y + kb * b.y, ka * a.z + kb * b.z};
}

inline Quaternion slerp(const Quaternion& a, const Quaternion& b, double t) {
    return slerp(a, b, arcBetween(a, b), t);
}

}  // namespace qlx::zpr_framehold
