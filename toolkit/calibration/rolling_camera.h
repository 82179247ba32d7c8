#pragma once

#include "calibration/camera_fit.h"

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
/// library's, it has radial lens distortion: 0 for a pinhole.
class RollingCamera {
public:
    RollingCamera(int width, int height, const GyroPath& gyro)
        : gyro_(gyro), centre_(width / 2.0, height / 2.0), height_(height),
          cornerSquare_(centre_.squaredNorm()) {}

    /// Values that a fit finds, for one clip.
    struct Values {
        double logFocal;
        double readout;
        double distortion;  // share by which a pinhole shows the corners further out
        double offset;
        double drift;
    };
    static constexpr int kValues = 5;
    /// Derivatives of the error by the values, in their order.
    using Derivatives = Eigen::Matrix<double, 2, kValues>;

    /// Predicted less tracked position, in pixels.
    Eigen::Vector2d reprojectionError(const TimedMotion& feature, const Values& values) const {
        return reprojectionErrorAt(feature, std::exp(values.logFocal), values.distortion,
                                   rowTime(feature.from, feature.motion.fromY, values),
                                   rowTime(feature.to, feature.motion.toY, values));
    }

    /// The same with its derivatives, by finite differences.
    Eigen::Vector2d reprojectionError(const TimedMotion& feature, const Values& values,
                                      Derivatives& derivatives) const {
        constexpr double kTimeStep = 2e-4;  // seconds
        constexpr double kFocalStep = 1e-4;
        constexpr double kDistortionStep = 1e-4;
        const double focal = std::exp(values.logFocal);
        const double from = rowTime(feature.from, feature.motion.fromY, values);
        const double to = rowTime(feature.to, feature.motion.toY, values);
        const auto errorAt = [&](double f, double k, double t, double u) {
            return reprojectionErrorAt(feature, f, k, t, u);
        };
        const double k = values.distortion;
        const Eigen::Vector2d reprojectionError = errorAt(focal, k, from, to);
        const auto slope = [&](const Eigen::Vector2d& stepped, double step) {
            return Eigen::Vector2d((stepped - reprojectionError) / step);
        };
        const Eigen::Vector2d byFrom = slope(errorAt(focal, k, from + kTimeStep, to), kTimeStep);
        const Eigen::Vector2d byTo = slope(errorAt(focal, k, from, to + kTimeStep), kTimeStep);
        derivatives.col(0) = slope(errorAt(focal * (1.0 + kFocalStep), k, from, to), kFocalStep);
        derivatives.col(1) =
            byFrom * feature.motion.fromY / height_ + byTo * feature.motion.toY / height_;
        derivatives.col(2) = slope(errorAt(focal, k + kDistortionStep, from, to), kDistortionStep);
        derivatives.col(3) = byFrom + byTo;
        derivatives.col(4) = byFrom * feature.from + byTo * feature.to;
        return reprojectionError;
    }

private:
    double rowTime(double timestamp, double y, const Values& values) const {
        return timestamp * (1.0 + values.drift) + values.offset + values.readout * y / height_;
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
};

}  // namespace framehold
