#include "tracking/global_motion.h"

#include <algorithm>
#include <cmath>

#include <opencv2/calib3d.hpp>

namespace framehold {

namespace {

constexpr size_t kFewest = 12;

std::optional<GlobalMotion> estimateSimilarity(const std::vector<FeatureMotion>& features,
                                               GlobalMotion motion, double threshold) {
    std::vector<cv::Point2d> from;
    std::vector<cv::Point2d> to;
    for (const FeatureMotion& f : features) {
        from.emplace_back(f.fromX - motion.centreX, f.fromY - motion.centreY);
        to.emplace_back(f.toX - motion.centreX, f.toY - motion.centreY);
    }
    const cv::Mat found =
        cv::estimateAffinePartial2D(from, to, cv::noArray(), cv::RANSAC, threshold);
    if (found.empty()) return std::nullopt;
    const double c = found.at<double>(0, 0);
    const double s = found.at<double>(1, 0);
    motion.rotation = std::atan2(s, c);
    motion.logScale = std::log(std::hypot(c, s));
    motion.dx = found.at<double>(0, 2);
    motion.dy = found.at<double>(1, 2);
    return motion;
}

std::vector<FeatureMotion> agreeingWith(const GlobalMotion& motion,
                                        const std::vector<FeatureMotion>& features,
                                        double threshold) {
    std::vector<FeatureMotion> result;
    for (const FeatureMotion& feature : features) {
        const auto [x, y] = motion.residual(feature);
        if (std::hypot(x, y) < threshold) result.push_back(feature);
    }
    return result;
}

/// Least squares: dx, dy, c, s (of the similarity) and the tilts.
void refine(GlobalMotion& motion, const std::vector<FeatureMotion>& features) {
    // Lengths in thousands of pixels keep the equations well conditioned.
    constexpr double kUnit = 1000.0;
    using Row = cv::Vec<double, 6>;
    cv::Matx<double, 6, 6> normal = cv::Matx<double, 6, 6>::zeros();
    Row right = Row::all(0.0);
    for (const FeatureMotion& f : features) {
        const double x = (f.fromX - motion.centreX) / kUnit;
        const double y = (f.fromY - motion.centreY) / kUnit;
        const Row rowX(1.0, 0.0, x, -y, x * x, x * y);
        const Row rowY(0.0, 1.0, y, x, x * y, y * y);
        normal += rowX * rowX.t() + rowY * rowY.t();
        right += (f.toX - motion.centreX) / kUnit * rowX + (f.toY - motion.centreY) / kUnit * rowY;
    }
    const Row fit(normal.solve(cv::Matx<double, 6, 1>(right.val), cv::DECOMP_SVD).val);
    motion.dx = kUnit * fit[0];
    motion.dy = kUnit * fit[1];
    motion.rotation = std::atan2(fit[3], fit[2]);
    motion.logScale = std::log(std::hypot(fit[2], fit[3]));
    motion.tiltX = fit[4] / kUnit;
    motion.tiltY = fit[5] / kUnit;
}

void findHomography(GlobalMotion& motion, const std::vector<FeatureMotion>& features,
                    double threshold) {
    std::vector<cv::Point2f> from;
    std::vector<cv::Point2f> to;
    for (const FeatureMotion& f : features) {
        from.emplace_back(f.fromX, f.fromY);
        to.emplace_back(f.toX, f.toY);
    }
    const cv::Mat found = cv::findHomography(from, to, cv::RANSAC, threshold);
    if (!found.empty()) std::copy_n(found.ptr<double>(), 9, motion.homography.begin());
}

}  // namespace

std::pair<double, double> GlobalMotion::residual(const FeatureMotion& feature) const {
    const double x = feature.fromX - centreX;
    const double y = feature.fromY - centreY;
    const double c = std::exp(logScale) * std::cos(rotation);
    const double s = std::exp(logScale) * std::sin(rotation);
    const double tilt = tiltX * x + tiltY * y;
    return {feature.toX - (centreX + dx + c * x - s * y + tilt * x),
            feature.toY - (centreY + dy + s * x + c * y + tilt * y)};
}

std::optional<GlobalMotion> estimateGlobalMotion(const std::vector<FeatureMotion>& features,
                                                 int width, int height) {
    // Rolling shutter and depth bend the picture by more in larger pictures.
    const double threshold = std::max(1.5, width / 640.0);
    if (features.size() < kFewest) return std::nullopt;
    GlobalMotion centred;
    centred.centreX = (width - 1) / 2.0;
    centred.centreY = (height - 1) / 2.0;
    std::optional<GlobalMotion> motion = estimateSimilarity(features, centred, threshold);
    if (!motion) return std::nullopt;
    for (int round = 0; round < 2; ++round) {
        const auto agreeing = agreeingWith(*motion, features, threshold);
        if (agreeing.size() < kFewest) return std::nullopt;
        refine(*motion, agreeing);
    }
    findHomography(*motion, features, threshold);
    return motion;
}

}  // namespace framehold
