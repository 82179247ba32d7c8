#include "calibration/axis_search.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace framehold {

namespace {

constexpr double kCoarse = 0.008;       // seconds between offsets that are tried first
constexpr double kFine = 0.002;         // and then near the best ones
constexpr double kRivalDistance = 0.5;  // seconds from the best offset
constexpr double kRivalFactor = 1.5;    // of the unexplained variance, at most

class AxisSearch {
public:
    AxisSearch(const FeatureTracks& tracks, const GyroPath& gyro, const SearchWindow& window)
        : comparison_({tracks}, gyro), focal_(window.focal), width_(tracks.width),
          first_(std::max(window.centre - window.range, comparison_.smallestOffset())),
          last_(std::min(window.centre + window.range, comparison_.largestOffset())) {
        for (const AxisMapping& axes : allAxes()) {
            best_.push_back(
                {axes, 0.0, 0.0, 1.0, -std::numeric_limits<double>::infinity(), std::nullopt});
        }
    }

    std::vector<AxisGuess> run(const std::function<void()>& onStep) {
        int steps = 0;
        for (double offset = first_; offset <= last_; offset += kCoarse) {
            if (onStep && ++steps % 256 == 0) onStep();
            if (const auto products = comparison_.at(offset)) {
                for (AxisGuess& best : best_) improve(*products, offset, best);
            }
        }
        for (AxisGuess& best : best_) refine(best);
        std::sort(best_.begin(), best_.end(),
                  [](const AxisGuess& a, const AxisGuess& b) { return a.evidence > b.evidence; });
        const auto tried = [](const AxisGuess& g) { return std::isfinite(g.evidence); };
        best_.erase(std::find_if_not(best_.begin(), best_.end(), tried), best_.end());
        if (!best_.empty()) best_[0].rivalOffset = rivalOf(best_[0]);
        return best_;
    }

private:
    void improve(const TurnProducts& products, double offset, AxisGuess& best) const {
        AxisGuess guess = best;
        guess.timeOffset = offset;
        judge(products, guess);
        if (guess.evidence > best.evidence) best = guess;
    }

    void refine(AxisGuess& best) const {
        if (!std::isfinite(best.evidence)) return;
        const double around = best.timeOffset;
        for (double aside = -kCoarse; aside <= kCoarse; aside += kFine) {
            if (const auto products = comparison_.at(around + aside)) {
                improve(*products, around + aside, best);
            }
        }
    }

    /// Fills in focal length, unexplained variance and evidence of a mapping.
    void judge(const TurnProducts& products, AxisGuess& guess) const {
        guess.focal = focal_ > 0.0 ? focal_ : products.bestFocal(guess.axes, 1.0);
        guess.evidence = -std::numeric_limits<double>::infinity();
        // From a wide angle of 120 degrees to a tele lens of 6.
        if (!(guess.focal > 0.28 * width_ && guess.focal < 10.0 * width_)) return;
        guess.unexplainedVariance = 1.0 - products.explained({guess.axes, guess.focal, 1.0});
        guess.evidence = -static_cast<double>(products.pairs) * std::log(guess.unexplainedVariance);
    }

    std::optional<double> rivalOf(const AxisGuess& best) const {
        std::optional<double> offset;
        double least = kRivalFactor * best.unexplainedVariance;
        for (double other = first_; other <= last_; other += kCoarse) {
            if (std::fabs(other - best.timeOffset) < kRivalDistance) continue;
            const auto products = comparison_.at(other);
            if (!products) continue;
            AxisGuess guess = best;
            judge(*products, guess);
            if (!std::isfinite(guess.evidence) || guess.unexplainedVariance > least) continue;
            least = guess.unexplainedVariance;
            offset = other;
        }
        return offset;
    }

    TurnComparison comparison_;
    double focal_;
    double width_;
    double first_;
    double last_;
    std::vector<AxisGuess> best_;  // one for each mapping
};

}  // namespace

std::vector<AxisGuess> searchAxes(const FeatureTracks& tracks, const GyroPath& gyro,
                                  const SearchWindow& window, const std::function<void()>& onStep) {
    return AxisSearch(tracks, gyro, window).run(onStep);
}

}  // namespace framehold
