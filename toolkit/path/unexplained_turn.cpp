#include "path/unexplained_turn.h"

#include "common/median.h"
#include "path/rotation_vector.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <optional>
#include <random>
#include <utility>

namespace framehold {

namespace {

constexpr size_t kFewest = 12;  // features that a turn is found from
constexpr int kColumns = 8;     // of the grid over which features are balanced
constexpr int kRows = 6;

/// A rotation vector and the growth of the picture about its centre, as forward motion makes it:
/// left out, it would show as rotation where features are spread unevenly.
using Motion = Eigen::Vector4d;
using Square = Eigen::Matrix4d;
using Derivatives = Eigen::Matrix<double, 2, 4>;

/// A feature in the later frame.
struct Observation {
    Eigen::Vector3d predicted;  // ray in the later frame's device axes, by the track
    Eigen::Vector2d seen;       // pixels
    double row;      // mean of both frames' rows, as a share of the height from the middle
    double later;    // row less that in the earlier frame, likewise
    int cell;        // of the grid
    double balance;  // weight by the number of features in its cell
};

Eigen::Matrix3d crossProduct(const Eigen::Vector3d& v) {
    Eigen::Matrix3d m;
    m << 0.0, -v.z(), v.y(), v.z(), 0.0, -v.x(), -v.y(), v.x(), 0.0;
    return m;
}

/// Equations of an observation: what is left of its motion, in pixels, and its derivatives by a
/// further motion.
struct Equation {
    Eigen::Vector2d error;
    Derivatives derivatives;
};

Equation equationOf(const Observation& observation, const PinholeCamera& camera,
                    const Motion& motion) {
    const Eigen::Vector3d ray = rotationBy(motion.head<3>()).conjugate() * observation.predicted;
    const Eigen::Vector2d centre(camera.width / 2.0, camera.height / 2.0);
    const Eigen::Vector2d position = camera.project(ray) - centre;
    Equation equation;
    equation.error = observation.seen - centre - (1.0 + motion[3]) * position;
    equation.derivatives << camera.projectSlopes(ray) * crossProduct(ray), position;
    return equation;
}

/// True if the features that agree suffice for a fit. agreeing: their number in each cell.
bool isEnough(const std::array<int, kColumns * kRows>& agreeing) {
    constexpr int kFewestCells = 7;
    const auto filled =
        std::count_if(agreeing.begin(), agreeing.end(), [](int count) { return count > 0; });
    const int all = std::accumulate(agreeing.begin(), agreeing.end(), 0);
    return filled >= kFewestCells && all >= static_cast<int>(kFewest);
}

class MotionFit {
public:
    MotionFit(const PinholeCamera& camera, std::vector<Observation> observations)
        : camera_(camera), observations_(std::move(observations)) {
        std::array<int, kColumns * kRows> counts{};
        for (const Observation& o : observations_) ++counts[static_cast<size_t>(o.cell)];
        const double mean = static_cast<double>(observations_.size()) / (kColumns * kRows);
        for (Observation& o : observations_) {
            o.balance = mean / std::max(mean, double(counts[static_cast<size_t>(o.cell)]));
        }
    }

    /// The motion that most of the picture shares, as pairs of features propose it.
    Motion findConsensus() const;

    /// Fits by weights that fall with an observation's error; none if few agree.
    std::optional<Motion> refine(Motion motion);

    /// Covariance of the fit. Errors of features in a cell may have a cause in common.
    const Square& covariance() const { return covariance_; }

    /// Motion that shows for a rotation vector that grows by one over the rows, 0 in the middle.
    const Eigen::Matrix<double, 4, 3>& leak() const { return leak_; }

    /// Rows that the features move down, on average, as a share of the height.
    double later() const { return later_; }

    /// Shift in pixels by which the last row moves more than the first one, and its variance.
    const Eigen::Vector2d& rowShift() const { return rowShift_; }
    const Eigen::Vector2d& rowShiftVariance() const { return rowShiftVariance_; }

private:
    double tolerance() const { return std::max(1.0, camera_.width / 640.0); }

    PinholeCamera camera_;
    std::vector<Observation> observations_;
    Square covariance_;
    Eigen::Matrix<double, 4, 3> leak_;
    double later_ = 0.0;
    Eigen::Vector2d rowShift_;
    Eigen::Vector2d rowShiftVariance_;
};

Motion MotionFit::findConsensus() const {
    constexpr int kProposals = 60;
    std::vector<Equation> equations;
    for (const Observation& o : observations_) {
        equations.push_back(equationOf(o, camera_, Motion::Zero()));
    }
    const double limit = 2.25 * tolerance() * tolerance();
    const auto costOf = [&](const Motion& motion) {
        double cost = 0.0;
        for (size_t i = 0; i < equations.size(); ++i) {
            const Equation& e = equations[i];
            cost += observations_[i].balance *
                    std::min(limit, (e.error - e.derivatives * motion).squaredNorm());
        }
        return cost;
    };
    std::minstd_rand random(1);
    const auto any = [&]() -> const Equation& { return equations[random() % equations.size()]; };
    Motion best = Motion::Zero();
    double lowest = costOf(best);
    for (int i = 0; i < kProposals; ++i) {
        const Equation& a = any();
        const Equation& b = any();
        Square derivatives;
        derivatives << a.derivatives, b.derivatives;
        Motion errors;
        errors << a.error, b.error;
        const Motion motion = derivatives.partialPivLu().solve(errors);
        if (!motion.allFinite()) continue;
        const double cost = costOf(motion);
        if (cost < lowest) {
            lowest = cost;
            best = motion;
        }
    }
    return best;
}

std::optional<Motion> MotionFit::refine(Motion motion) {
    constexpr int kRounds = 6;
    constexpr double kFloor = 0.03;   // pixels, below which errors are the tracker's own
    constexpr double kFarAway = 1e9;  // pixels, also for what is no number
    std::vector<Equation> equations(observations_.size());
    for (int round = 0; round < kRounds; ++round) {
        std::vector<double> lengths;
        for (size_t i = 0; i < equations.size(); ++i) {
            equations[i] = equationOf(observations_[i], camera_, motion);
            const double length = equations[i].error.norm();
            lengths.push_back(length < kFarAway ? length : kFarAway);
        }
        const double spread = std::clamp(median(lengths), kFloor, tolerance());
        Square normal = Square::Zero();
        Motion right = Motion::Zero();
        Eigen::Matrix<double, 4, 3> overRows = Eigen::Matrix<double, 4, 3>::Zero();
        Eigen::Matrix<double, 4, 2> byRows = Eigen::Matrix<double, 4, 2>::Zero();
        Eigen::Vector2d errorByRows = Eigen::Vector2d::Zero();
        double rowsByRows = 0.0;
        double later = 0.0;
        double weights = 0.0;
        std::array<Motion, kColumns * kRows> byCell;
        byCell.fill(Motion::Zero());
        std::array<int, kColumns * kRows> agreeing{};  // observations in each cell
        for (size_t i = 0; i < equations.size(); ++i) {
            const double u = lengths[i] / (4.0 * spread);
            if (u >= 1.0) continue;
            const double weight = observations_[i].balance * (1.0 - u * u) * (1.0 - u * u);
            const Equation& e = equations[i];
            normal += weight * e.derivatives.transpose() * e.derivatives;
            const Motion part = weight * e.derivatives.transpose() * e.error;
            right += part;
            overRows += weight * observations_[i].row * e.derivatives.transpose() *
                        e.derivatives.leftCols<3>();
            later += weight * observations_[i].later;
            weights += weight;
            byRows += weight * observations_[i].row * e.derivatives.transpose();
            errorByRows += weight * observations_[i].row * e.error;
            rowsByRows += weight * observations_[i].row * observations_[i].row;
            byCell[static_cast<size_t>(observations_[i].cell)] += part;
            ++agreeing[static_cast<size_t>(observations_[i].cell)];
        }
        const auto solver = normal.ldlt();
        leak_ = solver.solve(overRows);
        later_ = weights > 0.0 ? later / weights : 0.0;
        Square scatter = Square::Zero();
        double cells = 0.0;
        for (size_t i = 0; i < byCell.size(); ++i) {
            scatter += byCell[i] * byCell[i].transpose();
            if (agreeing[i] > 0) cells += 1.0;
        }
        scatter *= cells / (cells - 4.0);  // as many freedoms are used up by the fit
        covariance_ = solver.solve(solver.solve(scatter).transpose());
        const Motion step = solver.solve(right);
        if (!isEnough(agreeing) || !step.allFinite()) return std::nullopt;
        motion.head<3>() =
            rotationVector(rotationBy(motion.head<3>()) * rotationBy(step.head<3>()));
        motion[3] += step[3];
        const Eigen::Matrix2d rows =
            rowsByRows * Eigen::Matrix2d::Identity() - byRows.transpose() * solver.solve(byRows);
        rowShift_ = rows.ldlt().solve(errorByRows - byRows.transpose() * step);
        rowShiftVariance_ = spread * spread * rows.inverse().diagonal();
    }
    return motion;
}

/// Variance of a motion by what errors of the tracker all features have in common, as they move by
/// parts of a pixel.
Motion trackerVariance(const PinholeCamera& camera) {
    constexpr double kError = 0.01;  // pixels that features are tracked in
    const double error = kError * std::ceil(double(camera.width) / kTurnTracking.maxWidth);
    const double radius = std::hypot(camera.width, camera.height) / std::sqrt(12.0);
    const double across = error / camera.focal;
    return Motion(across, across, error / radius, error / radius).cwiseAbs2();
}

}  // namespace

UnexplainedTurn findUnexplainedTurn(const PinholeCamera& camera, const OrientationTrack& track,
                                    double from, double to,
                                    const std::vector<FeatureMotion>& motions,
                                    const LensShiftTrack& shifts) {
    UnexplainedTurn result;
    result.from = from;
    result.to = to;
    std::vector<Observation> observations;
    for (const FeatureMotion& m : motions) {
        // The centre of the first pixel is (0, 0) for features, and (1/2, 1/2) for the camera.
        Eigen::Vector2d start(m.fromX + 0.5, m.fromY + 0.5);
        Eigen::Vector2d end(m.toX + 0.5, m.toY + 0.5);
        const double startTime = camera.rowTime(from, start.y());
        const double endTime = camera.rowTime(to, end.y());
        const Eigen::Quaterniond before = track.at(startTime);
        const Eigen::Quaterniond after = track.at(endTime);
        if (!shifts.isAtRest()) {
            start -= shifts.at(startTime);
            end -= shifts.at(endTime);
        }
        const int column =
            std::clamp(static_cast<int>(m.fromX * kColumns / float(camera.width)), 0, kColumns - 1);
        const int row =
            std::clamp(static_cast<int>(m.fromY * kRows / float(camera.height)), 0, kRows - 1);
        observations.push_back({after.conjugate() * (before * camera.ray(start)), end,
                                (start.y() + end.y()) / (2.0 * camera.height) - 0.5,
                                (end.y() - start.y()) / camera.height, row * kColumns + column,
                                1.0});
        const bool isSeen = !camera.lens.isNone() || observations.back().predicted.z() < 0.0;
        if (!isSeen) observations.pop_back();
    }
    if (observations.size() >= kFewest) {
        MotionFit fit(camera, std::move(observations));
        if (const auto motion = fit.refine(fit.findConsensus())) {
            result.turn = motion->head<3>();
            result.zoom = (*motion)[3];
            const Motion variance = fit.covariance().diagonal() + trackerVariance(camera);
            result.variance = variance.head<3>();
            result.zoomVariance = variance[3];
            result.leak = fit.leak().topRows<3>();
            result.zoomLeak = fit.leak().row(3);
            result.later = fit.later();
            // On the optical axis a turn about x moves the picture to the right, one about y up.
            result.growth = fit.rowShift().cwiseProduct(Eigen::Vector2d(1.0, -1.0)) / camera.focal;
            result.growthVariance = fit.rowShiftVariance() / (camera.focal * camera.focal);
        }
    }
    return result;
}

}  // namespace framehold
