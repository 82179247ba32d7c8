#include "path/lens_shift_track.h"

#include <algorithm>
#include <utility>

namespace framehold {

LensShiftTrack::LensShiftTrack(std::vector<LensShift> shifts, double scale)
    : shifts_(std::move(shifts)) {
    for (LensShift& shift : shifts_) {
        shift.x *= scale;
        shift.y *= scale;
    }
}

LensShiftTrack::LensShiftTrack(const MotionLog& log, int width)
    : LensShiftTrack(log.lensShifts, log.lensShiftWidth > 0.0 ? width / log.lensShiftWidth : 1.0) {}

Eigen::Vector2d LensShiftTrack::at(double time) const {
    if (shifts_.empty()) return Eigen::Vector2d::Zero();
    const auto after =
        std::upper_bound(shifts_.begin(), shifts_.end(), time,
                         [](double t, const LensShift& shift) { return t < shift.time; });
    const LensShift& next = after == shifts_.end() ? shifts_.back() : *after;
    const LensShift& before = after == shifts_.begin() ? next : *(after - 1);
    const double seconds = next.time - before.time;
    const double share = seconds > 0.0 ? (time - before.time) / seconds : 0.0;
    return {before.x + share * (next.x - before.x), before.y + share * (next.y - before.y)};
}

void LensShiftTrack::takeOut(double timeOffset, double readout, FeatureTracks& tracks) const {
    if (isAtRest()) return;
    const auto move = [&](size_t frame, float& x, float& y) {
        const double time = tracks.frameTimes[frame] + timeOffset +
                            readout * static_cast<double>(y) / tracks.height;
        const Eigen::Vector2f shift = at(time).cast<float>();
        x -= shift.x();
        y -= shift.y();
    };
    for (size_t i = 0; i < tracks.motions.size(); ++i) {
        for (FeatureMotion& motion : tracks.motions[i]) {
            move(i, motion.fromX, motion.fromY);
            move(i + 1, motion.toX, motion.toY);
        }
    }
}

}  // namespace framehold
