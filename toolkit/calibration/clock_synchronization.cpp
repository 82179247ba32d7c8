#include "calibration/clock_synchronization.h"

#include "common/interruption.h"
#include "path/gyro_path.h"

#include <algorithm>
#include <cmath>

#include <Eigen/Dense>

namespace framehold {

namespace {

/// Residuals of the regression at one offset.
struct Residual {
    double share = INFINITY;  // of the sum of squares: unexplained variance
    double freedom = 0.0;     // degrees of freedom
};

/// Part of a clip, to be fitted on its own.
class ClipPart {
public:
    ClipPart(const std::vector<double>& frameTimes, const std::vector<PictureMotion>& motions,
             size_t first, size_t end, const GyroPath& gyro)
        : gyro_(gyro) {
        for (size_t i = first; i < end; ++i) {
            if (motions[i]) pairs_.push_back({frameTimes[i], frameTimes[i + 1], *motions[i]});
        }
        balance();
    }

    double middle() const {
        return pairs_.empty() ? 0.0 : (pairs_.front().from + pairs_.back().to) / 2.0;
    }

    Residual residualAt(double offset) const {
        constexpr size_t kFewest = 12;
        std::vector<const FramePair*> covered;
        for (const FramePair& pair : pairs_) {
            const bool isCovered =
                pair.from + offset >= gyro_.firstTime() && pair.to + offset <= gyro_.lastTime();
            if (isCovered) covered.push_back(&pair);
        }
        if (covered.size() < kFewest || 5 * covered.size() < 4 * pairs_.size()) return {};
        const auto rows = static_cast<Eigen::Index>(covered.size());
        Eigen::MatrixX3d turned(rows, 3), moved(rows, 3);
        for (Eigen::Index i = 0; i < rows; ++i) {
            const FramePair& pair = *covered[static_cast<size_t>(i)];
            turned.row(i) = gyro_.turned(pair.to + offset) - gyro_.turned(pair.from + offset);
            moved.row(i) = Eigen::Vector3d(pair.motion[0], pair.motion[1], pair.motion[2]);
        }
        const Eigen::Matrix3d normal =
            turned.transpose() * turned + 1e-12 * Eigen::Matrix3d::Identity();
        const Eigen::Matrix3d map = normal.ldlt().solve(turned.transpose() * moved);
        const double all = moved.squaredNorm();
        if (all <= 0.0) return {};
        return {(moved - turned * map).squaredNorm() / all, 3.0 * static_cast<double>(rows) - 10.0};
    }

private:
    struct FramePair {
        double from;  // seconds
        double to;
        std::array<double, 3> motion;
    };

    /// Gives the three motions equal weight, whatever their units.
    void balance() {
        for (size_t axis = 0; axis < 3; ++axis) {
            double squares = 0.0;
            for (const FramePair& p : pairs_) squares += p.motion[axis] * p.motion[axis];
            const double scale = squares > 0.0 ? 1.0 / std::sqrt(squares) : 0.0;
            for (FramePair& p : pairs_) p.motion[axis] *= scale;
        }
    }

    const GyroPath& gyro_;
    std::vector<FramePair> pairs_;
};

struct OffsetFit {
    double offset;
    double error;
    double explainedVariance;
};

std::optional<OffsetFit> fitOffset(const ClipPart& part, double around, double range) {
    constexpr double kCoarse = 0.004, kFine = 0.0005;
    const auto best = [&](double centre, double reach, double step) {
        double where = centre, least = INFINITY;
        const auto steps = static_cast<int>(std::ceil(reach / step));
        for (int i = -steps; i <= steps; ++i) {
            throwIfInterrupted();
            const double share = part.residualAt(centre + i * step).share;
            if (share < least) {
                least = share;
                where = centre + i * step;
            }
        }
        return where;
    };
    const double centre = best(best(around, range, kCoarse), kCoarse, kFine);
    // A parabola through three points around the best one, as far apart as noise asks for.
    constexpr double kReach = 0.004;
    const Residual here = part.residualAt(centre);
    const double before = part.residualAt(centre - kReach).share;
    const double after = part.residualAt(centre + kReach).share;
    const double curvature = (before - 2.0 * here.share + after) / (kReach * kReach);
    if (!std::isfinite(curvature) || curvature <= 0.0) return std::nullopt;
    const double shift = std::clamp((before - after) / (2.0 * kReach * curvature), -kReach, kReach);
    return OffsetFit{centre + shift, std::sqrt(2.0 * here.share / (here.freedom * curvature)),
                     1.0 - here.share};
}

/// Offset of a part, and the middle of its time.
struct DriftPoint {
    double time;
    double offset;
    double weight;
};

void fitDrift(const std::vector<DriftPoint>& points, ClockSynchronization& fit) {
    constexpr size_t kFewest = 4;
    if (points.size() < kFewest) return;
    double weights = 0.0, time = 0.0, offset = 0.0;
    for (const DriftPoint& p : points) {
        weights += p.weight;
        time += p.weight * p.time;
        offset += p.weight * p.offset;
    }
    time /= weights;
    offset /= weights;
    double tt = 0.0, to = 0.0;
    for (const DriftPoint& p : points) {
        tt += p.weight * (p.time - time) * (p.time - time);
        to += p.weight * (p.time - time) * (p.offset - offset);
    }
    double squares = 0.0;
    for (const DriftPoint& p : points) {
        const double left = p.offset - offset - to / tt * (p.time - time);
        squares += p.weight * left * left;
    }
    // The points scatter by more than their own errors where the scene has depth.
    const double scatter = std::max(1.0, squares / static_cast<double>(points.size() - 2));
    fit.drift = to / tt;
    fit.driftError = std::sqrt(scatter / tt);
}

}  // namespace

std::optional<ClockSynchronization> synchronizeClocks(const std::vector<double>& frameTimes,
                                                      const std::vector<PictureMotion>& motions,
                                                      const std::vector<MotionSample>& rates,
                                                      double around, double range) {
    constexpr double kLeastExplained = 1.0 / 3.0;
    if (rates.size() < 2) return std::nullopt;
    const GyroPath gyro(rates);
    const auto whole = fitOffset({frameTimes, motions, 0, motions.size(), gyro}, around, range);
    if (!whole || whole->explainedVariance < kLeastExplained) return std::nullopt;
    ClockSynchronization fit{whole->offset, whole->error, whole->explainedVariance, std::nullopt,
                             0.0};

    constexpr size_t kMostParts = 8, kFewestFrames = 60;
    constexpr double kPartRange = 0.05, kLeastExplainedOfPart = 0.6;
    const size_t parts = std::min(kMostParts, motions.size() / kFewestFrames);
    std::vector<DriftPoint> points;
    for (size_t i = 0; i < parts; ++i) {
        const ClipPart part(frameTimes, motions, motions.size() * i / parts,
                            motions.size() * (i + 1) / parts, gyro);
        const auto offset = fitOffset(part, fit.offset, kPartRange);
        if (!offset || offset->explainedVariance < kLeastExplainedOfPart) continue;
        points.push_back({part.middle(), offset->offset, 1.0 / (offset->error * offset->error)});
    }
    fitDrift(points, fit);
    return fit;
}

}  // namespace framehold
