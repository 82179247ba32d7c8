#include "simulation/recorded_motion.h"

#include <algorithm>

namespace framehold::simulation {

RecordedMotion::RecordedMotion(const std::vector<TimedRate>& rates) {
    Eigen::Quaterniond orientation = levelOrientation();
    double before = rates.front().time;
    for (const auto& [time, rate] : rates) {
        const double angle = rate.norm() * (time - before);
        orientation = orientation * Eigen::AngleAxisd(angle, rate.stableNormalized());
        poses_.push_back({time, orientation.normalized()});
        before = time;
    }
}

Eigen::Quaterniond RecordedMotion::at(double t) const {
    const auto after = std::upper_bound(poses_.begin(), poses_.end(), t,
                                        [](double time, const Pose& p) { return time < p.time; });
    if (after == poses_.begin()) return poses_.front().orientation;
    if (after == poses_.end()) return poses_.back().orientation;
    const Pose& from = *(after - 1);
    return from.orientation.slerp((t - from.time) / (after->time - from.time), after->orientation);
}

}  // namespace framehold::simulation
