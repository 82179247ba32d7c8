#include "inspection/synchronization_curves.h"

#include "calibration/turn_comparison.h"
#include "common/interruption.h"

namespace framehold {

namespace {

constexpr double kReach = 0.5;   // seconds
constexpr double kStep = 0.004;  // seconds; a quarter of a usual readout

SynchronizationCurves::Turn turnOf(const PictureTurn& seen, const GyroPath& gyro, double offset,
                                   const SynchronizationCurves& curves, const AxisMapping& axes) {
    const double seconds = seen.to - seen.from;
    const Eigen::Vector3d turned = gyro.turned(seen.to + offset) - gyro.turned(seen.from + offset);
    const Vec3 logged = axes.toDevice({turned[0], turned[1], turned[2]});
    SynchronizationCurves::Turn turn{seen.from, {}, {}};
    for (size_t axis = 0; axis < 3; ++axis) {
        const double unit = axis < 2 ? curves.focal : 1.0;
        turn.seen[axis] = seen.turn[static_cast<Eigen::Index>(axis)] / (unit * seconds);
        turn.logged[axis] = logged[axis] / seconds;
    }
    return turn;
}

}  // namespace

SynchronizationCurves synchronizationCurves(const FeatureTracks& tracks,
                                            const std::vector<MotionSample>& rates,
                                            const CheckedCamera& camera, double timeOffset) {
    SynchronizationCurves curves;
    curves.timeOffset = timeOffset;
    curves.isFocalKnown = camera.focal.has_value();
    curves.focal = camera.focal.value_or(tracks.width);
    if (rates.size() < 2) return curves;
    const GyroPath gyro(rates);
    const TurnComparison comparison({tracks}, gyro);
    const double middleRow = camera.readoutTime / 2.0;
    const auto products = comparison.at(timeOffset + middleRow);
    if (products && !curves.isFocalKnown) {
        const double best = products->bestFocal(camera.axes, 1.0);
        if (best > 0.0) curves.focal = best;
    }
    for (const PictureTurn& seen : pictureTurns(tracks)) {
        const double offset = timeOffset + middleRow;
        const bool isCovered =
            seen.from + offset >= gyro.firstTime() && seen.to + offset <= gyro.lastTime();
        if (!isCovered || !(seen.to > seen.from)) continue;
        curves.turns.push_back(turnOf(seen, gyro, offset, curves, camera.axes));
    }
    const LoggedCamera logged{camera.axes, curves.focal, 1.0};
    constexpr int kSteps = static_cast<int>(kReach / kStep);
    for (int i = -kSteps; i <= kSteps; ++i) {
        throwIfInterrupted();
        const double offset = timeOffset + i * kStep;
        const auto there = comparison.at(offset + middleRow);
        if (there) curves.shares.push_back({offset, there->explained(logged)});
    }
    return curves;
}

}  // namespace framehold
