#include "calibration/calibration.h"

#include "calibration/axis_search.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

// Largest deviation of a value that counts as well determined.
constexpr double kFocalLimit = 0.01;     // share
constexpr double kReadoutLimit = 0.002;  // seconds
constexpr double kOffsetLimit = 0.001;   // seconds
constexpr double kDriftLimit = 100e-6;

// Errors of the values by tracking itself, found with simulated clips: longer clips do not make
// them smaller.
constexpr double kFocalFloor = 0.002;   // share
constexpr double kReadoutFloor = 1e-4;  // seconds
constexpr double kOffsetFloor = 5e-5;   // seconds
constexpr double kDriftFloor = 3e-6;

// What is likely before anything is measured.
constexpr Estimate kUsualReadout = {0.02, 0.02};
constexpr double kUsualDrift = 5e-4;

// The comparison of axes alone finds the offset about as well.
constexpr double kDoubtfulOffset = 0.01;  // seconds

constexpr double kLeastExplained = 0.3;  // of the shake, for the log to be the clip's

/// A mapping with the first guesses of all clips.
struct Hypothesis {
    AxisMapping axes;
    std::vector<AxisGuess> guesses;
    double evidence = 0.0;
    CameraFit fit;

    double explainedVariance() const {
        double sum = 0.0;
        for (const AxisGuess& guess : guesses) sum += 1.0 - guess.unexplainedVariance;
        return sum / static_cast<double>(guesses.size());
    }
};

/// floor: smallest deviation that is possible; limit: largest one that counts as well determined.
CalibratedValue judged(const Estimate& estimate, double floor, double limit, bool given) {
    CalibratedValue judgement;
    judgement.value = estimate.value;
    if (given) {
        judgement.confidence = Confidence::kGiven;
        return judgement;
    }
    judgement.deviation = std::hypot(estimate.deviation, floor);
    if (judgement.deviation <= limit) {
        judgement.confidence = Confidence::kWellDetermined;
    } else if (judgement.deviation <= 3.0 * limit) {
        judgement.confidence = Confidence::kWeak;
    }
    return judgement;
}

class Calibrator {
public:
    Calibrator(const std::vector<CalibrationClip>& clips, const CalibrationSettings& settings,
               const std::function<void()>& onRound)
        : clips_(clips), settings_(settings), onRound_(onRound) {
        for (const CalibrationClip& clip : clips) {
            if (clip.rates.size() < 2) throw std::runtime_error(clip.name + ": no angular rates");
            if (clip.tracks.width != clips[0].tracks.width ||
                clip.tracks.height != clips[0].tracks.height) {
                throw std::runtime_error(fmt::format(
                    "{}: its pictures are {}x{}, those of {} are {}x{}: calibrate them apart",
                    clip.name, clip.tracks.width, clip.tracks.height, clips[0].name,
                    clips[0].tracks.width, clips[0].tracks.height));
            }
            gyros_.emplace_back(clip.rates);
        }
    }

    Calibration run() {
        std::vector<Hypothesis> hypotheses = candidates();
        for (Hypothesis& h : hypotheses) h.fit = fit(h.axes, startOf(h), kQuick);
        const size_t best = choose(hypotheses);
        const Hypothesis& chosen = hypotheses[best];
        CameraFit found = fit(chosen.axes, refined(chosen, true), {});
        if (!drifts(found)) {
            const CameraEstimate drifting = found.camera;
            found = fit(chosen.axes, refined(chosen, false), {});
            for (size_t i = 0; i < clips_.size(); ++i) {
                found.camera.clocks[i].drift = {0.0, drifting.clocks[i].drift.deviation};
            }
        }
        Calibration result = resultOf(found);
        result.axes = chosen.axes;
        result.explainedVariance = chosen.explainedVariance();
        judgeAxes(hypotheses, best, result);
        if (!result.focal.isUsable() || result.axesConfidence == Confidence::kUnobservable)
            lowerConfidence(result);
        return result;
    }

private:
    static constexpr FitSettings kQuick = {60, 15};

    /// Turns are taken to device axes before they are put together: a mirror has no place in them.
    CameraFit fit(const AxisMapping& axes, const CameraEstimate& start,
                  const FitSettings& settings) const {
        std::vector<GyroPath> gyros;
        for (const CalibrationClip& clip : clips_) {
            std::vector<MotionSample> rates = clip.rates;
            for (MotionSample& rate : rates) rate.value = axes.toDevice(rate.value);
            gyros.emplace_back(rates);
        }
        std::vector<FitClip> fitClips;
        for (size_t i = 0; i < clips_.size(); ++i)
            fitClips.push_back({&clips_[i].tracks, &gyros[i]});
        return fitCamera(fitClips, start, settings, onRound_);
    }

    /// The mappings to look at closely, most likely first.
    std::vector<Hypothesis> candidates() const {
        constexpr size_t kProper = 3;
        constexpr size_t kMirrored = 1;
        std::vector<Hypothesis> all = searchAll();
        std::vector<Hypothesis> chosen;
        size_t proper = 0;
        size_t mirrored = 0;
        for (Hypothesis& h : all) {
            size_t& count = h.axes.isProper() ? proper : mirrored;
            if (count++ < (h.axes.isProper() ? kProper : kMirrored)) chosen.push_back(std::move(h));
        }
        return chosen;
    }

    std::vector<Hypothesis> searchAll() const {
        std::vector<Hypothesis> all;
        for (size_t i = 0; i < clips_.size(); ++i) {
            const auto guesses = searchAxes(clips_[i].tracks, gyros_[i], whereToSearch(i));
            if (i == 0) {
                for (const AxisGuess& g : guesses) all.push_back({g.axes, {}, 0.0, {}});
            }
            for (Hypothesis& h : all) {
                const auto same = std::find_if(guesses.begin(), guesses.end(), [&](const auto& g) {
                    return g.axes.letters() == h.axes.letters();
                });
                if (same == guesses.end()) continue;
                h.guesses.push_back(*same);
                h.evidence += same->evidence;
            }
            const auto isPossible = [&](const Hypothesis& h) {
                return h.guesses.size() == i + 1 &&
                       (!settings_.axes || settings_.axes->letters() == h.axes.letters());
            };
            all.erase(std::remove_if(all.begin(), all.end(), std::not_fn(isPossible)), all.end());
            requireFit(all, i);
        }
        std::sort(all.begin(), all.end(),
                  [](const auto& a, const auto& b) { return a.evidence > b.evidence; });
        return all;
    }

    void requireFit(const std::vector<Hypothesis>& all, size_t clip) const {
        double explainedVariance = 0.0;
        for (const Hypothesis& h : all) {
            explainedVariance =
                std::max(explainedVariance, 1.0 - h.guesses[clip].unexplainedVariance);
        }
        if (explainedVariance >= kLeastExplained) return;
        const GyroPath& gyro = gyros_[clip];
        const auto& times = clips_[clip].tracks.frameTimes;
        throw std::runtime_error(
            fmt::format("{}: its motion log explains {:.0f} % of how the picture shakes; "
                        "either it is not the "
                        "clip's, or their clocks differ by more than {:g} s (the log: {:.3f} s "
                        "to {:.3f} s, "
                        "the clip: {:.3f} s to {:.3f} s), or the clip hardly turns",
                        clips_[clip].name, 100.0 * explainedVariance, settings_.range,
                        gyro.firstTime(), gyro.lastTime(), times.empty() ? 0.0 : times.front(),
                        times.empty() ? 0.0 : times.back()));
    }

    SearchWindow whereToSearch(size_t clip) const {
        const double focal = settings_.focal.value_or(0.0);
        if (settings_.timeOffset) return {*settings_.timeOffset + 0.015, 0.04, focal};
        const auto& times = clips_[clip].tracks.frameTimes;
        const GyroPath& gyro = gyros_[clip];
        // Where the clocks have different beginnings, both are taken to begin together.
        const bool overlaps = !times.empty() && std::min(times.back(), gyro.lastTime()) -
                                                        std::max(times.front(), gyro.firstTime()) >
                                                    0.5 * (times.back() - times.front());
        const double centre = overlaps || times.empty() ? 0.0 : gyro.firstTime() - times.front();
        return {centre, settings_.range, focal};
    }

    CameraEstimate startOf(const Hypothesis& h) const {
        CameraEstimate start;
        double logFocal = 0.0;
        for (const AxisGuess& guess : h.guesses) logFocal += std::log(guess.focal);
        start.logFocal = {logFocal / static_cast<double>(h.guesses.size()), 1.0};
        if (settings_.focal) start.logFocal = {std::log(*settings_.focal), 0.0};
        start.readout = settings_.readout ? Estimate{*settings_.readout, 0.0} : kUsualReadout;
        for (const AxisGuess& guess : h.guesses) {
            ClockEstimate clock;
            clock.offset = settings_.timeOffset
                               ? Estimate{*settings_.timeOffset, 0.0}
                               : Estimate{guess.timeOffset - start.readout.value / 2.0, 0.05};
            clock.drift = {0.0, kUsualDrift};
            start.clocks.push_back(clock);
        }
        return start;
    }

    /// The same from where the quick fit came to, with or without drift.
    CameraEstimate refined(const Hypothesis& h, bool withDrift) const {
        CameraEstimate start = startOf(h);
        const auto take = [](Estimate& to, const Estimate& found) { to.value = found.value; };
        take(start.logFocal, h.fit.camera.logFocal);
        for (size_t i = 0; i < start.clocks.size(); ++i) {
            take(start.clocks[i].offset, h.fit.camera.clocks[i].offset);
            if (!withDrift) start.clocks[i].drift = {0.0, 0.0};
        }
        return start;
    }

    static bool drifts(const CameraFit& fit) {
        const auto shows = [](const ClockEstimate& clock) {
            return std::fabs(clock.drift.value) >
                   4.0 * std::hypot(clock.drift.deviation, kDriftFloor);
        };
        return std::any_of(fit.camera.clocks.begin(), fit.camera.clocks.end(), shows);
    }

    /// Index of the mapping with the smallest reprojection error; of a mirrored one only if it is far
    /// better.
    static size_t choose(const std::vector<Hypothesis>& hypotheses) {
        constexpr double kMirroredHandicap = 1.2;
        constexpr double kTie = 1.02;  // within which the evidence decides
        const auto cost = [&](size_t i) {
            return hypotheses[i].fit.reprojectionError *
                   (hypotheses[i].axes.isProper() ? 1.0 : kMirroredHandicap);
        };
        size_t best = 0;
        for (size_t i = 1; i < hypotheses.size(); ++i) {
            if (cost(i) * kTie < cost(best)) best = i;
        }
        return best;
    }

    void judgeAxes(const std::vector<Hypothesis>& hypotheses, size_t best,
                   Calibration& result) const {
        if (settings_.axes) {
            result.axesConfidence = Confidence::kGiven;
            return;
        }
        const Hypothesis* next = nullptr;
        for (size_t i = 0; i < hypotheses.size(); ++i) {
            if (i == best) continue;
            if (!next || hypotheses[i].fit.reprojectionError < next->fit.reprojectionError)
                next = &hypotheses[i];
        }
        result.axesConfidence = Confidence::kWellDetermined;
        if (!next) return;
        result.runnerUp = next->axes.letters();
        result.runnerUpReprojectionError = next->fit.reprojectionError;
        const double ratio = next->fit.reprojectionError / hypotheses[best].fit.reprojectionError;
        if (ratio < 1.2) result.axesConfidence = Confidence::kWeak;
        if (ratio < 1.02) result.axesConfidence = Confidence::kUnobservable;
    }

    /// Lowers the confidence in all values where the shake is too weak to find the focal length or
    /// the axes: the deviations are too small then, since noise of the gyroscope is taken for shake.
    static void lowerConfidence(Calibration& result) {
        const auto lower = [](CalibratedValue& value, Confidence to) {
            if (value.confidence != Confidence::kGiven)
                value.confidence = std::max(value.confidence, to);
        };
        lower(result.focal, Confidence::kUnobservable);
        lower(result.readout, Confidence::kUnobservable);
        for (ClockCalibration& clock : result.clocks) {
            lower(clock.offset, Confidence::kWeak);
            clock.offset.deviation = std::max(clock.offset.deviation, kDoubtfulOffset);
            lower(clock.drift, Confidence::kUnobservable);
        }
    }

    Calibration resultOf(const CameraFit& fit) const {
        Calibration result;
        result.width = clips_[0].tracks.width;
        result.height = clips_[0].tracks.height;
        const double focal = std::exp(fit.camera.logFocal.value);
        result.focal = judged({focal, focal * fit.camera.logFocal.deviation}, focal * kFocalFloor,
                              focal * kFocalLimit, settings_.focal.has_value());
        result.readout =
            judged(fit.camera.readout, kReadoutFloor, kReadoutLimit, settings_.readout.has_value());
        for (const ClockEstimate& clock : fit.camera.clocks) {
            result.clocks.push_back(
                {judged(clock.offset, kOffsetFloor, kOffsetLimit, settings_.timeOffset.has_value()),
                 judged(clock.drift, kDriftFloor, kDriftLimit, false)});
        }
        result.reprojectionError = fit.reprojectionError;
        result.reprojectionErrorAtRest = fit.reprojectionErrorAtRest;
        result.outliers = fit.outliers;
        return result;
    }

    const std::vector<CalibrationClip>& clips_;
    const CalibrationSettings& settings_;
    const std::function<void()>& onRound_;
    std::vector<GyroPath> gyros_;  // in logged axes
};

}  // namespace

const char* nameOf(Confidence confidence) {
    switch (confidence) {
        case Confidence::kGiven:
            return "given";
        case Confidence::kWellDetermined:
            return "well determined";
        case Confidence::kWeak:
            return "weak";
        case Confidence::kUnobservable:
            break;
    }
    return "unobservable";
}

Calibration calibrate(const std::vector<CalibrationClip>& clips,
                      const CalibrationSettings& settings, const std::function<void()>& onRound) {
    return Calibrator(clips, settings, onRound).run();
}

}  // namespace framehold
