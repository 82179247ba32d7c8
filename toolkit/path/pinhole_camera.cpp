#include "path/pinhole_camera.h"

#include <algorithm>

namespace framehold {

Eigen::Vector3d PinholeCamera::bent(const Eigen::Vector3d& straight) const {
    const double distance = straight.head<2>().norm();
    if (distance == 0.0) return straight;
    const double angle = lens.angle(distance / focal);
    Eigen::Vector3d result;
    result << straight.head<2>() * (std::sin(angle) / distance), -std::cos(angle);
    return result;
}

Eigen::Vector2d PinholeCamera::projectBent(const Eigen::Vector3d& direction) const {
    const double across = std::hypot(direction.x(), direction.y());
    if (across == 0.0) return {width / 2.0, height / 2.0};
    const double scale = focal * lens.at(std::atan2(across, -direction.z())).radius / across;
    return {width / 2.0 - scale * direction.y(), height / 2.0 - scale * direction.x()};
}

Eigen::Matrix<double, 2, 3> PinholeCamera::projectSlopes(const Eigen::Vector3d& direction) const {
    const double across = std::hypot(direction.x(), direction.y());
    Eigen::Matrix<double, 2, 3> result;
    if (lens.isNone() || across == 0.0) {
        const double scale = focal / -direction.z();
        result << 0.0, -scale, -scale * direction.y() / -direction.z(),  //
            -scale, 0.0, -scale * direction.x() / -direction.z();
        return result;
    }
    const LensDistortion::Point point = lens.at(std::atan2(across, -direction.z()));
    const Eigen::Vector2d outwards(-direction.y() / across, -direction.x() / across);
    const double perRadian = focal * point.slope / direction.squaredNorm();
    const double sideways = focal * point.radius / across;
    // By what is across the axis, along the picture's x and y.
    const Eigen::Matrix2d byAcross =
        sideways * Eigen::Matrix2d::Identity() +
        (perRadian * -direction.z() - sideways) * outwards * outwards.transpose();
    result << -byAcross.col(1), -byAcross.col(0), perRadian * across * outwards;
    return result;
}

PinholeCamera cropped(const PinholeCamera& source, int width, int height, double crop) {
    const double scale = std::min(source.width * crop / width, source.height * crop / height);
    return {width, height, source.focal / scale, 0.0, source.lens};
}

PinholeCamera straightened(const PinholeCamera& source, int width, int height, double crop) {
    constexpr int kPoints = 64;  // along each side
    PinholeCamera output{width, height, 0.0, 0.0};
    const auto isInside = [&](double focal) {
        output.focal = focal;
        for (int i = 0; i <= kPoints; ++i) {
            const double along = static_cast<double>(i) / kPoints;
            // One corner of the picture stands for all.
            for (const Eigen::Vector2d& pixel : {Eigen::Vector2d(0.0, along * height / 2.0),
                                                 Eigen::Vector2d(along * width / 2.0, 0.0)}) {
                const Eigen::Vector2d seen = source.project(output.ray(pixel));
                if (seen.x() < (1.0 - crop) / 2.0 * source.width ||
                    seen.y() < (1.0 - crop) / 2.0 * source.height) {
                    return false;
                }
            }
        }
        return true;
    };
    double low = std::max(width, height) / 2.0 / std::tan(kWidestStraight / 2.0);
    if (isInside(low)) return output;
    double high = 2.0 * low;
    while (!isInside(high)) high *= 2.0;
    for (int i = 0; i < 50; ++i) {
        const double middle = (low + high) / 2.0;
        (isInside(middle) ? high : low) = middle;
    }
    output.focal = high;
    return output;
}

}  // namespace framehold
