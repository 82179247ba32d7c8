#include "path/orientation_track.h"

#include <algorithm>

namespace framehold {

Eigen::Quaterniond OrientationTrack::at(double time) const {
    const Eigen::Quaterniond logged = gyro_ ? gyro_->at(time) : Eigen::Quaterniond::Identity();
    const Eigen::Vector3d turn = correctionAt(time);
    return logged * Eigen::Quaterniond(Eigen::AngleAxisd(turn.norm(), turn.stableNormalized()));
}

/// Cubic Hermite curve whose slope at a point is that of the line between its neighbours.
Eigen::Vector3d OrientationTrack::correctionAt(double time) const {
    if (corrections_.empty()) return Eigen::Vector3d::Zero();
    const auto after = std::upper_bound(
        corrections_.begin(), corrections_.end(), time,
        [](double t, const TrackCorrection& correction) { return t < correction.time; });
    if (after == corrections_.begin()) return corrections_.front().turn;
    if (after == corrections_.end()) return corrections_.back().turn;
    const auto from = after - 1;
    const auto slopeAt = [this](auto at) -> Eigen::Vector3d {
        const auto left = at == corrections_.begin() ? at : at - 1;
        const auto right = at + 1 == corrections_.end() ? at : at + 1;
        return (right->turn - left->turn) / (right->time - left->time);
    };
    const double length = after->time - from->time;
    const double u = (time - from->time) / length;
    return from->turn + u * u * (3.0 - 2.0 * u) * (after->turn - from->turn) +
           u * (u - 1.0) * length * ((u - 1.0) * slopeAt(from) + u * slopeAt(after));
}

}  // namespace framehold
