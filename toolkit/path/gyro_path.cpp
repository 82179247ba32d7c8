#include "path/gyro_path.h"

#include "path/rotation_vector.h"

#include <algorithm>

namespace framehold {

GyroPath::GyroPath(const std::vector<MotionSample>& rates)
    : posesPerSecond_(samplesPerSecond(rates)) {
    Pose pose{Eigen::Quaterniond::Identity(), Eigen::Vector3d::Zero(), rates.front().time};
    poses_.reserve(rates.size());
    for (const MotionSample& sample : rates) {
        // No time, no turn: the pose before stays.
        if (!poses_.empty() && sample.time == pose.time) continue;
        const Eigen::Vector3d turn =
            Eigen::Map<const Eigen::Vector3d>(sample.value.data()) * (sample.time - pose.time);
        pose.orientation = (pose.orientation * rotationBy(turn)).normalized();
        pose.turned += turn;
        pose.time = sample.time;
        poses_.push_back(pose);
    }
    if (poses_.size() == 1) poses_.push_back(pose);  // an interval, if of no length
}

size_t GyroPath::firstAfter(double time) const {
    // Near where even steps would have it, in ranges that double: a search that tries many offsets in a
    // long log is several times as fast as with halves of the whole.
    const auto isLater = [&](size_t i) { return poses_[i].time > time; };
    const size_t last = poses_.size() - 1;
    const double even = (time - firstTime()) / (lastTime() - firstTime());
    const double share =
        even > 0.0 ? std::min(even, 1.0) : 0.0;  // 0 where times are beyond numbers
    const auto guess = static_cast<size_t>(share * static_cast<double>(last));
    size_t low = std::min(guess, last - 1), high = low + 1;  // not later, later
    for (size_t reach = 1; isLater(low); reach *= 2) {
        high = low;
        low = low > reach ? low - reach : 0;
    }
    for (size_t reach = 1; !isLater(high); reach *= 2) {
        low = high;
        high = std::min(high + reach, last);
    }
    while (high - low > 1) {
        const size_t middle = low + (high - low) / 2;
        (isLater(middle) ? high : low) = middle;
    }
    return high;
}

GyroPath::Interval GyroPath::find(double time) const {
    if (!(time > firstTime())) return {1, 0.0};
    if (time >= lastTime()) return {poses_.size() - 1, 1.0};
    const size_t end = firstAfter(time);
    const double from = poses_[end - 1].time;
    return {end, (time - from) / (poses_[end].time - from)};
}

Eigen::Vector3d GyroPath::turnTo(size_t i) const { return poses_[i].turned - poses_[i - 1].turned; }

Eigen::Vector3d GyroPath::rateAt(size_t i) const {
    const size_t at = std::max<size_t>(i, 1);
    const double before = poses_[at].time - poses_[at - 1].time;
    if (!(before > 0.0)) return Eigen::Vector3d::Zero();
    const Eigen::Vector3d last = turnTo(at) / before;
    if (i == 0 || i + 1 == poses_.size()) return last;
    const double after = poses_[i + 1].time - poses_[i].time;
    return (after * last + before / after * turnTo(i + 1)) / (before + after);
}

Eigen::Vector3d GyroPath::turnIn(const Interval& in) const {
    constexpr double kGapSteps = 3.0;  // in a gap nothing is known of the motion
    const Eigen::Vector3d turn = turnTo(in.end);
    const double u = in.share;
    const double seconds = poses_[in.end].time - poses_[in.end - 1].time;
    if (seconds * posesPerSecond_ > kGapSteps) return u * turn;
    return u * u * (3.0 - 2.0 * u) * turn +
           u * (u - 1.0) * seconds * ((u - 1.0) * rateAt(in.end - 1) + u * rateAt(in.end));
}

Eigen::Quaterniond GyroPath::at(double time) const {
    const Interval in = find(time);
    return poses_[in.end - 1].orientation * rotationBy(turnIn(in));
}

Eigen::Vector3d GyroPath::turned(double time) const {
    const Interval in = find(time);
    return poses_[in.end - 1].turned + turnIn(in);
}

}  // namespace framehold
