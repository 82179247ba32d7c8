#include "analysis/picture_motion.h"

#include <algorithm>
#include <cmath>

#include <Eigen/Dense>

namespace framehold {

double median(std::vector<double>& values) {
    if (values.empty()) return 0.0;
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::optional<PictureMotion> picturesMotion(const std::vector<FeatureMotion>& features, int width,
                                            int height) {
    constexpr size_t kFewest = 8;
    constexpr int kRounds = 15;
    constexpr double kFinest = 0.05;  // pixels; no track is better
    if (features.size() < kFewest) return std::nullopt;

    std::vector<double> values;
    for (const FeatureMotion& m : features) values.push_back(m.toX - m.fromX);
    Eigen::Vector4d motion = Eigen::Vector4d::Zero();
    motion[0] = median(values);
    values.clear();
    for (const FeatureMotion& m : features) values.push_back(m.toY - m.fromY);
    motion[1] = median(values);

    std::vector<double> misses(features.size());
    for (int round = 0; round < kRounds; ++round) {
        const auto forEach = [&](auto visit) {
            for (size_t i = 0; i < features.size(); ++i) {
                const FeatureMotion& m = features[i];
                const double u = m.fromX - width / 2.0;
                const double v = m.fromY - height / 2.0;
                Eigen::Matrix<double, 2, 4> terms;
                terms << 1.0, 0.0, -v, u, 0.0, 1.0, u, v;
                const Eigen::Vector2d moved(m.toX - m.fromX, m.toY - m.fromY);
                visit(i, terms, moved);
            }
        };
        forEach([&](size_t i, const auto& terms, const Eigen::Vector2d& moved) {
            misses[i] = (moved - terms * motion).norm();
        });
        values = misses;
        const double scale = std::max(median(values), kFinest);
        Eigen::Matrix4d normal = Eigen::Matrix4d::Zero();
        Eigen::Vector4d right = Eigen::Vector4d::Zero();
        forEach([&](size_t i, const auto& terms, const Eigen::Vector2d& moved) {
            const double weight = 1.0 / (1.0 + (misses[i] / scale) * (misses[i] / scale));
            normal += weight * terms.transpose() * terms;
            right += weight * terms.transpose() * moved;
        });
        motion = normal.ldlt().solve(right);
    }
    if (!motion.allFinite()) return std::nullopt;
    return PictureMotion{motion[0], motion[1], motion[2], motion[3]};
}

}  // namespace framehold
