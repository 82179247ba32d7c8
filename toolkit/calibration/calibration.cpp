#include "calibration/calibration.h"

#include "calibration/axis_hypotheses.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace framehold {

namespace {

// Largest deviation of a value that counts as well determined.
constexpr double kFocalLimit = 0.01;     // share
constexpr double kReadoutLimit = 0.002;  // seconds
constexpr double kOffsetLimit = 0.001;   // seconds
constexpr double kDriftLimit = 100e-6;
constexpr double kDistortionLimit = 0.01;  // share

// Errors of the values by tracking itself, found with simulated clips: longer clips do not make
// them smaller.
constexpr double kFocalFloor = 0.002;   // share
constexpr double kReadoutFloor = 1e-4;  // seconds
constexpr double kOffsetFloor = 5e-5;   // seconds
constexpr double kDriftFloor = 3e-6;
constexpr double kDistortionFloor = 0.002;  // share

// What is likely before anything is measured.
constexpr Estimate kUsualReadout = {0.02, 0.02};
constexpr double kUsualOffset = 0.05;  // seconds, from the comparison of axes
constexpr double kUsualDrift = 5e-4;
constexpr double kUsualDistortion = 0.1;

constexpr double kDistorted = 0.015;  // share; less is not worth a word

// The comparison of axes alone finds the offset about as well.
constexpr double kDoubtfulOffset = 0.01;  // seconds

/// Axes with the quick fit of a camera.
struct Candidate {
    AxisHypothesis hypothesis;
    CameraFit fit;

    const AxisMapping& axes() const { return hypothesis.axes; }
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

/// True for a value that is more than so many deviations from 0.
bool shows(const Estimate& estimate, double floor, double deviations) {
    return std::fabs(estimate.value) > deviations * std::hypot(estimate.deviation, floor);
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
        std::vector<Candidate> candidates = findCandidates();
        for (Candidate& c : candidates) c.fit = fit(c.axes(), startOf(c.hypothesis), kQuick);
        const size_t best = choose(candidates);
        const Candidate& chosen = candidates[best];
        CameraFit found = fit(chosen.axes(), refined(chosen, true), {});
        if (!drifts(found)) {
            const CameraEstimate drifting = found.camera;
            found = fit(chosen.axes(), refined(chosen, false), {});
            for (size_t i = 0; i < clips_.size(); ++i) {
                found.camera.clocks[i].drift = {0.0, drifting.clocks[i].drift.deviation};
            }
        }
        CameraFit distorted = found;
        if (baseLens().isNone()) {
            distorted = fit(chosen.axes(), withDistortion(found.camera), {});
        }
        Calibration result = resultOf(found);
        result.axes = chosen.axes();
        sayRivals(chosen.hypothesis, result);
        result.explainedVariance = chosen.hypothesis.explainedVariance();
        judgeAxes(candidates, best, result);
        if (!result.focal.isUsable() || result.axesConfidence == Confidence::kUnobservable) {
            lowerConfidence(result);
            return result;
        }
        if (baseLens().isNone()) includeDistortion(found.camera, distorted.camera, result);
        if (settings_.lens) return result;
        if (settings_.lensModel || isDistorted(result)) {
            findLens(chosen.axes(), found.camera, distorted.camera, result);
        }
        return result;
    }

private:
    static constexpr FitSettings kQuick = {60, 15};

    /// Lens that all fits have.
    LensDistortion baseLens() const {
        if (settings_.lens) return *settings_.lens;
        // As a pinhole's, the outer parts of a fisheye's picture fit nothing.
        const bool isFisheye = settings_.lensModel == LensModel::kFisheye;
        return isFisheye ? LensDistortion(LensModel::kFisheye, {}) : LensDistortion();
    }

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

    /// The axes to fit a camera for, most likely first.
    std::vector<Candidate> findCandidates() const {
        constexpr size_t kProper = 3;
        constexpr size_t kMirrored = 1;
        std::vector<Candidate> chosen;
        size_t proper = 0;
        size_t mirrored = 0;
        for (AxisHypothesis& h : findAxes(clips_, gyros_, settings_, onRound_)) {
            size_t& count = h.axes.isProper() ? proper : mirrored;
            if (count++ < (h.axes.isProper() ? kProper : kMirrored)) {
                chosen.push_back({std::move(h), {}});
            }
        }
        return chosen;
    }

    CameraEstimate startOf(const AxisHypothesis& h) const {
        CameraEstimate start;
        start.lens = baseLens();
        double logFocal = 0.0;
        for (const AxisGuess& guess : h.guesses) logFocal += std::log(guess.focal);
        start.logFocal = {logFocal / static_cast<double>(h.guesses.size()), 1.0};
        if (settings_.focal) start.logFocal = {std::log(*settings_.focal), 0.0};
        start.readout = settings_.readout ? Estimate{*settings_.readout, 0.0} : kUsualReadout;
        for (const AxisGuess& guess : h.guesses) {
            ClockEstimate clock;
            clock.offset =
                settings_.timeOffset
                    ? Estimate{*settings_.timeOffset, 0.0}
                    : Estimate{guess.timeOffset - start.readout.value / 2.0, kUsualOffset};
            clock.drift = {0.0, kUsualDrift};
            start.clocks.push_back(clock);
        }
        return start;
    }

    /// The same from where the quick fit came to, with or without drift.
    CameraEstimate refined(const Candidate& c, bool withDrift) const {
        CameraEstimate start = startOf(c.hypothesis);
        const auto take = [](Estimate& to, const Estimate& found) { to.value = found.value; };
        take(start.logFocal, c.fit.camera.logFocal);
        for (size_t i = 0; i < start.clocks.size(); ++i) {
            take(start.clocks[i].offset, c.fit.camera.clocks[i].offset);
            if (!withDrift) start.clocks[i].drift = {0.0, 0.0};
        }
        return start;
    }

    /// The priors of a fit that ended, with a lens that is no pinhole's.
    CameraEstimate withDistortion(const CameraEstimate& pinhole) const {
        CameraEstimate start = pinhole;
        start.logFocal.deviation = settings_.focal ? 0.0 : 1.0;
        start.readout.deviation = settings_.readout ? 0.0 : kUsualReadout.deviation;
        for (ClockEstimate& clock : start.clocks) {
            clock.offset.deviation = settings_.timeOffset ? 0.0 : kUsualOffset;
            clock.drift.deviation = 0.0;
        }
        start.distortion.deviation = kUsualDistortion;
        return start;
    }

    /// Adds the distortion; where it shows, also what leaving it out changes to the deviations.
    static void includeDistortion(const CameraEstimate& pinhole, const CameraEstimate& lens,
                                  Calibration& result) {
        result.distortion = judged(lens.distortion, kDistortionFloor, kDistortionLimit, false);
        if (!shows(lens.distortion, kDistortionFloor, 3.0)) return;
        const auto widen = [](CalibratedValue& value, double change, double limit) {
            if (value.confidence == Confidence::kGiven) return;
            value.deviation = std::hypot(value.deviation, change);
            if (value.deviation > limit)
                value.confidence = std::max(value.confidence, Confidence::kWeak);
        };
        const double focal = result.focal.value;
        widen(result.focal, focal * (lens.logFocal.value - pinhole.logFocal.value),
              focal * kFocalLimit);
        widen(result.readout, lens.readout.value - pinhole.readout.value, kReadoutLimit);
        for (size_t i = 0; i < result.clocks.size(); ++i) {
            widen(result.clocks[i].offset,
                  lens.clocks[i].offset.value - pinhole.clocks[i].offset.value, kOffsetLimit);
        }
    }

    /// The priors of a fit that finds the lens by its model. isWhole: with k2.
    CameraEstimate withLens(const CameraEstimate& found, const CameraEstimate& distorted,
                            bool isWhole) const {
        constexpr double kUsual = 0.3;  // share at the corners
        CameraEstimate start = withDistortion(found);
        start.distortion = {};
        const double corner = cornerRadius(found);
        if (start.lens.isNone()) {
            // Where a pinhole shows the corners further out, the lens shows them further in.
            const double k1 = -distorted.distortion.value / (corner * corner);
            start.lens = LensDistortion(LensModel::kPolynomial, {k1, 0.0, 0.0, 0.0});
        }
        start.lensDeviations[0] = kUsual / std::pow(corner, 2);
        start.lensDeviations[1] = isWhole ? kUsual / std::pow(corner, 4) : 0.0;
        return start;
    }

    /// Distance of the corners from the centre in focal lengths.
    double cornerRadius(const CameraEstimate& camera) const {
        const FeatureTracks& tracks = clips_[0].tracks;
        return std::hypot(tracks.width, tracks.height) / 2.0 / std::exp(camera.logFocal.value);
    }

    /// Finds the lens, and the other values with it. One that folds back inside the picture is none.
    void findLens(const AxisMapping& axes, const CameraEstimate& found,
                  const CameraEstimate& distorted, Calibration& result) const {
        CameraFit lens = fit(axes, withLens(found, distorted, false), {});
        CameraFit whole = fit(axes, withLens(lens.camera, distorted, true), {});
        const double corner = cornerRadius(lens.camera);
        const auto estimate = [](const CameraEstimate& camera, size_t i) {
            return Estimate{camera.lens.coefficients()[i], camera.lensDeviations[i]};
        };
        // Shares of the radius at the corners, as coefficients.
        const double unit = std::pow(corner, -2);
        const double unit2 = std::pow(corner, -4);
        LensCalibration calibration;
        calibration.model = settings_.lensModel.value_or(LensModel::kPolynomial);
        calibration.pinholeFocal = result.focal;
        if (shows(estimate(whole.camera, 1), kDistortionFloor * unit2, 3.0)) {
            lens = std::move(whole);
            calibration.k2 = judged(estimate(lens.camera, 1), kDistortionFloor * unit2,
                                    kDistortionLimit * unit2, false);
        }
        calibration.k1 = judged(estimate(lens.camera, 0), kDistortionFloor * unit,
                                kDistortionLimit * unit, false);
        if (cornerRadius(lens.camera) >= lens.camera.lens.largestRadius()) return;
        const Calibration together = resultOf(lens);
        result.focal = together.focal;
        result.readout = together.readout;
        for (size_t i = 0; i < result.clocks.size(); ++i) {
            CalibratedValue& offset = result.clocks[i].offset;
            offset = together.clocks[i].offset;
            if (result.clocks[i].rivalOffset) {
                offset.confidence = std::max(offset.confidence, Confidence::kWeak);
            }
        }
        result.reprojectionError = together.reprojectionError;
        result.outliers = together.outliers;
        result.lens = calibration;
    }

    static bool drifts(const CameraFit& fit) {
        return std::any_of(
            fit.camera.clocks.begin(), fit.camera.clocks.end(),
            [](const ClockEstimate& clock) { return shows(clock.drift, kDriftFloor, 4.0); });
    }

    /// Index of the mapping with the smallest reprojection error; of a mirrored one only if it is far
    /// better.
    static size_t choose(const std::vector<Candidate>& candidates) {
        constexpr double kMirroredHandicap = 1.2;
        constexpr double kTie = 1.02;  // within which the evidence decides
        const auto cost = [&](size_t i) {
            return candidates[i].fit.reprojectionError *
                   (candidates[i].axes().isProper() ? 1.0 : kMirroredHandicap);
        };
        size_t best = 0;
        for (size_t i = 1; i < candidates.size(); ++i) {
            if (cost(i) * kTie < cost(best)) best = i;
        }
        return best;
    }

    void sayRivals(const AxisHypothesis& chosen, Calibration& result) const {
        if (settings_.timeOffset) return;
        for (size_t i = 0; i < result.clocks.size(); ++i) {
            const auto& rival = chosen.guesses[i].rivalOffset;
            if (!rival) continue;
            ClockCalibration& clock = result.clocks[i];
            clock.rivalOffset = *rival - result.readout.value / 2.0;
            clock.offset.confidence = std::max(clock.offset.confidence, Confidence::kWeak);
        }
    }

    void judgeAxes(const std::vector<Candidate>& candidates, size_t best,
                   Calibration& result) const {
        if (settings_.axes) {
            result.axesConfidence = Confidence::kGiven;
            return;
        }
        const Candidate* next = nullptr;
        for (size_t i = 0; i < candidates.size(); ++i) {
            if (i == best) continue;
            if (!next || candidates[i].fit.reprojectionError < next->fit.reprojectionError)
                next = &candidates[i];
        }
        result.axesConfidence = Confidence::kWellDetermined;
        if (!next) return;
        result.runnerUp = next->axes().letters();
        result.runnerUpReprojectionError = next->fit.reprojectionError;
        const double ratio = next->fit.reprojectionError / candidates[best].fit.reprojectionError;
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

bool isDistorted(const Calibration& calibration) {
    const CalibratedValue& distortion = calibration.distortion;
    return distortion.isUsable() && std::fabs(distortion.value) > kDistorted &&
           std::fabs(distortion.value) > 3.0 * distortion.deviation;
}

Calibration calibrate(const std::vector<CalibrationClip>& clips,
                      const CalibrationSettings& settings, const std::function<void()>& onRound) {
    return Calibrator(clips, settings, onRound).run();
}

}  // namespace framehold
