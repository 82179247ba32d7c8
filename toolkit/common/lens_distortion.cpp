#include "common/lens_distortion.h"

#include <algorithm>
#include <cmath>

namespace framehold {

namespace {

constexpr double kPi = 3.14159265358979323846;
// Beyond these angles a model is not used: tangents grow without bound, and right behind a fisheye
// there is one pixel for all directions.
constexpr double kLargestPolynomial = 85.0 / 180.0 * kPi;
constexpr double kLargestFisheye = 170.0 / 180.0 * kPi;
constexpr double kLeastSlope = 0.01;  // focal lengths per radian; below, the model folds back

}  // namespace

const char* nameOf(LensModel model) {
    switch (model) {
        case LensModel::kPolynomial:
            return "polynomial";
        case LensModel::kFisheye:
            return "fisheye";
        case LensModel::kNone:
            break;
    }
    return "none";
}

std::optional<LensModel> lensModelOf(const std::string& name) {
    for (const LensModel model : {LensModel::kNone, LensModel::kPolynomial, LensModel::kFisheye}) {
        if (name == nameOf(model)) return model;
    }
    return std::nullopt;
}

LensDistortion::LensDistortion(LensModel model, const Coefficients& k) : model_(model), k_(k) {
    const bool isZero = std::all_of(k.begin(), k.end(), [](double c) { return c == 0.0; });
    if (model == LensModel::kPolynomial && isZero) model_ = LensModel::kNone;
    if (isNone()) {
        k_ = {};
        return;
    }
    const bool isFisheye = model == LensModel::kFisheye;
    const double end = isFisheye ? kLargestFisheye : kLargestPolynomial;
    constexpr int kSteps = 1000;
    const auto rises = [this](double angle) {
        const Point point = inside(angle);
        return point.slope >= kLeastSlope && std::isfinite(point.radius);
    };
    double low = 0.0;
    double high = end;
    for (int i = 1; i <= kSteps; ++i) {
        high = end * i / kSteps;
        if (!rises(high)) break;
        low = high;
    }
    while (high - low > 1e-9) {
        const double middle = (low + high) / 2.0;
        (rises(middle) ? low : high) = middle;
    }
    largestAngle_ = low;
    largestRadius_ = inside(low).radius;
}

LensDistortion::Point LensDistortion::inside(double angle) const {
    const double x = model_ == LensModel::kFisheye ? angle : std::tan(angle);
    const double s = x * x;
    const auto& [k1, k2, k3, k4] = k_;
    if (model_ == LensModel::kFisheye) {
        return {x * (1.0 + s * (k1 + s * (k2 + s * (k3 + s * k4)))),
                1.0 + s * (3.0 * k1 + s * (5.0 * k2 + s * (7.0 * k3 + s * 9.0 * k4)))};
    }
    const double above = x * (1.0 + s * (k1 + s * (k2 + s * k3)));
    const double aboveSlope = 1.0 + s * (3.0 * k1 + s * (5.0 * k2 + s * 7.0 * k3));
    const double below = 1.0 + s * k4;
    if (!(below > 0.0)) return {above, 0.0};
    return {above / below, (aboveSlope - above * 2.0 * k4 * x / below) / below * (1.0 + s)};
}

LensDistortion::Point LensDistortion::at(double angle) const {
    if (angle <= largestAngle_) return inside(angle);
    return {largestRadius_ + (angle - largestAngle_), 1.0};
}

double LensDistortion::angle(double radius) const {
    if (isNone()) return std::atan(radius);
    if (!(radius < largestRadius_)) {
        return std::min(largestAngle_ + (radius - largestRadius_), kPi);
    }
    // Newton's steps, or halves where they leave the range that is left.
    constexpr int kMaxSteps = 60;
    constexpr double kTolerance = 1e-13;
    double low = 0.0;
    double high = largestAngle_;
    double angle = std::min(model_ == LensModel::kFisheye ? radius : std::atan(radius), high);
    for (int i = 0; i < kMaxSteps; ++i) {
        const Point point = inside(angle);
        const double error = point.radius - radius;
        (error > 0.0 ? high : low) = angle;
        double next = angle - error / point.slope;
        if (!(next > low && next < high)) next = (low + high) / 2.0;
        if (std::fabs(next - angle) < kTolerance) return next;
        angle = next;
    }
    return angle;
}

}  // namespace framehold
