#include "calibration/gyro_path.h"

#include <algorithm>

namespace framehold {

GyroPath::GyroPath(const std::vector<MotionSample>& rates) {
    Pose pose{Eigen::Quaterniond::Identity(), Eigen::Vector3d::Zero(), rates.front().time};
    poses_.reserve(rates.size());
    for (const MotionSample& sample : rates) {
        const Eigen::Vector3d turn =
            Eigen::Map<const Eigen::Vector3d>(sample.value.data()) * (sample.time - pose.time);
        pose.orientation =
            (pose.orientation * Eigen::AngleAxisd(turn.norm(), turn.stableNormalized()))
                .normalized();
        pose.turned += turn;
        // No time, no turn: the pose before stays.
        if (!poses_.empty() && sample.time == pose.time) continue;
        pose.time = sample.time;
        poses_.push_back(pose);
    }
}

GyroPath::Interval GyroPath::find(double time) const {
    if (!(time > firstTime())) return {poses_.front(), poses_.front(), 0.0};
    if (time >= lastTime()) return {poses_.back(), poses_.back(), 0.0};
    const auto after = std::upper_bound(poses_.begin(), poses_.end(), time,
                                        [](double t, const Pose& pose) { return t < pose.time; });
    const Pose& from = *(after - 1);
    const Pose& to = *after;
    return {from, to, (time - from.time) / (to.time - from.time)};
}

Eigen::Quaterniond GyroPath::at(double time) const {
    const Interval in = find(time);
    return in.from.orientation.slerp(in.share, in.to.orientation);
}

Eigen::Vector3d GyroPath::turned(double time) const {
    const Interval in = find(time);
    return in.from.turned + in.share * (in.to.turned - in.from.turned);
}

}  // namespace framehold
