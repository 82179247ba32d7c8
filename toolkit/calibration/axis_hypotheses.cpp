#include "calibration/axis_hypotheses.h"

#include "common/text_fields.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kLeastExplained = 0.5;  // of the shake, for the log to be the clip's
/// Share of the picture's width that it moves from one frame to the next; less is no shake.
constexpr double kStill = 4e-4;

/// Where to search for the time offset of a clip.
SearchWindow whereToSearch(const CalibrationClip& clip, const GyroPath& gyro,
                           const CalibrationSettings& settings) {
    const double focal = settings.focal.value_or(0.0);
    if (settings.timeOffset) return {*settings.timeOffset + 0.015, 0.04, focal};
    const auto& times = clip.tracks.frameTimes;
    // Where the clocks have different beginnings, both are taken to begin together.
    const bool overlaps = !times.empty() && std::min(times.back(), gyro.lastTime()) -
                                                    std::max(times.front(), gyro.firstTime()) >
                                                0.5 * (times.back() - times.front());
    const double centre = overlaps || times.empty() ? 0.0 : gyro.firstTime() - times.front();
    return {centre, settings.range, focal};
}

/// Throws if none of the hypotheses explains the last clip that they have a guess for.
void requireFit(const std::vector<AxisHypothesis>& all, const CalibrationClip& clip,
                const GyroPath& gyro, double range) {
    double explainedVariance = 0.0;
    for (const AxisHypothesis& h : all) {
        explainedVariance = std::max(explainedVariance, 1.0 - h.guesses.back().unexplainedVariance);
    }
    if (explainedVariance >= kLeastExplained) return;
    const auto& times = clip.tracks.frameTimes;
    throw std::runtime_error(fmt::format(
        "{}: its motion log explains {:.0f} % of how the picture shakes, at the best time offset "
        "{} (the log: {} to {}, the clip: {} to {}): it is another clip's, "
        "or the picture moves by itself",
        clip.name, 100.0 * explainedVariance,
        std::isfinite(range) ? fmt::format("within {:g} s", range) : std::string("anywhere in it"),
        durationText(gyro.firstTime()), durationText(gyro.lastTime()),
        durationText(times.empty() ? 0.0 : times.front()),
        durationText(times.empty() ? 0.0 : times.back())));
}

/// Throws HardlyTurns for a clip that is as good as motionless.
void requireShake(const CalibrationClip& clip) {
    const double shake = shakeOf(clip.tracks);
    if (shake >= kStill * clip.tracks.width) return;
    throw HardlyTurns(fmt::format(
        "{}: hardly moves, {:.2f} pixels from one frame to the next: nothing can be found with it",
        clip.name, shake));
}

}  // namespace

double AxisHypothesis::explainedVariance() const {
    double sum = 0.0;
    for (const AxisGuess& guess : guesses) sum += 1.0 - guess.unexplainedVariance;
    return sum / static_cast<double>(guesses.size());
}

std::vector<AxisHypothesis> findAxes(const std::vector<CalibrationClip>& clips,
                                     const std::vector<GyroPath>& gyros,
                                     const CalibrationSettings& settings,
                                     const std::function<void()>& onStep) {
    std::vector<AxisHypothesis> all;
    for (size_t i = 0; i < clips.size(); ++i) {
        requireShake(clips[i]);
        const auto guesses = searchAxes(clips[i].tracks, gyros[i],
                                        whereToSearch(clips[i], gyros[i], settings), onStep);
        if (i == 0) {
            for (const AxisGuess& g : guesses) all.push_back({g.axes, {}, 0.0});
        }
        for (AxisHypothesis& h : all) {
            const auto same = std::find_if(guesses.begin(), guesses.end(), [&](const auto& g) {
                return g.axes.letters() == h.axes.letters();
            });
            if (same == guesses.end()) continue;
            h.guesses.push_back(*same);
            h.evidence += same->evidence;
        }
        const auto isPossible = [&](const AxisHypothesis& h) {
            return h.guesses.size() == i + 1 &&
                   (!settings.axes || settings.axes->letters() == h.axes.letters());
        };
        all.erase(std::remove_if(all.begin(), all.end(), std::not_fn(isPossible)), all.end());
        requireFit(all, clips[i], gyros[i], settings.range);
    }
    std::sort(all.begin(), all.end(),
              [](const auto& a, const auto& b) { return a.evidence > b.evidence; });
    return all;
}

}  // namespace framehold
