#include "path/path_segment.h"

#include "path/rotation_vector.h"

#include <algorithm>
#include <cmath>

#include <ceres/cost_function.h>
#include <ceres/problem.h>
#include <ceres/solver.h>
#include <glog/logging.h>

namespace framehold {

namespace {

using Eigen::Matrix3d;
using Eigen::Quaterniond;
using Eigen::Vector3d;
using Distances = OutputBorder::Distances;
using Slopes = OutputBorder::Slopes;

constexpr double kNodesPerSecond = 30.0;
constexpr double kReserve = 0.25;  // pixels that the border stays inside, for what a solution errs

/// Weights of the squares of the distance from the track, the speed, the acceleration and the jerk,
/// in units of the smoothing: powers of a Gaussian's variance stand before the last three, so that
/// high frequencies fade at least as they do behind a Gaussian.
/// Deliberate: no weight on the speed. The distance from the track bounds it, and a weight would slow
/// the path down where a clip starts or ends in a pan.
/// Deliberate: squares. With absolute values (Huber's loss) the path bends at points: in pans nearly
/// twice to four times as much shake above 1 Hz is left.
constexpr double kWeights[] = {1.0, 0.0, 0.5, 1.0};
constexpr size_t kOrders = 3;  // differences over up to four nodes

/// Seconds between nodes for frames that take `length` seconds in all.
double nodeStep(const std::vector<double>& times) {
    const double length = times.back() - times.front();
    if (!(length > 0.0)) return 1.0 / kNodesPerSecond;
    const double frameStep = length / static_cast<double>(times.size() - 1);
    const double framesPerNode = std::max(1.0, std::round(1.0 / (kNodesPerSecond * frameStep)));
    return length / std::max(1.0, std::round(length / (frameStep * framesPerNode)));
}

/// Residual that is linear in the turns of neighbouring nodes: constant + sum of factors * turns.
class MotionCost final : public ceres::CostFunction {
public:
    MotionCost(double weight, const Vector3d& constant, std::vector<Matrix3d> factors)
        : constant_(weight * constant), factors_(std::move(factors)) {
        for (Matrix3d& factor : factors_) factor *= weight;
        mutable_parameter_block_sizes()->assign(factors_.size(), 3);
        set_num_residuals(3);
    }

    bool Evaluate(double const* const* turns, double* residuals,
                  double** jacobians) const override {
        Eigen::Map<Vector3d> residual(residuals);
        residual = constant_;
        for (size_t i = 0; i < factors_.size(); ++i) {
            residual += factors_[i] * Eigen::Map<const Vector3d>(turns[i]);
            if (!jacobians || !jacobians[i]) continue;
            Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>> out(jacobians[i]);
            out = factors_[i];
        }
        return true;
    }

private:
    Vector3d constant_;
    std::vector<Matrix3d> factors_;
};

/// Penalty for the part of a frame's border that is beyond its limits, linear in the turns of the
/// nodes around the frame.
class BorderCost final : public ceres::CostFunction {
public:
    /// shares: of the nodes' turns in the frame's.
    BorderCost(double weight, const Distances& beyond, const Slopes& slopes,
               const std::array<double, 4>& shares, size_t nodes)
        : weight_(weight), beyond_(beyond), slopes_(slopes), shares_(shares) {
        mutable_parameter_block_sizes()->assign(nodes, 3);
        set_num_residuals(OutputBorder::kCount);
    }

    bool Evaluate(double const* const* turns, double* residuals,
                  double** jacobians) const override {
        const size_t nodes = parameter_block_sizes().size();
        Vector3d turn = Vector3d::Zero();
        for (size_t i = 0; i < nodes; ++i) {
            turn += shares_[i] * Eigen::Map<const Vector3d>(turns[i]);
        }
        const Distances beyond = beyond_ + slopes_ * turn;
        Eigen::Map<Distances> penalties(residuals);
        penalties = weight_ * beyond.cwiseMax(0.0);
        if (!jacobians) return true;
        for (size_t i = 0; i < nodes; ++i) {
            if (!jacobians[i]) continue;
            Eigen::Map<Eigen::Matrix<double, OutputBorder::kCount, 3, Eigen::RowMajor>> out(
                jacobians[i]);
            for (int row = 0; row < OutputBorder::kCount; ++row) {
                out.row(row) = (beyond[row] > 0.0 ? weight_ * shares_[i] : 0.0) * slopes_.row(row);
            }
        }
        return true;
    }

private:
    double weight_;
    Distances beyond_;
    Slopes slopes_;
    std::array<double, 4> shares_;
};

}  // namespace

PathSegment::PathSegment(const OrientationTrack& track, const PinholeCamera& source,
                         const OutputBorder& border, const PathSettings& settings,
                         const std::vector<double>& firstRowTimes, const std::vector<double>& zooms)
    : track_(track), source_(source), border_(border), smoothing_(settings.smoothing),
      frameTimes_(firstRowTimes), zooms_(zooms), step_(nodeStep(firstRowTimes)) {
    const double length = frameTimes_.back() - frameTimes_.front();
    const auto intervals = static_cast<size_t>(std::max(0.0, std::round(length / step_)));
    for (size_t i = 0; i <= intervals; ++i) {
        const double time = frameTimes_.front() + step_ * static_cast<double>(i);
        const double middle = source.rowTime(time, source.height / 2.0);
        nodes_.push_back(track.at(middle));
        targets_.push_back(
            settings.horizon ? settings.horizon->levelled(nodes_.back(), middle, settings.levelling)
                             : nodes_.back());
    }
}

PathSegment::Stencil PathSegment::stencilAt(double firstRowTime) const {
    constexpr double kSame = 1e-3;  // of a step: the frame is at the node
    const double last = static_cast<double>(nodes_.size() - 1);
    const double place = std::clamp((firstRowTime - frameTimes_.front()) / step_, 0.0, last);
    const double nearest = std::round(place);
    if (std::abs(place - nearest) < kSame) return {static_cast<size_t>(nearest), 1, {1.0}};
    const auto before = static_cast<size_t>(place);
    const double u = place - static_cast<double>(before);
    const double v = 1.0 - u;
    if (before == 0 || before + 2 >= nodes_.size()) return {before, 2, {v, u}};
    // Catmull-Rom
    return {before - 1,
            4,
            {-0.5 * u * v * v, v * (1.0 + u - 1.5 * u * u), u * (1.0 + v - 1.5 * v * v),
             -0.5 * v * u * u}};
}

Quaterniond PathSegment::orientationAt(const Stencil& stencil) const {
    const Quaterniond& base = nodes_[stencil.first];
    Vector3d turn = Vector3d::Zero();
    for (size_t i = 1; i < stencil.count; ++i) {
        turn += stencil.shares[i] * rotationVector(base.conjugate() * nodes_[stencil.first + i]);
    }
    return (base * rotationBy(turn)).normalized();
}

Quaterniond PathSegment::orientationAt(double firstRowTime) const {
    return orientationAt(stencilAt(firstRowTime));
}

/// Nodes that are optimised together. Motion and border are linearised around the path so far, and
/// limits that a solution crosses are enforced by multipliers (augmented Lagrangian) and by a penalty
/// that grows. Deliberate: a low penalty first. Where the limits force a fast turn the jerk outweighs
/// it, but a high one from the start makes Ceres reject most of its steps.
class PathSegment::Window {
public:
    Window(PathSegment& segment, size_t begin, size_t end);

    /// Solves the linear problem; returns the largest turn of a node in pixels.
    double solve();

    /// Linearises anew and enforces limits more; returns by how much the worst is crossed, in pixels.
    double enforceLimits();

private:
    struct Frame {
        Stencil stencil;
        double zoom;
        RowOrientations rows;
        Distances limits;       // of the border: more than 0 where the camera's own view is outside
        Distances beyond;       // of the border: from its limits, positive outside
        Slopes slopes;          // of its distances
        Distances multipliers;  // over the square of the penalty: pixels
    };

    double* turnOf(size_t node) { return turns_[node - first_].data(); }
    void linearize(Frame& frame) const;
    void addMotion(ceres::Problem& problem);
    void addBorder(ceres::Problem& problem);

    PathSegment& segment_;
    size_t begin_;
    size_t end_;
    size_t first_;                 // of the nodes before `begin_` that motion looks back to
    std::vector<Vector3d> turns_;  // from the path so far, of node `first_` on
    std::vector<Frame> frames_;
    double penalty_ = 10.0;  // of a pixel, against a pixel from the track
};

PathSegment::Window::Window(PathSegment& segment, size_t begin, size_t end)
    : segment_(segment), begin_(begin), end_(end), first_(begin - std::min(begin, kOrders)),
      turns_(end - first_) {
    const std::vector<double>& times = segment.frameTimes_;
    const double from = times.front() + segment.step_ * static_cast<double>(first_);
    for (auto time = std::lower_bound(times.begin(), times.end(), from); time != times.end();
         ++time) {
        const Stencil stencil = segment.stencilAt(*time);
        const size_t stencilEnd = stencil.first + stencil.count;
        if (stencilEnd > end) break;
        if (stencil.first < first_ || stencilEnd <= begin) continue;
        const RowOrientations rows(segment.track_, segment.source_, *time);
        const double zoom = segment.zooms_[static_cast<size_t>(time - times.begin())];
        const Distances own = segment.border_.distances(rows, {rows.middle(), zoom});
        frames_.push_back({stencil, zoom, rows, own.cwiseMax(-kReserve), Distances::Zero(),
                           Slopes::Zero(), Distances::Zero()});
        linearize(frames_.back());
    }
}

void PathSegment::Window::linearize(Frame& frame) const {
    const View view{segment_.orientationAt(frame.stencil), frame.zoom};
    frame.beyond = segment_.border_.distances(frame.rows, view, &frame.slopes) - frame.limits;
}

void PathSegment::Window::addMotion(ceres::Problem& problem) {
    static constexpr double kDifferences[kOrders][kOrders] = {{1.0}, {-1.0, 1.0}, {1.0, -2.0, 1.0}};
    const std::vector<Quaterniond>& nodes = segment_.nodes_;
    const double variance = std::pow(segment_.smoothing_ / segment_.step_, 2.0) / 2.0;
    std::array<double, kOrders + 1> weights;
    for (size_t order = 0; order <= kOrders; ++order) {
        weights[order] =
            segment_.source_.focal *
            std::sqrt(kWeights[order] * std::pow(variance, static_cast<double>(order)));
    }
    for (size_t k = begin_; k < end_; ++k) {
        problem.AddResidualBlock(
            new MotionCost(weights[0], rotationVector(segment_.targets_[k].conjugate() * nodes[k]),
                           {Matrix3d::Identity()}),
            nullptr, turnOf(k));
    }
    std::vector<Vector3d> speeds;
    for (size_t k = first_; k + 1 < end_; ++k) {
        speeds.push_back(rotationVector(nodes[k].conjugate() * nodes[k + 1]));
    }
    for (size_t order = 1; order <= kOrders; ++order) {
        if (kWeights[order] == 0.0) continue;
        for (size_t k = first_; k + order < end_; ++k) {
            if (k + order < begin_) continue;
            Vector3d constant = Vector3d::Zero();
            std::vector<Matrix3d> factors(order + 1, Matrix3d::Zero());
            std::vector<double*> blocks;
            for (size_t i = 0; i < order; ++i) {
                const double share = kDifferences[order - 1][i];
                const Vector3d& speed = speeds[k + i - first_];
                constant += share * speed;
                factors[i] -= share * rotationBy(speed).conjugate().toRotationMatrix();
                factors[i + 1] += share * Matrix3d::Identity();
            }
            for (size_t i = 0; i <= order; ++i) blocks.push_back(turnOf(k + i));
            problem.AddResidualBlock(new MotionCost(weights[order], constant, std::move(factors)),
                                     nullptr, blocks);
        }
    }
}

void PathSegment::Window::addBorder(ceres::Problem& problem) {
    for (const Frame& frame : frames_) {
        const Stencil& stencil = frame.stencil;
        std::vector<double*> blocks;
        for (size_t i = 0; i < stencil.count; ++i) blocks.push_back(turnOf(stencil.first + i));
        problem.AddResidualBlock(new BorderCost(penalty_, frame.beyond + frame.multipliers,
                                                frame.slopes, stencil.shares, stencil.count),
                                 nullptr, blocks);
    }
}

double PathSegment::Window::solve() {
    std::fill(turns_.begin(), turns_.end(), Vector3d::Zero());
    ceres::Problem problem;
    addMotion(problem);
    addBorder(problem);
    for (size_t k = first_; k < begin_; ++k) {
        if (problem.HasParameterBlock(turnOf(k))) problem.SetParameterBlockConstant(turnOf(k));
    }
    ceres::Solver::Options options;
    options.linear_solver_type = ceres::SPARSE_NORMAL_CHOLESKY;
    // The problem is linear but for the border: a step needs no bound at first.
    options.initial_trust_region_radius = 1e12;
    options.max_num_iterations = 40;
    options.function_tolerance = 1e-8;  // slow parts of the path cost little
    options.logging_type = ceres::SILENT;
    ceres::Solver::Summary summary;
    ceres::Solve(options, &problem, &summary);
    if (!summary.IsSolutionUsable()) return 0.0;  // the path so far stays
    double largest = 0.0;
    for (size_t k = begin_; k < end_; ++k) {
        const Vector3d& turn = turns_[k - first_];
        largest = std::max(largest, segment_.source_.focal * turn.norm());
        segment_.nodes_[k] = (segment_.nodes_[k] * rotationBy(turn)).normalized();
    }
    return largest;
}

double PathSegment::Window::enforceLimits() {
    constexpr double kGrowth = 3.0;
    constexpr double kLargest = 3000.0;
    const double penalty = std::min(kLargest, kGrowth * penalty_);
    const double share = std::pow(penalty_ / penalty, 2.0);
    double worst = 0.0;
    for (Frame& frame : frames_) {
        linearize(frame);
        worst = std::max(worst, frame.beyond.maxCoeff());
        frame.multipliers = share * (frame.multipliers + frame.beyond).cwiseMax(0.0);
    }
    penalty_ = penalty;
    return worst;
}

void PathSegment::solve(size_t begin, size_t end, const std::function<void(double)>& onProgress) {
    constexpr int kRounds = 16;
    constexpr double kEnough = 0.1;          // pixels
    FLAGS_minloglevel = google::GLOG_FATAL;  // Ceres also tells of steps too small to count
    Window window(*this, begin, end);
    for (int round = 1; round <= kRounds; ++round) {
        const double change = window.solve();
        const double crossed = window.enforceLimits();
        const bool isDone = std::max(change, crossed) < kEnough || round == kRounds;
        onProgress(isDone ? 1.0 : static_cast<double>(round) / kRounds);
        if (isDone) return;
    }
}

}  // namespace framehold
