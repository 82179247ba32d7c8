#include "calibration/camera_fit.h"

#include "calibration/rolling_camera.h"
#include "common/median.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <Eigen/Dense>

namespace framehold {

namespace {

constexpr int kColumns = 4;  // of the regions of the picture
constexpr int kRows = 3;
constexpr double kKnotSpacing = 1.0;  // seconds between the knots of the slow motion
constexpr double kBlock = 0.25;       // seconds whose errors may depend on each other
constexpr double kFinest = 0.02;      // pixels; no track is better
constexpr double kFreeSlow = 30.0;    // pixels, what slow motion may be without any evidence
constexpr double kFixed = 1e-12;      // deviation of a value that is kept
constexpr Eigen::Index kShared = 3;   // logFocal, readout, distortion; then each clip's clock

// Share of the tracks' errors that goes with the motion, for each pixel of reprojection error, found
// with simulated clips at many bit rates: no number of features averages it out.
constexpr double kLag = 0.6;
constexpr double kMostLag = 0.1;
constexpr double kDistortionLag = 2.0;  // times as much: the outer parts are the coarsest
constexpr int kSofteningRounds = 6;     // before outliers are left out altogether

struct Feature {
    TimedMotion timed;
    size_t clip;
    size_t region;      // of the picture, of its clip
    Eigen::Index knot;  // the slow motion is between this knot and the next one
    double share;       // of the way to the next knot
    int block;
    Eigen::Vector2d reprojectionError = Eigen::Vector2d::Zero();  // what the turns do not explain
    Eigen::Vector2d left = Eigen::Vector2d::Zero();  // what slow motion does not explain of that
    RollingCamera::Derivatives derivatives = RollingCamera::Derivatives::Zero();
    double weight = 0.0;
};

/// The slow motion of one region of the picture: a broken line over time for each of x and y.
struct Region {
    Eigen::Index knots = 0;
    Eigen::MatrixX2d slow;     // pixels at the knots
    Eigen::MatrixXd normal;    // between the knots
    Eigen::MatrixXd mixed[2];  // knots by values, for x and y
    Eigen::MatrixX2d right;
    Eigen::MatrixXd solved[2];  // normal^-1 mixed
};

class CameraFitter {
public:
    CameraFitter(const std::vector<FitClip>& clips, const CameraEstimate& start,
                 const FitSettings& settings)
        : start_(start),
          values_(kShared + 2 * static_cast<Eigen::Index>(clips.size()) + (hasLens() ? 1 : 0)) {
        if (hasLens()) {
            const FeatureTracks& tracks = *clips[0].tracks;
            const double corner =
                std::hypot(tracks.width, tracks.height) / 2.0 / std::exp(start.logFocal.value);
            lensUnits_ = {std::pow(corner, -2), std::pow(corner, -4)};
        }
        fillValues();
        for (size_t i = 0; i < clips.size(); ++i) {
            cameras_.emplace_back(clips[i].tracks->width, clips[i].tracks->height, *clips[i].gyro,
                                  start.lens);
            addFeatures(clips[i], i, settings.maxFeatures);
        }
    }

    CameraFit run(int maxRounds, const std::function<void()>& onRound) {
        for (int round = 0; round < maxRounds; ++round) {
            if (onRound) onRound();
            evaluate();
            weigh(round < kSofteningRounds);
            if (step() && round > kSofteningRounds) break;
        }
        evaluate();
        weigh(false);
        collect();
        return result();
    }

private:
    bool hasLens() const { return !start_.lens.isNone(); }

    void fillValues() {
        priors_.resize(values_.size());
        const auto set = [this](Eigen::Index i, const Estimate& e) {
            values_[i] = e.value;
            priors_[i] = 1.0 / std::pow(std::max(e.deviation, kFixed), 2);
        };
        const auto lens = [this](size_t i) {
            return Estimate{start_.lens.coefficients()[i], start_.lensDeviations[i]};
        };
        set(0, start_.logFocal);
        set(1, start_.readout);
        set(2, hasLens() ? lens(0) : start_.distortion);
        if (hasLens()) set(values_.size() - 1, lens(1));
        for (size_t i = 0; i < start_.clocks.size(); ++i) {
            set(clockIndex(i), start_.clocks[i].offset);
            set(clockIndex(i) + 1, start_.clocks[i].drift);
        }
        origin_ = values_;
    }

    static Eigen::Index clockIndex(size_t clip) {
        return kShared + 2 * static_cast<Eigen::Index>(clip);
    }

    RollingCamera::Values valuesOf(size_t clip) const {
        const Eigen::Index clock = clockIndex(clip);
        return {values_[0],     values_[1],         values_[2],
                values_[clock], values_[clock + 1], hasLens() ? values_[values_.size() - 1] : 0.0};
    }

    void addFeatures(const FitClip& clip, size_t index, int maxFeatures) {
        const FeatureTracks& tracks = *clip.tracks;
        const double first = tracks.frameTimes.front();
        const double seconds = std::max(tracks.frameTimes.back() - first, kKnotSpacing);
        const auto spans = static_cast<Eigen::Index>(std::ceil(seconds / kKnotSpacing));
        const size_t firstRegion = regions_.size();
        regions_.resize(firstRegion + size_t{kColumns} * kRows);
        for (size_t i = firstRegion; i < regions_.size(); ++i) {
            regions_[i].knots = spans + 1;
            regions_[i].slow = Eigen::MatrixX2d::Zero(spans + 1, 2);
        }
        const int firstBlock = blocks_;
        for (size_t i = 0; i < tracks.motions.size(); ++i) {
            const auto& motions = tracks.motions[i];
            const double from = tracks.frameTimes[i];
            const double to = tracks.frameTimes[i + 1];
            if (!covers(*clip.gyro, index, from, to)) continue;
            const double knot = (from - first) / seconds * static_cast<double>(spans);
            const auto span = std::min(static_cast<Eigen::Index>(knot), spans - 1);
            const int block = firstBlock + static_cast<int>((from - first) / kBlock);
            blocks_ = std::max(blocks_, block + 1);
            const size_t stride = 1 + (motions.size() - std::min<size_t>(1, motions.size())) /
                                          static_cast<size_t>(maxFeatures);
            for (size_t j = i % stride; j < motions.size(); j += stride) {
                const FeatureMotion& m = motions[j];
                const auto column = std::clamp(
                    static_cast<int>(m.fromX * kColumns / static_cast<float>(tracks.width)), 0,
                    kColumns - 1);
                const auto row = std::clamp(
                    static_cast<int>(m.fromY * kRows / static_cast<float>(tracks.height)), 0,
                    kRows - 1);
                Feature feature;
                feature.timed = {m, from, to};
                feature.clip = index;
                feature.region = firstRegion + static_cast<size_t>(row * kColumns + column);
                feature.knot = span;
                feature.share = knot - static_cast<double>(span);
                feature.block = block;
                features_.push_back(feature);
            }
        }
    }

    /// True if the log covers a pair of frames, with the offset and readout of the start.
    bool covers(const GyroPath& gyro, size_t clip, double from, double to) const {
        const double offset = start_.clocks[clip].offset.value;
        return from + offset >= gyro.firstTime() &&
               to + offset + start_.readout.value <= gyro.lastTime();
    }

    Eigen::Vector2d slowMotion(const Feature& f) const {
        const Region& region = regions_[f.region];
        return ((1.0 - f.share) * region.slow.row(f.knot) + f.share * region.slow.row(f.knot + 1))
            .transpose();
    }

    void evaluate() {
        constexpr double kLensStep = 1e-4;  // share at the corners
        for (size_t i = 0; i < cameras_.size(); ++i) {
            cameras_[i].set(valuesOf(i), {kLensStep * lensUnits_[0], kLensStep * lensUnits_[1]});
        }
        for (Feature& f : features_) {
            f.reprojectionError = cameras_[f.clip].reprojectionError(f.timed, f.derivatives);
            f.left = f.reprojectionError - slowMotion(f);
        }
    }

    /// Sets the weights: Cauchy's at first, then Tukey's (biweight), which leave outliers out
    /// altogether. Outliers are measured against the same region of the picture in the same block of
    /// time.
    void weigh(bool soft) {
        std::vector<std::vector<double>> lengths(regions_.size() * static_cast<size_t>(blocks_));
        for (const Feature& f : features_) lengths[cellOf(f)].push_back(f.left.norm());
        std::vector<double> scales;
        // The median length of a normally distributed pair of numbers is 1.18 deviations.
        for (auto& cell : lengths)
            scales.push_back(std::max(median(std::move(cell)) / 1.18, kFinest));
        for (Feature& f : features_) {
            const double scale = scales[cellOf(f)];
            const double length = f.left.norm() / scale;
            const double inside = 1.0 - std::pow(length / 5.0, 2);
            const double tukey = inside > 0.0 ? inside * inside : 0.0;
            const double cauchy = 1.0 / (1.0 + std::pow(length / 2.0, 2));
            f.weight = (soft ? cauchy : tukey) / (scale * scale);
        }
    }

    size_t cellOf(const Feature& f) const {
        return f.region * static_cast<size_t>(blocks_) + static_cast<size_t>(f.block);
    }

    /// Collects the equations for values and slow motion, and takes the slow motion out of them.
    void collect() {
        const Eigen::Index count = values_.size();
        for (Region& p : regions_) {
            p.normal = Eigen::MatrixXd::Identity(p.knots, p.knots) / (kFreeSlow * kFreeSlow);
            p.right = Eigen::MatrixX2d::Zero(p.knots, 2);
            for (auto& mixed : p.mixed) mixed = Eigen::MatrixXd::Zero(p.knots, count);
        }
        normal_ = Eigen::MatrixXd::Zero(count, count);
        right_ = Eigen::VectorXd::Zero(count);
        for (const Feature& f : features_) {
            if (f.weight <= 0.0) continue;
            const SquareOfValues square = f.weight * f.derivatives.transpose() * f.derivatives;
            const Eigen::Vector<double, RollingCamera::kValues> pull =
                -f.weight * f.derivatives.transpose() * f.reprojectionError;
            const Indices indices = indicesOf(f.clip);
            for (size_t i = 0; i < used(); ++i) {
                const auto row = static_cast<Eigen::Index>(i);
                right_[indices[i]] += pull[row];
                for (size_t j = 0; j < used(); ++j) {
                    normal_(indices[i], indices[j]) += square(row, static_cast<Eigen::Index>(j));
                }
            }
            addToRegion(f, indices);
        }
        for (Region& p : regions_) {
            const Eigen::LDLT<Eigen::MatrixXd> solver(p.normal);
            const Eigen::MatrixX2d slow = solver.solve(p.right);
            for (Eigen::Index axis = 0; axis < 2; ++axis) {
                p.solved[axis] = solver.solve(p.mixed[axis]);
                normal_ -= p.mixed[axis].transpose() * p.solved[axis];
                right_ += p.mixed[axis].transpose() * slow.col(axis);
            }
            p.slow = slow;
        }
    }

    using Indices = std::array<Eigen::Index, RollingCamera::kValues>;
    using SquareOfValues = Eigen::Matrix<double, RollingCamera::kValues, RollingCamera::kValues>;

    Eigen::Index clocksEnd() const { return clockIndex(cameras_.size()); }

    Indices indicesOf(size_t clip) const {
        return {0, 1, 2, clockIndex(clip), clockIndex(clip) + 1, values_.size() - 1};
    }

    /// Number of a clip's values: the last one is a lens's.
    size_t used() const { return RollingCamera::kValues - (hasLens() ? 0 : 1); }

    void addToRegion(const Feature& f, const Indices& indices) {
        Region& region = regions_[f.region];
        const double shares[] = {1.0 - f.share, f.share};
        for (Eigen::Index a = 0; a < 2; ++a) {
            const double weight = f.weight * shares[a];
            region.right.row(f.knot + a) += weight * f.reprojectionError.transpose();
            for (Eigen::Index b = 0; b < 2; ++b) {
                region.normal(f.knot + a, f.knot + b) += weight * shares[b];
            }
            for (Eigen::Index axis = 0; axis < 2; ++axis) {
                for (size_t i = 0; i < used(); ++i) {
                    region.mixed[axis](f.knot + a, indices[i]) +=
                        weight * f.derivatives(axis, static_cast<Eigen::Index>(i));
                }
            }
        }
    }

    /// One step towards the best values; true if it was too small to matter.
    bool step() {
        collect();
        Eigen::MatrixXd normal = normal_;
        normal.diagonal() += priors_;
        const Eigen::VectorXd right = right_ + priors_.cwiseProduct(origin_ - values_);
        Eigen::VectorXd change = normal.ldlt().solve(right);
        const auto limit = [&](Eigen::Index i, double largest) {
            change[i] = std::clamp(change[i], -largest, largest);
        };
        limit(0, 0.2);
        limit(1, 0.01);
        limit(2, 0.1 * lensUnits_[0]);
        if (hasLens()) limit(values_.size() - 1, 0.1 * lensUnits_[1]);
        for (Eigen::Index i = kShared; i < clocksEnd(); i += 2) {
            limit(i, 0.01);
            limit(i + 1, 1e-3);
        }
        values_ += change;
        // The slow motion that goes with the new values.
        for (Region& p : regions_) {
            for (Eigen::Index axis = 0; axis < 2; ++axis)
                p.slow.col(axis) += p.solved[axis] * change;
        }
        double largest = std::max({std::fabs(change[0]) / 1e-5, std::fabs(change[1]) / 1e-6,
                                   std::fabs(change[2]) / (1e-5 * lensUnits_[0])});
        if (hasLens()) {
            const double last = std::fabs(change[values_.size() - 1]);
            largest = std::max(largest, last / (1e-5 * lensUnits_[1]));
        }
        for (Eigen::Index i = kShared; i < clocksEnd(); i += 2) {
            largest =
                std::max({largest, std::fabs(change[i]) / 1e-6, std::fabs(change[i + 1]) / 1e-7});
        }
        return largest < 1.0;
    }

    /// The covariance of the values, from how much the blocks disagree about them. lag: share of
    /// the errors that goes with the motion, as if there were few features.
    Eigen::MatrixXd covariance(double lag) const {
        Eigen::MatrixXd blockPulls = Eigen::MatrixXd::Zero(values_.size(), blocks_);
        Eigen::MatrixXd regionPulls =
            Eigen::MatrixXd::Zero(values_.size(), static_cast<Eigen::Index>(regions_.size()));
        for (const Feature& f : features_) {
            if (f.weight <= 0.0) continue;
            const Region& region = regions_[f.region];
            for (Eigen::Index axis = 0; axis < 2; ++axis) {
                Eigen::VectorXd direction = -(1.0 - f.share) * region.solved[axis].row(f.knot) -
                                            f.share * region.solved[axis].row(f.knot + 1);
                const auto indices = indicesOf(f.clip);
                for (size_t i = 0; i < used(); ++i) {
                    direction[indices[i]] += f.derivatives(axis, static_cast<Eigen::Index>(i));
                }
                direction *= f.weight * f.left[axis];
                blockPulls.col(f.block) += direction;
                regionPulls.col(static_cast<Eigen::Index>(f.region)) += direction;
            }
        }
        Eigen::MatrixXd normal = normal_;
        normal.diagonal() += priors_;
        const auto spreadOf = [](const Eigen::MatrixXd& pulls) {
            const double n = static_cast<double>(pulls.cols());
            const double free = std::max(1.0, n - static_cast<double>(pulls.rows()));
            return Eigen::MatrixXd(pulls * pulls.transpose() * (n / free));
        };
        Eigen::MatrixXd spread = spreadOf(blockPulls) + spreadOf(regionPulls);
        const auto used = std::count_if(features_.begin(), features_.end(),
                                        [](const Feature& f) { return f.weight > 0.0; });
        spread += lag * lag * static_cast<double>(used) * normal_;
        spread.diagonal() += priors_;
        const Eigen::MatrixXd inverse =
            normal.ldlt().solve(Eigen::MatrixXd::Identity(values_.size(), values_.size()));
        return inverse * spread * inverse;
    }

    CameraFit result() const {
        CameraFit fit;
        std::vector<double> reprojectionErrors;
        std::vector<double> atRest;
        size_t outliers = 0;
        for (const Feature& f : features_) {
            reprojectionErrors.push_back(f.left.norm());
            const FeatureMotion& m = f.timed.motion;
            atRest.push_back(std::hypot(m.toX - m.fromX, m.toY - m.fromY));
            if (f.weight <= 0.0) ++outliers;
        }
        fit.reprojectionError = median(std::move(reprojectionErrors));
        fit.reprojectionErrorAtRest = median(std::move(atRest));
        fit.outliers = static_cast<double>(outliers) /
                       static_cast<double>(std::max<size_t>(1, features_.size()));
        const auto estimate = [&](const Eigen::MatrixXd& spread, Eigen::Index i) {
            return Estimate{values_[i], std::sqrt(std::max(0.0, spread(i, i)))};
        };
        const Eigen::MatrixXd all = covariance(std::min(kMostLag, kLag * fit.reprojectionError));
        const Eigen::MatrixXd withoutLag = covariance(0.0);  // a lag does not change over time
        fit.camera.logFocal = estimate(all, 0);
        fit.camera.readout = estimate(all, 1);
        fit.camera.distortion = estimate(all, 2);
        fit.camera.distortion.deviation *= kDistortionLag;
        if (hasLens()) takeLens(all, fit.camera);
        for (size_t i = 0; i < start_.clocks.size(); ++i) {
            fit.camera.clocks.push_back(
                {estimate(all, clockIndex(i)), estimate(withoutLag, clockIndex(i) + 1)});
        }
        return fit;
    }

    /// Takes the lens that was found, in place of the share of distortion.
    void takeLens(const Eigen::MatrixXd& spread, CameraEstimate& camera) const {
        const Eigen::Index last = values_.size() - 1;
        LensDistortion::Coefficients k = start_.lens.coefficients();
        k[0] = values_[2];
        k[1] = values_[last];
        camera.lens = LensDistortion(start_.lens.model(), k);
        camera.lensDeviations = {camera.distortion.deviation,
                                 kDistortionLag * std::sqrt(std::max(0.0, spread(last, last)))};
        camera.distortion = {};
    }

    CameraEstimate start_;
    std::vector<RollingCamera> cameras_;
    std::vector<Feature> features_;
    std::vector<Region> regions_;
    Eigen::VectorXd values_;
    Eigen::VectorXd origin_;  // what they were at the start
    Eigen::VectorXd priors_;  // weights that pull them there
    Eigen::MatrixXd normal_;
    Eigen::VectorXd right_;
    int blocks_ = 0;
    std::array<double, 2> lensUnits_{1.0, 1.0};  // k1 and k2 that move the corners by their radius
};

}  // namespace

CameraFit fitCamera(const std::vector<FitClip>& clips, const CameraEstimate& start,
                    const FitSettings& settings, const std::function<void()>& onRound) {
    return CameraFitter(clips, start, settings).run(settings.maxRounds, onRound);
}

}  // namespace framehold
