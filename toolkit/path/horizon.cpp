#include "path/horizon.h"

#include "common/angles.h"
#include "common/library_constants.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace framehold {

namespace {

using Eigen::Quaterniond;
using Eigen::Vector3d;

/// 1 up to `from`, 0 beyond `to`, and smooth between.
double fade(double value, double from, double to) {
    const double u = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return 1.0 - u * u * (3.0 - 2.0 * u);
}

/// How far the roll of an orientation is defined that sees up in a direction: 0 if it looks nearly
/// straight up or down.
double definedness(const Vector3d& seenUp) {
    constexpr double kNone = 15.0;  // degrees from straight up or down
    constexpr double kAll = 30.0;
    const double fromVertical = std::atan2(seenUp.head<2>().norm(), std::abs(seenUp.z()));
    return 1.0 - fade(toDegrees(fromVertical), kNone, kAll);
}

/// Angle in the picture plane from device x towards device y.
double angleOf(const Vector3d& seenUp) { return std::atan2(seenUp.y(), seenUp.x()); }

/// Mean of vectors around a time, to which those far from the others add little: their weighted
/// geometric median. A curve or a start felt for some seconds tilts it less than a mean.
Vector3d localMedian(const std::vector<double>& times, const std::vector<Vector3d>& values,
                     double time) {
    constexpr double kSpan = 5.0;  // seconds, of a Gaussian
    constexpr double kReach = 3.0;
    constexpr double kClose = 0.2;  // m/s^2, that do not matter
    constexpr int kRounds = 10;
    const auto begin = static_cast<size_t>(
        std::lower_bound(times.begin(), times.end(), time - kReach * kSpan) - times.begin());
    const auto end = static_cast<size_t>(
        std::upper_bound(times.begin(), times.end(), time + kReach * kSpan) - times.begin());
    Vector3d median = Vector3d::Zero();
    for (int round = 0; round <= kRounds; ++round) {
        Vector3d sum = Vector3d::Zero();
        double weights = 0.0;
        for (size_t i = begin; i < end; ++i) {
            const double distance = (times[i] - time) / kSpan;
            double weight = std::exp(-distance * distance / 2.0);
            if (round > 0) weight /= kClose + (values[i] - median).norm();  // round 0: the mean
            sum += weight * values[i];
            weights += weight;
        }
        median = sum / weights;
    }
    return median;
}

}  // namespace

std::vector<MotionSample> gravityOf(const MotionLog& log) {
    if (!log.gravity.empty()) return log.gravity;
    std::vector<MotionSample> result;
    result.reserve(log.orientations.size());
    for (const OrientationSample& s : log.orientations) {
        const Vector3d up =
            kStandardGravity * (Quaterniond(s.w, s.x, s.y, s.z).conjugate() * Vector3d::UnitZ());
        result.push_back({s.time, {up.x(), up.y(), up.z()}});
    }
    return result;
}

Horizon::Horizon(const OrientationTrack& track, const std::vector<MotionSample>& gravity,
                 const std::vector<double>& times) {
    // Means over a second first: shake and steps are as often up as down in them.
    constexpr double kBin = 1.0;
    std::vector<double> middles;
    std::vector<Vector3d> felt;
    for (size_t i = 0; i < gravity.size();) {
        const size_t begin = i;
        Vector3d sum = Vector3d::Zero();
        double time = 0.0;
        for (; i < gravity.size() && gravity[i].time < gravity[begin].time + kBin; ++i) {
            sum += track.at(gravity[i].time) * Eigen::Map<const Vector3d>(gravity[i].value.data());
            time += gravity[i].time;
        }
        const auto count = static_cast<double>(i - begin);
        middles.push_back(time / count);
        felt.push_back(sum / count);
    }
    times_ = middles;
    for (const double time : times_) ups_.push_back(localMedian(middles, felt, time));

    constexpr double kSteady = 0.5;  // of gravity's length
    std::array<double, 4> seconds{};
    double length = 0.0;
    for (const double time : times) {
        const Vector3d seen = track.at(time).conjugate() * upAt(time);
        const auto quarter = static_cast<size_t>(std::lround(angleOf(seen) / (kPi / 2.0)) + 4) % 4;
        seconds[quarter] += definedness(seen);
    }
    const auto most = std::max_element(seconds.begin(), seconds.end()) - seconds.begin();
    held_ = kPi / 2.0 * static_cast<double>(most);
    for (const Vector3d& up : ups_) length += up.norm() / static_cast<double>(ups_.size());
    isKnown_ = length > kSteady * medianLength(gravity);
}

Vector3d Horizon::upAt(double time) const {
    const auto after = std::upper_bound(times_.begin(), times_.end(), time);
    const auto i = static_cast<size_t>(after - times_.begin());
    if (i == 0) return ups_.front().normalized();
    if (i == times_.size()) return ups_.back().normalized();
    const double share = (time - times_[i - 1]) / (times_[i] - times_[i - 1]);
    return ((1.0 - share) * ups_[i - 1] + share * ups_[i]).normalized();
}

std::optional<double> Horizon::rollOf(const Quaterniond& orientation, double time) const {
    const Vector3d seen = orientation.conjugate() * upAt(time);
    if (!(definedness(seen) > 0.0)) return std::nullopt;
    return std::remainder(angleOf(seen) - held_, 2.0 * kPi);
}

Quaterniond Horizon::levelled(const Quaterniond& orientation, double time, double share) const {
    constexpr double kAll = 30.0;   // degrees of roll
    constexpr double kNone = 60.0;  // on purpose
    const std::optional<double> roll = rollOf(orientation, time);
    if (!roll) return orientation;
    const double turn = share * *roll * definedness(orientation.conjugate() * upAt(time)) *
                        fade(toDegrees(std::abs(*roll)), kAll, kNone);
    return orientation * Eigen::AngleAxisd(turn, Vector3d::UnitZ());
}

}  // namespace framehold
