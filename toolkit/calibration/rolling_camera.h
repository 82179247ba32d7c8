#pragma once

#include "calibration/camera_fit.h"

#include <array>
#include <cmath>

#include <Eigen/Geometry>

namespace framehold {

/// Motion of a feature with the timestamps of its two frames.
struct TimedMotion {
    FeatureMotion motion;
    double from;  // seconds
    double to;
};

/// Rolling-shutter camera that follows a log, and predicts the position of a feature from its
/// position in an earlier frame. It is the library's camera: a pinhole with its centre at
/// (width / 2, height / 2), picture x along device -y, picture y along device -x. Beyond the
/// library's, it has radial lens distortion: a share that any lens roughly has, 0 for a pinhole, or
/// a lens by its model.
class RollingCamera {
public:
    /// lens: the model, if any, and those of its coefficients that a fit does not find.
    RollingCamera(int width, int height, const GyroPath& gyro, const LensDistortion& lens)
        : gyro_(gyro), centre_(width / 2.0, height / 2.0), height_(height),
          cornerSquare_(centre_.squaredNorm()), lens_(lens) {}

    /// Values that a fit finds, for one clip.
    struct Values {
        double logFocal;
        double readout;
        double distortion;  // share by which a pinhole shows the corners further out; a lens's k1
        double offset;
        double drift;
        double k2;  // of a lens
    };
    static constexpr int kValues = 6;
    /// Derivatives of the error by the values, in their order.
    using Derivatives = Eigen::Matrix<double, 2, kValues>;

    /// Takes the values. steps: of k1 and k2, for derivatives.
    void set(const Values& values, const std::array<double, 2>& steps) {
        values_ = values;
        lensSteps_ = steps;
        if (lens_.isNone()) return;
        lens_ = lensWith(values.distortion, values.k2);
        stepped_ = {lensWith(values.distortion + steps[0], values.k2),
                    lensWith(values.distortion, values.k2 + steps[1])};
    }

    /// Predicted less tracked position, in pixels, with its derivatives, by finite differences.
    Eigen::Vector2d reprojectionError(const TimedMotion& feature, Derivatives& derivatives) const {
        constexpr double kTimeStep = 2e-4;  // seconds
        constexpr double kFocalStep = 1e-4;
        constexpr double kDistortionStep = 1e-4;
        const double focal = std::exp(values_.logFocal);
        const double from = rowTime(feature.from, feature.motion.fromY);
        const double to = rowTime(feature.to, feature.motion.toY);
        const auto errorAt = [&](double f, double k, double t, double u) {
            return lens_.isNone() ? reprojectionErrorAt(feature, f, k, t, u)
                                  : bentErrorAt(feature, f, lens_, t, u);
        };
        const double k = values_.distortion;
        const Eigen::Vector2d reprojectionError = errorAt(focal, k, from, to);
        const auto slope = [&](const Eigen::Vector2d& stepped, double step) {
            return Eigen::Vector2d((stepped - reprojectionError) / step);
        };
        const Eigen::Vector2d byFrom = slope(errorAt(focal, k, from + kTimeStep, to), kTimeStep);
        const Eigen::Vector2d byTo = slope(errorAt(focal, k, from, to + kTimeStep), kTimeStep);
        derivatives.col(0) = slope(errorAt(focal * (1.0 + kFocalStep), k, from, to), kFocalStep);
        derivatives.col(1) =
            byFrom * feature.motion.fromY / height_ + byTo * feature.motion.toY / height_;
        const auto byLens = [&](size_t i) {
            return slope(bentErrorAt(feature, focal, stepped_[i], from, to), lensSteps_[i]);
        };
        if (lens_.isNone()) {
            derivatives.col(2) =
                slope(errorAt(focal, k + kDistortionStep, from, to), kDistortionStep);
            derivatives.col(5).setZero();
        } else {
            derivatives.col(2) = byLens(0);
            derivatives.col(5) = byLens(1);
        }
        derivatives.col(3) = byFrom + byTo;
        derivatives.col(4) = byFrom * feature.from + byTo * feature.to;
        return reprojectionError;
    }

private:
    double rowTime(double timestamp, double y) const {
        return timestamp * (1.0 + values_.drift) + values_.offset + values_.readout * y / height_;
    }

    LensDistortion lensWith(double k1, double k2) const {
        LensDistortion::Coefficients k = lens_.coefficients();
        k[0] = k1;
        k[1] = k2;
        return {lens_.model(), k};
    }

    Eigen::Vector2d bentErrorAt(const TimedMotion& feature, double focal,
                                const LensDistortion& lens, double from, double to) const {
        const FeatureMotion& m = feature.motion;
        const Eigen::Vector2d start = Eigen::Vector2d(m.fromX, m.fromY) - centre_;
        const double distance = start.norm();
        const double angle = lens.angle(distance / focal);
        const double across = distance > 0.0 ? std::sin(angle) / distance : 1.0 / focal;
        const Eigen::Vector3d ray(-start.y() * across, -start.x() * across, -std::cos(angle));
        const Eigen::Vector3d still = gyro_.at(from) * ray;
        const Eigen::Vector3d seen = gyro_.at(to).conjugate() * still;
        const double turned = std::hypot(seen.x(), seen.y());
        const double radius = lens.at(std::atan2(turned, -seen.z())).radius;
        const double scale = turned > 0.0 ? focal * radius / turned : focal;
        return Eigen::Vector2d(-scale * seen.y(), -scale * seen.x()) -
               (Eigen::Vector2d(m.toX, m.toY) - centre_);
    }

    /// Position from the centre at which a pinhole would see what is seen at (x, y).
    Eigen::Vector2d undistorted(double x, double y, double distortion) const {
        const Eigen::Vector2d at = Eigen::Vector2d(x, y) - centre_;
        return at * (1.0 + distortion * at.squaredNorm() / cornerSquare_);
    }

    Eigen::Vector2d reprojectionErrorAt(const TimedMotion& feature, double focal, double distortion,
                                        double from, double to) const {
        const FeatureMotion& m = feature.motion;
        const Eigen::Vector2d start = undistorted(m.fromX, m.fromY, distortion);
        const Eigen::Vector3d ray(-start.y(), -start.x(), -focal);
        const Eigen::Vector3d still = gyro_.at(from) * ray;
        const Eigen::Vector3d seen = gyro_.at(to).conjugate() * still;
        const double scale = focal / -seen.z();
        return Eigen::Vector2d(-scale * seen.y(), -scale * seen.x()) -
               undistorted(m.toX, m.toY, distortion);
    }

    const GyroPath& gyro_;
    Eigen::Vector2d centre_;
    double height_;
    double cornerSquare_;  // pixels^2, square distance of the corners from the centre
    LensDistortion lens_;
    std::array<LensDistortion, 2> stepped_;  // with another k1, with another k2
    Values values_{};
    std::array<double, 2> lensSteps_{};
};

}  // namespace framehold
