#include "report/verdict.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kSteady = 0.35;  // of the shake left, at most
constexpr double kPartly = 0.75;
constexpr double kGoodEnough = 0.2;     // no advice is worth its price then
constexpr double kVisibleShake = 5e-4;  // of the width

/// Parts of a verdict that follow from a run's record.
class Judge {
public:
    explicit Judge(const RunRecord& run) : run_(run) {
        for (const FrameRecord& frame : run.frames) {
            if (frame.marginUsed > kAtLimit) ++atLimit_;
            if (!frame.measured) ++without_;
            largest_ = std::max(largest_, frame.marginUsed);
        }
    }

    /// Reason for what is left of the shake, as the end of a sentence; empty if none is known.
    std::string reason() const {
        if (!run_.misfit.empty()) return ": the motion log does not fit the pictures";
        if (lacksMotion()) {
            return fmt::format(": {} of {} frames have no orientation", without_,
                               run_.frames.size());
        }
        if (isMarginUsedUp()) {
            return fmt::format(": the crop margin is used up in {} of {} frames", atLimit_,
                               run_.frames.size());
        }
        return "";
    }

    /// The setting that would help most. left: share of the shake.
    std::string advice(double left) const {
        if (run_.engine.empty()) return "";
        if (!run_.misfit.empty()) return misfitAdvice();
        if (lacksMotion()) return "start the motion log before the video and stop it after";
        if (left > kGoodEnough && isMarginUsedUp()) return marginAdvice();
        if (left > kGoodEnough && run_.engine == "live") {
            return "--engine offline, which knows the whole clip, leaves less";
        }
        if (left > kSteady) return effortAdvice();
        return spareMarginAdvice();
    }

    /// The crop of a steady result that leaves room.
    std::string spareMarginAdvice() const {
        constexpr int kStep = 5;
        constexpr int kSmallestGain = 5;
        const int crop = run_.param.cropPercent;
        const double needed = (100 - crop) * largest_ / kAtLimit;
        const int possible = static_cast<int>(100.0 - std::ceil(needed)) / kStep * kStep;
        const bool showsMore = run_.zoom != "fixed";
        if (run_.frames.empty() || run_.engine == "live" || showsMore ||
            possible < crop + kSmallestGain) {
            return "";
        }
        return fmt::format(
            "--crop {} shows more of the picture: at most {:.0f} % of the margin is "
            "used",
            std::min(possible, 100 - kStep), 100.0 * largest_);
    }

private:
    static constexpr double kAtLimit = 0.9;  // of the margin

    /// A path that was not observed has no orientations at all.
    bool lacksMotion() const {
        return 10 * without_ > run_.frames.size() && without_ < run_.frames.size();
    }
    bool isMarginUsedUp() const { return 50 * atLimit_ > run_.frames.size(); }

    std::string misfitAdvice() const {
        if (!run_.remedy.empty()) return run_.remedy + " fits the pictures";
        return "--no-motion follows the pictures alone; the log that was recorded with the clip "
               "is better";
    }

    std::string marginAdvice() const {
        constexpr int kUsual = 80;
        constexpr int kSmallest = 60;
        const int crop = run_.param.cropPercent;
        if (crop <= kSmallest) {
            return run_.param.smoothingLevel > 1
                       ? fmt::format("--smoothing {} keeps closer to the camera's own path",
                                     std::max(1, run_.param.smoothingLevel - 2))
                       : "";
        }
        return fmt::format("--crop {} gives the path more room",
                           std::max(kSmallest, std::min(kUsual, crop - 10)));
    }

    /// For a run in which nothing is at its limit.
    std::string effortAdvice() const {
        constexpr int kUsual = 9;
        if (run_.param.smoothingLevel < kUsual) {
            return fmt::format("--smoothing {} is steadier", kUsual);
        }
        if (run_.motionLog.empty()) return "a motion log (--motion) tells turning from moving";
        if (!run_.isCalibrated) {
            return "--auto finds focal length, readout and time offset in the clip itself";
        }
        return "";
    }

    const RunRecord& run_;
    size_t atLimit_ = 0;  // frames
    size_t without_ = 0;  // frames without an orientation
    double largest_ = 0.0;
};

}  // namespace

Verdict verdictOf(const RunRecord& run) {
    const Judge judge(run);
    if (!run.shake) {
        return {Verdict::Kind::kUnknown,
                "The shake could not be measured, so how steady the result is is not known.", ""};
    }
    const auto& [before, after] = *run.shake;
    const double left = before > 0.0 ? after / before : 0.0;
    const std::string reason = judge.reason();
    if (run.shake->isWorse()) {
        return {Verdict::Kind::kShaky,
                fmt::format("The result is shakier than the source{}.", reason),
                judge.advice(left)};
    }
    if (std::max(before, after) < kVisibleShake) {
        return {Verdict::Kind::kSteady,
                "The clip was steady already: stabilizing makes no visible difference.",
                judge.spareMarginAdvice()};
    }
    const std::string share = fmt::format("{:.0f} % of the shake is left", 100.0 * left);
    if (left <= kSteady) {
        return {Verdict::Kind::kSteady, fmt::format("The result is steady: {}.", share),
                judge.advice(left)};
    }
    if (left <= kPartly) {
        return {Verdict::Kind::kPartly,
                fmt::format("The result is steadier, but {}{}.", share, reason),
                judge.advice(left)};
    }
    return {Verdict::Kind::kShaky,
            fmt::format("The result is hardly steadier, {}{}.", share, reason), judge.advice(left)};
}

std::string textOf(const Verdict& verdict) {
    if (verdict.advice.empty()) return verdict.sentence;
    return fmt::format("{} Would help most: {}.", verdict.sentence, verdict.advice);
}

}  // namespace framehold
