#include "calibration/axis_search.h"

#include "tracking/global_motion.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Dense>

namespace framehold {

namespace {

constexpr double kStep = 0.002;         // seconds between offsets that are tried
constexpr double kSlow = 1.0;           // seconds; motion slower than this is taken out
constexpr size_t kFewestPairs = 20;     // of frames that the log must cover
constexpr double kFewestCovered = 0.5;  // share of the pairs

/// Rotation from one frame to the next by the picture, for a focal length of 1 pixel.
struct Pair {
    double from;  // the frames' timestamps
    double to;
    Eigen::Vector3d turn;  // about the device axes; x and y in pixels, z in radians
};

std::vector<Pair> pairsOf(const FeatureTracks& tracks) {
    std::vector<Pair> pairs;
    for (size_t i = 0; i < tracks.motions.size(); ++i) {
        const auto motion = estimateGlobalMotion(tracks.motions[i], tracks.width, tracks.height);
        if (!motion) continue;
        pairs.push_back({tracks.frameTimes[i],
                         tracks.frameTimes[i + 1],
                         {motion->dx, -motion->dy, motion->rotation}});
    }
    return pairs;
}

/// Takes out what changes slowly: a gyroscope's bias, motion of the camera ahead.
Eigen::MatrixX3d withoutSlowMotion(const Eigen::MatrixX3d& series, Eigen::Index reach) {
    Eigen::MatrixX3d result(series.rows(), 3);
    for (Eigen::Index i = 0; i < series.rows(); ++i) {
        const Eigen::Index first = std::max<Eigen::Index>(0, i - reach);
        const Eigen::Index count = std::min(series.rows(), i + reach + 1) - first;
        result.row(i) = series.row(i) - series.middleRows(first, count).colwise().mean();
    }
    return result;
}

class AxisSearch {
public:
    AxisSearch(const FeatureTracks& tracks, const GyroPath& gyro, const SearchWindow& window)
        : gyro_(gyro), pairs_(pairsOf(tracks)), window_(window), width_(tracks.width),
          lever_((std::pow(tracks.width, 2) + std::pow(tracks.height, 2)) / 12.0) {
        const double seconds = pairs_.empty() ? 0.0 : pairs_.back().to - pairs_.front().from;
        const double pairsPerSecond = static_cast<double>(pairs_.size()) / std::max(seconds, 1e-3);
        reach_ = static_cast<Eigen::Index>(std::ceil(kSlow / 2.0 * pairsPerSecond));
        for (const std::string letters : {"XYZ", "XZY", "YXZ", "YZX", "ZXY", "ZYX"}) {
            for (int signs = 0; signs < 8; ++signs) {
                std::string signedLetters = letters;
                for (size_t axis = 0; axis < 3; ++axis) {
                    if ((signs >> axis & 1) != 0) signedLetters[axis] += 'a' - 'A';
                }
                best_.push_back({AxisMapping::fromLetters(signedLetters), 0.0, 0.0, 1.0,
                                 -std::numeric_limits<double>::infinity()});
            }
        }
    }

    std::vector<AxisGuess> run() {
        const int steps = static_cast<int>(window_.range / kStep);
        for (int i = -steps; i <= steps; ++i) tryOffset(window_.centre + i * kStep);
        std::sort(best_.begin(), best_.end(),
                  [](const AxisGuess& a, const AxisGuess& b) { return a.evidence > b.evidence; });
        const auto tried = [](const AxisGuess& g) { return std::isfinite(g.evidence); };
        best_.erase(std::find_if_not(best_.begin(), best_.end(), tried), best_.end());
        return best_;
    }

private:
    void tryOffset(double offset) {
        std::vector<Eigen::Vector3d> seen;
        std::vector<Eigen::Vector3d> logged;
        for (const Pair& pair : pairs_) {
            if (pair.from + offset < gyro_.firstTime() || pair.to + offset > gyro_.lastTime()) {
                continue;
            }
            seen.push_back(pair.turn);
            logged.push_back(gyro_.turned(pair.to + offset) - gyro_.turned(pair.from + offset));
        }
        if (seen.size() < kFewestPairs || static_cast<double>(seen.size()) <
                                              kFewestCovered * static_cast<double>(pairs_.size())) {
            return;
        }
        const Eigen::MatrixX3d s = shaking(seen);
        const Eigen::MatrixX3d g = shaking(logged);
        const Eigen::Matrix3d cross = s.transpose() * g;
        const Eigen::Vector3d seenEnergy = s.colwise().squaredNorm();
        const Eigen::Vector3d loggedEnergy = g.colwise().squaredNorm();
        for (AxisGuess& best : best_) {
            AxisGuess guess = best;
            guess.timeOffset = offset;
            judge(cross, seenEnergy, loggedEnergy, seen.size(), guess);
            if (guess.evidence > best.evidence) best = guess;
        }
    }

    Eigen::MatrixX3d shaking(const std::vector<Eigen::Vector3d>& turns) const {
        Eigen::MatrixX3d series(static_cast<Eigen::Index>(turns.size()), 3);
        for (size_t i = 0; i < turns.size(); ++i) {
            series.row(static_cast<Eigen::Index>(i)) = turns[i].transpose();
        }
        return withoutSlowMotion(series, reach_);
    }

    /// Fills in focal length, unexplained variance and evidence of a mapping. In pixels: rotations
    /// about the optical axis count as what they move on average over the picture.
    void judge(const Eigen::Matrix3d& cross, const Eigen::Vector3d& seenEnergy,
               const Eigen::Vector3d& loggedEnergy, size_t pairs, AxisGuess& guess) const {
        Eigen::Vector3d agreement;  // of each device axis
        Eigen::Vector3d energy;
        for (size_t axis = 0; axis < 3; ++axis) {
            Vec3 unit{};
            unit[axis] = 1.0;
            const Vec3 logged = guess.axes.toLogged(unit);
            const Eigen::Map<const Eigen::Vector3d> direction(logged.data());
            const auto a = static_cast<Eigen::Index>(axis);
            agreement[a] = cross.row(a).dot(direction);
            energy[a] = loggedEnergy.dot(direction.cwiseAbs());
        }
        const double across = agreement[0] + agreement[1];
        guess.focal = window_.focal > 0.0 ? window_.focal : across / (energy[0] + energy[1]);
        // From a wide angle of 120 degrees to a tele lens of 6.
        if (!(guess.focal > 0.28 * width_ && guess.focal < 10.0 * width_)) return;
        const double total = seenEnergy[0] + seenEnergy[1] + lever_ * seenEnergy[2];
        const double left = seenEnergy[0] + seenEnergy[1] - 2.0 * guess.focal * across +
                            guess.focal * guess.focal * (energy[0] + energy[1]) +
                            lever_ * (seenEnergy[2] - 2.0 * agreement[2] + energy[2]);
        guess.unexplainedVariance = left / total;
        guess.evidence = -static_cast<double>(pairs) * std::log(guess.unexplainedVariance);
    }

    const GyroPath& gyro_;
    std::vector<Pair> pairs_;
    SearchWindow window_;
    int width_;
    double lever_;  // pixels^2, mean square distance from the picture's centre
    Eigen::Index reach_ = 0;
    std::vector<AxisGuess> best_;  // one for each mapping
};

}  // namespace

std::vector<AxisGuess> searchAxes(const FeatureTracks& tracks, const GyroPath& gyro,
                                  const SearchWindow& window) {
    return AxisSearch(tracks, gyro, window).run();
}

}  // namespace framehold
