#pragma once

namespace qlx::zpr_framehold {

/// 3 x 3 matrix of doubles, row by row.
struct Matrix3 {
    double m[9];

    double& operator()(int row, int column) { return m[3 * row + column]; }
    double operator()(int row, int column) const { return m[3 * row + column]; }
};

/// Vector of three doubles; also a point of the plane in homogeneous coordinates.
struct Vector3 {
    double x;
    double y;
    double z;
};

inline Matrix3 operator*(const Matrix3& a, const Matrix3& b) {
    Matrix3 r;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            r(i, j) = a(i, 0) * b(0, j) + a(i, 1) * b(1, j) + a(i, 2) * b(2, j);
    }
    return r;
}

inline Vector3 operator*(const Matrix3& a, const Vector3& v) {
    return {a.m[0] * v.x + a.m[1] * v.y + a.m[2] * v.z, a.m[3] * v.x + a.m[4] * v.y + a.m[5] * v.z,
            a.m[6] * v.x + a.m[7] * v.y + a.m[8] * v.z};
}

/// Returns the inverse, adjugate divided by determinant; all zeros if the determinant is exactly 0.
/// The entries are divided one by one: a multiplication by the reciprocal rounds differently.
inline Matrix3 inverse(const Matrix3& a) {
    const double* m = a.m;
    const double c0 = m[4] * m[8] - m[5] * m[7];
    const double c1 = m[5] * m[6] - m[3] * m[8];
    const double c2 = m[3] * m[7] - m[4] * m[6];
    const double det = m[0] * c0 + m[1] * c1 + m[2] * c2;
    if (det == 0.0) return {};
    return {{c0 / det, (m[2] * m[7] - m[1] * m[8]) / det, (m[1] * m[5] - m[2] * m[4]) / det,
             c1 / det, (m[0] * m[8] - m[2] * m[6]) / det, (m[2] * m[3] - m[0] * m[5]) / det,
             c2 / det, (m[1] * m[6] - m[0] * m[7]) / det, (m[0] * m[4] - m[1] * m[3]) / det}};
}

}  // namespace qlx::zpr_framehold
