#include "calibration/gyro_path.h"

#include <algorithm>

namespace framehold {

GyroPath::GyroPath(const std::vector<MotionSample>& rates) {
    Pose pose{rates.front().time, Eigen::Quaterniond::Identity(), Eigen::Vector3d::Zero()};
    for (const MotionSample& sample : rates) {
        const Eigen::Vector3d turn =
            Eigen::Map<const Eigen::Vector3d>(sample.value.data()) * (sample.time - pose.time);
        pose.orientation =
            (pose.orientation * Eigen::AngleAxisd(turn.norm(), turn.stableNormalized()))
                .normalized();
        pose.turned += turn;
        pose.time = sample.time;
        poses_.push_back(pose);
    }
    posesPerSecond_ = samplesPerSecond(rates);
}

GyroPath::Interval GyroPath::find(double time) const {
    if (!(time > firstTime())) return {poses_.front(), poses_.front(), 0.0};
    if (time >= lastTime()) return {poses_.back(), poses_.back(), 0.0};
    // Logs are nearly even: the pose is close to where it would be in an even one.
    const auto last = static_cast<double>(poses_.size() - 1);
    size_t i = static_cast<size_t>(std::min((time - firstTime()) * posesPerSecond_, last - 1.0));
    while (i > 0 && poses_[i].time > time) --i;
    while (poses_[i + 1].time <= time) ++i;
    const Pose& from = poses_[i];
    const Pose& to = poses_[i + 1];
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
