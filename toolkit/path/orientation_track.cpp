#include "path/orientation_track.h"

#include "path/rotation_vector.h"

#include <algorithm>

namespace framehold {

Eigen::Quaterniond OrientationTrack::at(double time) const {
    const Eigen::Quaterniond logged = gyro_ ? gyro_->at(time) : Eigen::Quaterniond::Identity();
    return correctionAt(time) * logged;
}

/// Cubic Hermite curve in the rotation vector from the correction before, whose slope at a
/// correction is the mean rate between its neighbours.
Eigen::Quaterniond OrientationTrack::correctionAt(double time) const {
    if (corrections_.empty()) return Eigen::Quaterniond::Identity();
    const auto after = std::upper_bound(
        corrections_.begin(), corrections_.end(), time,
        [](double t, const TrackCorrection& correction) { return t < correction.time; });
    if (after == corrections_.begin()) return corrections_.front().turn;
    if (after == corrections_.end()) return corrections_.back().turn;
    const auto from = after - 1;
    const auto slopeAt = [this](auto at) -> Eigen::Vector3d {
        const auto left = at == corrections_.begin() ? at : at - 1;
        const auto right = at + 1 == corrections_.end() ? at : at + 1;
        const Eigen::Quaterniond back = at->turn.conjugate();
        return (rotationVector(back * right->turn) - rotationVector(back * left->turn)) /
               (right->time - left->time);
    };
    const double length = after->time - from->time;
    const double u = (time - from->time) / length;
    const Eigen::Vector3d turn = rotationVector(from->turn.conjugate() * after->turn);
    return from->turn *
           rotationBy(u * u * (3.0 - 2.0 * u) * turn +
                      u * (u - 1.0) * length * ((u - 1.0) * slopeAt(from) + u * slopeAt(after)));
}

}  // namespace framehold
