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
/// (width / 2, height / 2), picture x along device -y, picture y along device -x.
class RollingCamera {
public:
    RollingCamera(int width, int height, const GyroPath& gyro)
        : gyro_(gyro), centre_(width / 2.0, height / 2.0), height_(height) {}

    /// Values that a fit finds, for one clip.
    struct Values {
        double logFocal;
        double readout;
        double offset;
        double drift;
    };
    /// Derivatives of the error by the values, in their order.
    using Derivatives = Eigen::Matrix<double, 2, 4>;

    /// Predicted less tracked position, in pixels.
    Eigen::Vector2d reprojectionError(const TimedMotion& feature, const Values& values) const {
        return reprojectionErrorAt(feature, std::exp(values.logFocal),
                                   rowTime(feature.from, feature.motion.fromY, values),
                                   rowTime(feature.to, feature.motion.toY, values));
    }

    /// The same with its derivatives, by finite differences.
    Eigen::Vector2d reprojectionError(const TimedMotion& feature, const Values& values,
                                      Derivatives& derivatives) const {
        constexpr double kTimeStep = 2e-4;  // seconds
        constexpr double kFocalStep = 1e-4;
        const double focal = std::exp(values.logFocal);
        const double from = rowTime(feature.from, feature.motion.fromY, values);
        const double to = rowTime(feature.to, feature.motion.toY, values);
        const Eigen::Vector2d reprojectionError = reprojectionErrorAt(feature, focal, from, to);
        const Eigen::Vector2d byFrom =
            (reprojectionErrorAt(feature, focal, from + kTimeStep, to) - reprojectionError) /
            kTimeStep;
        const Eigen::Vector2d byTo =
            (reprojectionErrorAt(feature, focal, from, to + kTimeStep) - reprojectionError) /
            kTimeStep;
        derivatives.col(0) = (reprojectionErrorAt(feature, focal * (1.0 + kFocalStep), from, to) -
                              reprojectionError) /
                             kFocalStep;
        derivatives.col(1) =
            byFrom * feature.motion.fromY / height_ + byTo * feature.motion.toY / height_;
        derivatives.col(2) = byFrom + byTo;
        derivatives.col(3) = byFrom * feature.from + byTo * feature.to;
        return reprojectionError;
    }

private:
    double rowTime(double timestamp, double y, const Values& values) const {
        return timestamp * (1.0 + values.drift) + values.offset + values.readout * y / height_;
    }

    Eigen::Vector2d reprojectionErrorAt(const TimedMotion& feature, double focal, double from,
                                        double to) const {
        const FeatureMotion& m = feature.motion;
        const Eigen::Vector3d ray(-(m.fromY - centre_.y()), -(m.fromX - centre_.x()), -focal);
        const Eigen::Vector3d still = gyro_.at(from) * ray;
        const Eigen::Vector3d seen = gyro_.at(to).conjugate() * still;
        const double scale = focal / -seen.z();
        return {centre_.x() - scale * seen.y() - m.toX, centre_.y() - scale * seen.x() - m.toY};
    }

    const GyroPath& gyro_;
    Eigen::Vector2d centre_;
    double height_;
};

}  // namespace framehold
