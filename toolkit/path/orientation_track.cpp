#include "path/orientation_track.h"

#include "path/rotation_vector.h"

#include <algorithm>
#include <utility>

namespace framehold {

Eigen::Quaterniond OrientationTrack::at(double time) const {
    const Eigen::Quaterniond logged = gyro_ ? gyro_->at(time) : Eigen::Quaterniond::Identity();
    return correctionAt(time) * logged;
}

void OrientationTrack::correct(std::vector<TrackCorrection> corrections) {
    corrections_ = std::move(corrections);
    rates_.assign(corrections_.size(), Eigen::Vector3d::Zero());
    if (corrections_.size() < 2) return;
    // Rates at which the acceleration does not jump: a system of three diagonals. Those of the line
    // between a correction's neighbours would lose a tenth of a fast shake.
    const size_t last = corrections_.size() - 1;
    std::vector<double> above(corrections_.size());
    double before = 0.0;  // 1 / seconds to the correction before
    Eigen::Vector3d rateBefore = Eigen::Vector3d::Zero();
    for (size_t i = 0; i <= last; ++i) {
        double after = 0.0;
        Eigen::Vector3d rateAfter = Eigen::Vector3d::Zero();
        if (i < last) {
            const TrackCorrection& next = corrections_[i + 1];
            after = 1.0 / (next.time - corrections_[i].time);
            rateAfter = after * rotationVector(corrections_[i].turn.conjugate() * next.turn);
        }
        const double aboveBefore = i > 0 ? above[i - 1] : 0.0;
        const double pivot = 2.0 * (before + after) - before * aboveBefore;
        above[i] = after / pivot;
        rates_[i] = 3.0 * (before * rateBefore + after * rateAfter);
        if (i > 0) rates_[i] -= before * rates_[i - 1];
        rates_[i] /= pivot;
        before = after;
        rateBefore = rateAfter;
    }
    for (size_t i = last; i-- > 0;) rates_[i] -= above[i] * rates_[i + 1];
}

Eigen::Quaterniond OrientationTrack::correctionAt(double time) const {
    if (corrections_.empty()) return Eigen::Quaterniond::Identity();
    const auto after = std::upper_bound(
        corrections_.begin(), corrections_.end(), time,
        [](double t, const TrackCorrection& correction) { return t < correction.time; });
    if (after == corrections_.begin()) return corrections_.front().turn;
    if (after == corrections_.end()) return corrections_.back().turn;
    const auto from = after - 1;
    const auto i = static_cast<size_t>(from - corrections_.begin());
    const double length = after->time - from->time;
    const double u = (time - from->time) / length;
    const Eigen::Vector3d turn = rotationVector(from->turn.conjugate() * after->turn);
    return from->turn *
           rotationBy(u * u * (3.0 - 2.0 * u) * turn +
                      u * (u - 1.0) * length * ((u - 1.0) * rates_[i] + u * rates_[i + 1]));
}

}  // namespace framehold
