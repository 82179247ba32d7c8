#include "path/picture_refinement.h"

#include "path/rotation_vector.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace framehold {

namespace {

/// Turns without what motion feigns that the track lacks while the rows are read: it is known as
/// soon as the turns are. isWhole: the turns are the whole motion, not the rest that a log lacks.
std::vector<UnexplainedTurn> withoutRowMotion(const std::vector<UnexplainedTurn>& turns,
                                              double readout, bool isWhole) {
    constexpr int kRounds = 3;
    // The mean over the rows loses some of a fast shake. What a log lacks is slower.
    const double bending = isWhole ? 1.0 / 6.0 : 0.0;
    std::vector<UnexplainedTurn> measured = turns;
    for (UnexplainedTurn& t : measured) {
        t.turn *= (t.to - t.from) / (t.to - t.from + readout * t.later);
    }
    std::vector<UnexplainedTurn> result = measured;
    for (int round = 0; round < kRounds; ++round) {
        const std::vector<UnexplainedTurn> known = result;
        for (size_t i = 0; i < turns.size(); ++i) {
            const UnexplainedTurn& before = known[i > 0 ? i - 1 : i];
            const UnexplainedTurn& after = known[std::min(i + 1, turns.size() - 1)];
            if (!(after.to > before.to)) continue;
            const double share = readout / (after.to - before.to);
            const Eigen::Vector3d bend = after.turn - 2.0 * known[i].turn + before.turn;
            const Eigen::Vector3d overRows = share * (after.turn - before.turn);
            result[i].turn =
                measured[i].turn - measured[i].leak * overRows - bending * share * share * bend;
            result[i].zoom = measured[i].zoom - measured[i].zoomLeak * overRows;
        }
    }
    return result;
}

constexpr double kNearby = 0.5;  // seconds, over which noise and slow turns are averaged

/// Calls `visit` with each turn within three `sigma` of turn i and its weight, that of a Gaussian.
template <typename Visit>
void visitAround(const std::vector<UnexplainedTurn>& turns, size_t i, const Visit& visit,
                 double sigma = kNearby) {
    constexpr double kReach = 3.0;
    const auto weigh = [&](size_t j) {
        const double t = (turns[j].to - turns[i].to) / sigma;
        if (std::abs(t) > kReach) return false;
        visit(j, std::exp(-t * t / 2.0));
        return true;
    };
    for (size_t j = i + 1; j-- > 0 && weigh(j);) {
    }
    for (size_t j = i + 1; j < turns.size() && weigh(j); ++j) {
    }
}

constexpr double kRoughness = 6.0;    // of white noise's variance, its gain by 1, -2, 1
constexpr double kNoiseMargin = 2.0;  // the noise that is certain not to be signal

/// Share to take of what has a signal's and a noise's power.
double wienerShare(double signal, double noise) {
    return signal > 0.0 ? signal / (signal + noise) : 0.0;
}

/// Raises the turns' variances to what changes from frame to frame: a fit knows nothing of near
/// things that prevail in one frame and not in the next. Noise of the log changes as well, but
/// cancels out in the whole motion.
/// logged: the turns that the track explains.
void addPictureNoise(const std::vector<Eigen::Vector3d>& logged,
                     std::vector<UnexplainedTurn>& turns) {
    std::vector<std::optional<Eigen::Vector3d>> noise(turns.size());
    for (size_t i = 1; i + 1 < turns.size(); ++i) {
        const UnexplainedTurn& before = turns[i - 1];
        const UnexplainedTurn& after = turns[i + 1];
        if (!before.isKnown() || !turns[i].isKnown() || !after.isKnown()) continue;
        const Eigen::Vector3d change = before.turn - 2.0 * turns[i].turn + after.turn;
        const Eigen::Vector3d whole = change + logged[i - 1] - 2.0 * logged[i] + logged[i + 1];
        noise[i] = change.cwiseProduct(whole) / kRoughness;
    }
    for (size_t i = 0; i < turns.size(); ++i) {
        Eigen::Vector3d sum = Eigen::Vector3d::Zero();
        double weights = 0.0;
        visitAround(turns, i, [&](size_t j, double g) {
            if (!noise[j]) return;
            sum += g * *noise[j];
            weights += g;
        });
        if (weights > 0.0) turns[i].variance = turns[i].variance.cwiseMax(sum / weights);
    }
}

/// Turns as far as they stand out from their noise, slow and fast ones apart: noise of slow ones is
/// averaged away.
std::vector<Eigen::Vector3d> withoutNoise(const std::vector<UnexplainedTurn>& turns) {
    std::vector<Eigen::Vector3d> result(turns.size(), Eigen::Vector3d::Zero());
    for (int axis = 0; axis < 3; ++axis) {
        std::vector<double> slow(turns.size());
        std::vector<double> slowNoise(turns.size());
        for (size_t i = 0; i < turns.size(); ++i) {
            double sum = 0.0;
            double weights = 0.0;
            double noise = 0.0;
            visitAround(turns, i, [&](size_t j, double g) {
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
            visitAround(turns, i, [&](size_t j, double g) {
                slowPower += g * (slow[j] * slow[j] - kNoiseMargin * slowNoise[j]);
                all += g;
                if (!std::isfinite(turns[j].variance[axis])) return;
                const double fast = turns[j].turn[axis] - slow[j];
                power += g * fast * fast;
                noise += g * turns[j].variance[axis];
                weights += g;
            });
            result[i][axis] = wienerShare(slowPower / all, slowNoise[i]) * slow[i];
            if (std::isfinite(turns[i].variance[axis])) {
                result[i][axis] +=
                    wienerShare((power - kNoiseMargin * noise) / weights, turns[i].variance[axis]) *
                    (turns[i].turn[axis] - slow[i]);
            }
        }
    }
    return result;
}

/// Sum of the fast part of the turns' zooms up to each, as far as it stands out from its noise.
std::vector<double> fastGrowth(const std::vector<UnexplainedTurn>& turns, double sigma) {
    const size_t count = turns.size();
    std::vector<double> fast(count, 0.0);
    std::vector<double> noise(count, 0.0);  // of each, by its fit or by how it jumps
    for (size_t i = 0; i < count; ++i) {
        if (!turns[i].isKnown()) continue;
        double sum = 0.0;
        double weights = 0.0;
        visitAround(
            turns, i,
            [&](size_t j, double g) {
                if (!turns[j].isKnown()) return;
                sum += g * turns[j].zoom;
                weights += g;
            },
            sigma);
        fast[i] = turns[i].zoom - sum / weights;
        noise[i] = turns[i].zoomVariance;
        if (i == 0 || i + 1 == count || !turns[i - 1].isKnown() || !turns[i + 1].isKnown())
            continue;
        const double jump = turns[i - 1].zoom - 2.0 * turns[i].zoom + turns[i + 1].zoom;
        noise[i] = std::max(noise[i], jump * jump / kRoughness);
    }
    std::vector<double> growth(count, 0.0);
    double total = 0.0;
    for (size_t i = 0; i < count; ++i) {
        double power = 0.0;
        double noisePower = 0.0;
        double weights = 0.0;
        visitAround(turns, i, [&](size_t j, double g) {
            if (!turns[j].isKnown()) return;
            power += g * fast[j] * fast[j];
            noisePower += g * noise[j];
            weights += g;
        });
        if (weights > 0.0) {
            const double signal = (power - kNoiseMargin * noisePower) / weights;
            total += wienerShare(signal, noisePower / weights) * fast[i];
        }
        growth[i] = total;
    }
    return growth;
}

/// Rate at which the turn about x and y changes at turn i, to the fourth order.
std::optional<Eigen::Vector2d> changeOf(const std::vector<UnexplainedTurn>& turns, size_t i) {
    if (i < 2 || i + 2 >= turns.size()) return std::nullopt;
    for (size_t j = i - 2; j <= i + 2; ++j) {
        if (!turns[j].isKnown()) return std::nullopt;
    }
    const auto slope = [&turns, i](size_t reach) -> Eigen::Vector2d {
        const UnexplainedTurn& before = turns[i - reach];
        const UnexplainedTurn& after = turns[i + reach];
        return (after.turn - before.turn).head<2>() / (after.to - before.to);
    };
    return (4.0 * slope(1) - slope(2)) / 3.0;
}

/// Readout that explains how turns grow over the rows; 0 if it cannot be told.
double readoutOf(const std::vector<UnexplainedTurn>& turns) {
    constexpr double kLargestDeviation = 0.003;  // seconds
    constexpr double kFarOff = 3.0;              // deviations
    double readout = 0.0;
    double limit = std::numeric_limits<double>::infinity();
    for (int round = 0; round < 3; ++round) {
        double product = 0.0;
        double square = 0.0;
        double error = 0.0;
        double count = 0.0;
        for (size_t i = 0; i < turns.size(); ++i) {
            const auto change = changeOf(turns, i);
            if (!change) continue;
            for (int axis = 0; axis < 2; ++axis) {
                const double weight = 1.0 / turns[i].growthVariance[axis];
                const double x = (*change)[axis];
                const double y = turns[i].growth[axis];
                const double squaredError = weight * (y - readout * x) * (y - readout * x);
                if (!(weight > 0.0) || squaredError > limit) continue;
                product += weight * x * y;
                square += weight * x * x;
                error += squaredError;
                count += 1.0;
            }
        }
        if (!(square > 0.0)) return 0.0;
        limit = kFarOff * kFarOff * error / count;
        readout = product / square;
        if (round > 0 && error / count / square > kLargestDeviation * kLargestDeviation) return 0.0;
    }
    return std::max(0.0, readout);
}

}  // namespace

void PictureRefinement::add(double from, double to, const std::vector<FeatureMotion>& motions) {
    turns_.push_back(findUnexplainedTurn(camera_, track_, from, to, motions, shifts_));
}

double PictureRefinement::findReadout() {
    camera_.readout = readoutOf(turns_);
    return camera_.readout;
}

std::vector<TrackCorrection> PictureRefinement::corrections() const {
    std::vector<TrackCorrection> corrections;
    if (turns_.empty()) return corrections;
    const double middle = camera_.readout / 2.0;
    std::vector<UnexplainedTurn> found =
        withoutRowMotion(turns_, camera_.readout, !track_.isLogged());
    if (track_.isLogged()) {
        std::vector<Eigen::Vector3d> logged;
        for (const UnexplainedTurn& t : turns_) {
            logged.push_back(
                rotationVector(track_.at(t.from + middle).conjugate() * track_.at(t.to + middle)));
        }
        addPictureNoise(logged, found);
    }
    const std::vector<Eigen::Vector3d> turns = withoutNoise(found);
    corrections.push_back({turns_.front().from + middle, Eigen::Quaterniond::Identity()});
    for (size_t i = 0; i < turns.size(); ++i) {
        const double time = turns_[i].to + middle;
        const Eigen::Quaterniond device = track_.at(time);
        const Eigen::Quaterniond step(device * rotationBy(turns[i]) * device.conjugate());
        corrections.push_back({time, (corrections.back().turn * step).normalized()});
    }
    return corrections;
}

std::vector<double> PictureRefinement::zooms(const std::vector<double>& firstRowTimes,
                                             double smoothing) const {
    std::vector<double> result(firstRowTimes.size(), 1.0);
    if (turns_.empty()) return result;
    const double sigma = std::min(smoothing, kNearby);
    const std::vector<UnexplainedTurn> turns =
        withoutRowMotion(turns_, camera_.readout, !track_.isLogged());
    const std::vector<double> growth = fastGrowth(turns, sigma);
    size_t next = 0;
    for (size_t frame = 0; frame < result.size(); ++frame) {
        while (next < turns.size() && turns[next].to <= firstRowTimes[frame]) ++next;
        const size_t i = next > 0 ? next - 1 : 0;
        double sum = 0.0;
        double weights = 0.0;
        visitAround(
            turns, i,
            [&](size_t j, double g) {
                sum += g * growth[j];
                weights += g;
            },
            sigma);
        const double here = next > 0 ? growth[i] : 0.0;
        result[frame] = std::exp(sum / weights - here);
    }
    return result;
}

OrientationTrack PictureRefinement::refined() const {
    OrientationTrack track = track_;
    track.correct(corrections());
    return track;
}

}  // namespace framehold
