#include "path/picture_refinement.h"

#include "common/median.h"
#include "path/rotation_vector.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <random>

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
    double later;    // seconds between the rows' times less those between the frames'
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
    const double scale = camera.focal / ray.z();
    Eigen::Matrix<double, 2, 3> byRay;
    byRay << 0.0, scale, -scale * ray.y() / ray.z(), scale, 0.0, -scale * ray.x() / ray.z();
    equation.derivatives << byRay * crossProduct(ray), position;
    return equation;
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

    /// Fits by weights that fall with an observation's error.
    Motion refine(Motion motion);

    /// Covariance of the fit. Errors of features in a cell may have a cause in common.
    const Square& covariance() const { return covariance_; }

    /// Motion that shows for a rotation vector that grows by one over the rows, 0 in the middle.
    const Eigen::Matrix<double, 4, 3>& leak() const { return leak_; }

    /// Seconds between the features' rows less those between the frames', on average.
    double later() const { return later_; }

private:
    double tolerance() const { return std::max(1.0, camera_.width / 640.0); }

    PinholeCamera camera_;
    std::vector<Observation> observations_;
    Square covariance_;
    Eigen::Matrix<double, 4, 3> leak_;
    double later_ = 0.0;
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

Motion MotionFit::refine(Motion motion) {
    constexpr int kRounds = 6;
    constexpr double kFloor = 0.03;  // pixels, below which errors are the tracker's own
    std::vector<Equation> equations(observations_.size());
    for (int round = 0; round < kRounds; ++round) {
        std::vector<double> lengths;
        for (size_t i = 0; i < equations.size(); ++i) {
            equations[i] = equationOf(observations_[i], camera_, motion);
            lengths.push_back(equations[i].error.norm());
        }
        const double spread = std::clamp(median(lengths), kFloor, tolerance());
        Square normal = Square::Zero();
        Motion right = Motion::Zero();
        Eigen::Matrix<double, 4, 3> overRows = Eigen::Matrix<double, 4, 3>::Zero();
        double later = 0.0;
        double weights = 0.0;
        std::array<Motion, kColumns * kRows> byCell;
        byCell.fill(Motion::Zero());
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
            byCell[static_cast<size_t>(observations_[i].cell)] += part;
        }
        const auto solver = normal.ldlt();
        leak_ = solver.solve(overRows);
        later_ = weights > 0.0 ? later / weights : 0.0;
        Square scatter = Square::Zero();
        for (const Motion& part : byCell) scatter += part * part.transpose();
        covariance_ = solver.solve(solver.solve(scatter).transpose());
        const Motion step = solver.solve(right);
        motion.head<3>() =
            rotationVector(rotationBy(motion.head<3>()) * rotationBy(step.head<3>()));
        motion[3] += step[3];
    }
    return motion;
}

}  // namespace

void PictureRefinement::add(double from, double to, const std::vector<FeatureMotion>& motions) {
    const double middle = camera_.readout / 2.0;
    UnexplainedTurn result{from + middle, to + middle, Eigen::Vector3d::Zero(),
                           Eigen::Vector3d::Constant(std::numeric_limits<double>::infinity())};
    std::vector<Observation> observations;
    for (const FeatureMotion& m : motions) {
        // The centre of the first pixel is (0, 0) for features, and (1/2, 1/2) for the camera.
        const Eigen::Vector2d start(m.fromX + 0.5, m.fromY + 0.5);
        const Eigen::Vector2d end(m.toX + 0.5, m.toY + 0.5);
        const Eigen::Quaterniond before = track_.at(camera_.rowTime(from, start.y()));
        const Eigen::Quaterniond after = track_.at(camera_.rowTime(to, end.y()));
        const int column = std::clamp(static_cast<int>(m.fromX * kColumns / float(camera_.width)),
                                      0, kColumns - 1);
        const int row =
            std::clamp(static_cast<int>(m.fromY * kRows / float(camera_.height)), 0, kRows - 1);
        observations.push_back({after.conjugate() * (before * camera_.ray(start)), end,
                                (start.y() + end.y()) / (2.0 * camera_.height) - 0.5,
                                camera_.rowTime(0.0, end.y() - start.y()), row * kColumns + column,
                                1.0});
        if (!(observations.back().predicted.z() < 0.0)) observations.pop_back();
    }
    if (observations.size() >= kFewest) {
        MotionFit fit(camera_, std::move(observations));
        const Motion motion = fit.refine(fit.findConsensus());
        const Eigen::Vector3d variance = fit.covariance().diagonal().head<3>();
        if (motion.allFinite() && variance.allFinite()) {
            result.turn = (to - from) / (to - from + fit.later()) * motion.head<3>();
            result.variance = variance;
            result.leak = fit.leak().topRows<3>();
        }
    }
    turns_.push_back(result);
}

namespace {

/// Turns without what motion feigns that the track lacks while the rows are read: it is known as
/// soon as the turns are.
std::vector<UnexplainedTurn> withoutRowMotion(const std::vector<UnexplainedTurn>& turns,
                                              double readout) {
    constexpr int kRounds = 3;
    std::vector<UnexplainedTurn> result = turns;
    for (int round = 0; round < kRounds; ++round) {
        const std::vector<UnexplainedTurn> known = result;
        for (size_t i = 0; i < turns.size(); ++i) {
            const UnexplainedTurn& before = known[i > 0 ? i - 1 : i];
            const UnexplainedTurn& after = known[std::min(i + 1, turns.size() - 1)];
            if (!(after.to > before.to)) continue;
            const double share = readout / (after.to - before.to);
            result[i].turn = turns[i].turn - turns[i].leak * share * (after.turn - before.turn);
        }
    }
    return result;
}

/// Turns as far as they stand out from their noise, slow and fast ones apart: noise of slow ones is
/// averaged away.
std::vector<Eigen::Vector3d> withoutNoise(const std::vector<UnexplainedTurn>& turns) {
    constexpr double kSigma = 0.5;  // seconds
    constexpr double kReach = 3.0 * kSigma;
    constexpr double kMargin = 2.0;  // the noise that is certain not to be signal
    std::vector<Eigen::Vector3d> result(turns.size(), Eigen::Vector3d::Zero());
    const auto around = [&turns](size_t i, const auto& visit) {
        const auto weigh = [&](size_t j) {
            const double t = (turns[j].to - turns[i].to) / kSigma;
            if (std::abs(t) > kReach / kSigma) return false;
            visit(j, std::exp(-t * t / 2.0));
            return true;
        };
        for (size_t j = i + 1; j-- > 0 && weigh(j);) {
        }
        for (size_t j = i + 1; j < turns.size() && weigh(j); ++j) {
        }
    };
    for (int axis = 0; axis < 3; ++axis) {
        std::vector<double> slow(turns.size());
        std::vector<double> slowNoise(turns.size());
        for (size_t i = 0; i < turns.size(); ++i) {
            double sum = 0.0;
            double weights = 0.0;
            double noise = 0.0;
            around(i, [&](size_t j, double g) {
                if (!std::isfinite(turns[j].variance[axis])) return;
                sum += g * turns[j].turn[axis];
                noise += g * g * turns[j].variance[axis];
                weights += g;
            });
            slow[i] = weights > 0.0 ? sum / weights : 0.0;
            slowNoise[i] = weights > 0.0 ? noise / (weights * weights) : 0.0;
        }
        for (size_t i = 0; i < turns.size(); ++i) {
            double power = 0.0;
            double noise = 0.0;
            double weights = 0.0;
            double slowPower = 0.0;
            double all = 0.0;
            around(i, [&](size_t j, double g) {
                slowPower += g * (slow[j] * slow[j] - kMargin * slowNoise[j]);
                all += g;
                if (!std::isfinite(turns[j].variance[axis])) return;
                const double fast = turns[j].turn[axis] - slow[j];
                power += g * fast * fast;
                noise += g * turns[j].variance[axis];
                weights += g;
            });
            const auto share = [](double signal, double n) {
                return signal > 0.0 ? signal / (signal + n) : 0.0;
            };
            result[i][axis] = share(slowPower / all, slowNoise[i]) * slow[i];
            if (std::isfinite(turns[i].variance[axis])) {
                result[i][axis] +=
                    share((power - kMargin * noise) / weights, turns[i].variance[axis]) *
                    (turns[i].turn[axis] - slow[i]);
            }
        }
    }
    return result;
}

}  // namespace

std::vector<TrackCorrection> PictureRefinement::corrections() const {
    std::vector<TrackCorrection> corrections;
    if (turns_.empty()) return corrections;
    const std::vector<Eigen::Vector3d> turns =
        withoutNoise(withoutRowMotion(turns_, camera_.readout));
    corrections.push_back({turns_.front().from, Eigen::Quaterniond::Identity()});
    for (size_t i = 0; i < turns.size(); ++i) {
        const Eigen::Quaterniond device = track_.at(turns_[i].to);
        const Eigen::Quaterniond step(device * rotationBy(turns[i]) * device.conjugate());
        corrections.push_back({turns_[i].to, (corrections.back().turn * step).normalized()});
    }
    return corrections;
}

OrientationTrack PictureRefinement::refined() const {
    OrientationTrack track = track_;
    track.correct(corrections());
    return track;
}

}  // namespace framehold
