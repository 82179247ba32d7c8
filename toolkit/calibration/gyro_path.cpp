#include "calibration/gyro_path.h"

#include <algorithm>

namespace framehold {

namespace {

Eigen::Quaterniond rotation(const Eigen::Vector3d& turn) {
    return Eigen::Quaterniond(Eigen::AngleAxisd(turn.norm(), turn.stableNormalized()));
}

}  // namespace

GyroPath::GyroPath(const std::vector<MotionSample>& rates) {
    const Eigen::Vector3d zero = Eigen::Vector3d::Zero();
    Pose pose{Eigen::Quaterniond::Identity(), zero, zero, zero, rates.front().time};
    poses_.reserve(rates.size());
    for (const MotionSample& sample : rates) {
        pose.turn =
            Eigen::Map<const Eigen::Vector3d>(sample.value.data()) * (sample.time - pose.time);
        pose.orientation = (pose.orientation * rotation(pose.turn)).normalized();
        pose.turned += pose.turn;
        // No time, no turn: the pose before stays.
        if (!poses_.empty() && sample.time == pose.time) continue;
        pose.time = sample.time;
        poses_.push_back(pose);
    }
    pose.turn = zero;
    if (poses_.size() == 1) poses_.push_back(pose);  // an interval, if of no length
    posesPerSecond_ = samplesPerSecond(rates);
    // The rate at a pose: that of the parabola through it and its neighbours.
    for (size_t i = 1; i < poses_.size(); ++i) {
        Pose& at = poses_[i];
        const double before = at.time - poses_[i - 1].time;
        if (!(before > 0.0)) continue;
        at.rate = at.turn / before;
        const double after = i + 1 < poses_.size() ? poses_[i + 1].time - at.time : 0.0;
        if (!(after > 0.0)) continue;
        const Eigen::Vector3d next = poses_[i + 1].turn / after;
        at.rate = (after * at.rate + before * next) / (before + after);
    }
    poses_[0].rate = poses_[1].rate;
}

GyroPath::Interval GyroPath::find(double time) const {
    if (!(time > firstTime())) return {1, 0.0};
    if (time >= lastTime()) return {poses_.size() - 1, 1.0};
    const auto end = std::upper_bound(poses_.begin(), poses_.end(), time,
                                      [](double t, const Pose& pose) { return t < pose.time; });
    const double from = (end - 1)->time;
    return {static_cast<size_t>(end - poses_.begin()), (time - from) / (end->time - from)};
}

Eigen::Vector3d GyroPath::turnIn(const Interval& in) const {
    constexpr double kGapSteps = 3.0;  // in a gap nothing is known of the motion
    const Pose& from = poses_[in.end - 1];
    const Pose& to = poses_[in.end];
    const double u = in.share;
    const double seconds = to.time - from.time;
    if (seconds * posesPerSecond_ > kGapSteps) return u * to.turn;
    return u * u * (3.0 - 2.0 * u) * to.turn +
           u * (u - 1.0) * seconds * ((u - 1.0) * from.rate + u * to.rate);
}

Eigen::Quaterniond GyroPath::at(double time) const {
    const Interval in = find(time);
    return poses_[in.end - 1].orientation * rotation(turnIn(in));
}

Eigen::Vector3d GyroPath::turned(double time) const {
    const Interval in = find(time);
    return poses_[in.end - 1].turned + turnIn(in);
}

}  // namespace framehold
