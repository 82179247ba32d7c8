#pragma once

#include <array>
#include <limits>
#include <optional>
#include <string>

namespace framehold {

/// Formula by which a lens departs from a pinhole. t is the angle between a ray and the optical axis,
/// r = tan t, and both formulas give the distance of the ray's pixel from the centre in focal
/// lengths. They are those of OpenCV's modules calib3d and calib3d::fisheye.
enum class LensModel {
    kNone,        // r, of a pinhole
    kPolynomial,  // r (1 + k1 r^2 + k2 r^4 + k3 r^6) / (1 + k4 r^2)
    kFisheye,     // t (1 + k1 t^2 + k2 t^4 + k3 t^6 + k4 t^8)
};

/// Name in files and options: "none", "polynomial", "fisheye".
const char* nameOf(LensModel model);

/// Model of a name; none for a name that is not one.
std::optional<LensModel> lensModelOf(const std::string& name);

/// Radial distortion of a lens. Its curve from the angle to the distance rises up to a limit, where
/// the model ends or folds back; beyond it goes on as a straight line, so that every ray has one
/// pixel and every pixel one ray. What lies there is no picture.
class LensDistortion {
public:
    using Coefficients = std::array<double, 4>;  // k1 to k4

    /// A pinhole's.
    LensDistortion() = default;

    /// A polynomial model whose coefficients are all 0 is a pinhole's.
    LensDistortion(LensModel model, const Coefficients& k);

    LensModel model() const { return model_; }
    const Coefficients& coefficients() const { return k_; }
    bool isNone() const { return model_ == LensModel::kNone; }
    bool operator==(const LensDistortion& other) const {
        return model_ == other.model_ && k_ == other.k_;
    }

    /// Distance from the centre, in focal lengths, at which the model ends: all of a picture should
    /// be nearer. Infinite for a pinhole.
    double largestRadius() const { return largestRadius_; }
    /// Angle there.
    double largestAngle() const { return largestAngle_; }

    /// Point of the curve: distance in focal lengths, and its derivative by the angle.
    struct Point {
        double radius;
        double slope;
    };

    /// Point at an angle of 0 to pi from the optical axis, for a pinhole less than pi / 2.
    Point at(double angle) const;

    /// Angle of a distance.
    double angle(double radius) const;

private:
    Point inside(double angle) const;

    LensModel model_ = LensModel::kNone;
    Coefficients k_{};
    double largestAngle_ = 1.5707963267948966;  // pi / 2
    double largestRadius_ = std::numeric_limits<double>::infinity();
};

}  // namespace framehold
