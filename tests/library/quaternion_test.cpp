#include "math/quaternion.h"

#include "math/matrix3.h"
#include "support/test_support.h"

#include <limits>

using namespace qlx::zpr_framehold;
using namespace zpr_test;

namespace {

// A handful of roundings of numbers around 1.
constexpr double kTolerance = 16 * std::numeric_limits<double>::epsilon();

void expectNear(const Quaternion& a, const Quaternion& b, double tolerance = kTolerance) {
    EXPECT_NEAR(a.w, b.w, tolerance);
    EXPECT_NEAR(a.x, b.x, tolerance);
    EXPECT_NEAR(a.y, b.y, tolerance);
    EXPECT_NEAR(a.z, b.z, tolerance);
}

TEST(Quaternion, RotationVectorThreshold) {
    const double at[3] = {5e-8, 0.0, 0.0};
    const double above[3] = {5.001e-8, 0.0, 0.0};
    EXPECT_EQ(Quaternion::fromRotationVector(at, 1e6), Quaternion(1.0, 0.0, 0.0, 0.0));
    EXPECT_NEAR(Quaternion::fromRotationVector(above, 1e6).x, std::sin(0.5 * 5.001e-2), kTolerance);
    const double any[3] = {0.1, -0.2, 0.3};
    expectNear(Quaternion::fromRotationVector(any, 0.0), {1.0, 0.0, 0.0, 0.0});
}

TEST(Quaternion, ProductFollowsHamilton) {
    const Quaternion i(0, 1, 0, 0), j(0, 0, 1, 0), k(0, 0, 0, 1);
    EXPECT_EQ(i * j, k);
    EXPECT_EQ(j * k, i);
    EXPECT_EQ(k * i, j);
    EXPECT_EQ(j * i, k * -1.0);
    // A quarter turn about z, then one about the turned x axis.
    const Quaternion q = rotation(M_PI_2, 0, 0, 1) * rotation(M_PI_2, 1, 0, 0);
    Matrix3 m;
    q.toRotationMatrix(m.m);
    const Vector3 v = m * Vector3{0.0, 1.0, 0.0};
    EXPECT_NEAR(std::hypot(v.x, v.y, v.z - 1.0), 0.0, kTolerance);
}

TEST(Quaternion, PropertiesOfRandomRotations) {
    TestRandom random(11);
    for (int i = 0; i < 200; ++i) {
        const auto draw = [&] { return random.uniform(-1, 1) * (i % 3 == 0 ? 1e-8 : 3.0); };
        const Quaternion a = rotation(1.0, draw(), draw(), draw()),
                         b = rotation(1.0, draw(), draw(), draw());
        EXPECT_NEAR((a * b).norm(), 1.0, kTolerance);
        expectNear(a * a.inverse(), {1.0, 0.0, 0.0, 0.0});
        expectNear(slerp(a, b, 0.0), a, 1e-12);
        expectNear(slerp(a, b, 1.0), b, 1e-12);
        Matrix3 ma, mb, mab;
        a.toRotationMatrix(ma.m);
        b.toRotationMatrix(mb.m);
        (a * b).toRotationMatrix(mab.m);
        const Matrix3 product = ma * mb, unit = mab * inverse(mab);
        for (int e = 0; e < 9; ++e) {
            EXPECT_NEAR(product.m[e], mab.m[e], kTolerance);
            EXPECT_NEAR(unit.m[e], e % 4 == 0 ? 1.0 : 0.0, kTolerance);
        }
    }
}

TEST(Quaternion, DeliberateSlerpTakesTheLongerArc) {
    const Quaternion a(1.0, 0.0, 0.0, 0.0);
    const Quaternion b = rotation(1.0, 0, 0, 1) * -1.0;
    // The angle between a and b as points on the sphere is pi - 0.5, not 0.5.
    const Quaternion middle = slerp(a, b, 0.5);
    EXPECT_NEAR(middle.w, std::cos((M_PI - 0.5) / 2.0), kTolerance);
    EXPECT_LT(middle.z, 0.0);
}

TEST(Quaternion, DeliberateSlerpWithoutAngleIsItsStart) {
    const Quaternion a(2.0, 0.0, 0.0, 0.0);  // the dot product is outside [-1, 1]
    EXPECT_EQ(slerp(a, a, 0.3), a);
    EXPECT_EQ(slerp(a, Quaternion(1.0, 0.0, 0.0, 0.0), 0.9), a);
    // Towards all zeros the start is scaled by sin((1 - t) pi / 2).
    const Quaternion one(1.0, 0.0, 0.0, 0.0);
    EXPECT_NEAR(slerp(one, {0, 0, 0, 0}, 0.3).w, 0.8910065241883678, kTolerance);
}

TEST(Quaternion, DeliberateInverseHasUnitLength) {
    expectNear(Quaternion(2.0, 0.0, 0.0, 0.0).inverse(), {1.0, 0.0, 0.0, 0.0}, 0.0);
}

TEST(Quaternion, ComparisonIsExactAndZeroHasNoDirection) {
    const double nan = std::nan("");
    EXPECT_EQ(Quaternion(0.0, 0, 0, 1), Quaternion(-0.0, 0, 0, 1));
    EXPECT_FALSE(Quaternion(nan, 0, 0, 1) == Quaternion(nan, 0, 0, 1));
    EXPECT_FALSE(Quaternion(0, 0, 0, 0).inverse().isFinite());
    for (const double v : inverse(Matrix3{{1, 2, 3, 2, 4, 6, 0, 1, 5}}).m) EXPECT_EQ(v, 0.0);
}

}  // namespace
