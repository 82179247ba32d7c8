#include "inspection/motion_check.h"

#include "calibration/turn_comparison.h"
#include "common/angles.h"
#include "common/median.h"
#include "common/text_fields.h"
#include "path/pinhole_camera.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

constexpr double kFits = 0.5;       // of the shake, explained: no chance does that
constexpr double kFitsWell = 0.7;   // likewise: nothing is far wrong
constexpr double kNearby = 0.1;     // seconds; offsets are that far off by habit
constexpr double kPiece = 1.5;      // seconds
constexpr double kJumpRange = 2.0;  // seconds
constexpr double kSharp = 0.05;     // that explained variance falls by 0.7 frames aside
/// Share of the picture's width; less from one frame to the next is nobody's shake.
constexpr double kStill = 4e-4;
constexpr double kFocalRange[] = {0.28, 10.0};  // of the width: 120 degrees to 6
constexpr double kWholeStep = 0.008;            // seconds between offsets that are tried
constexpr double kFineStep = 0.001;
constexpr double kFarthest = 900.0;     // seconds to either side that are searched, for time's sake
constexpr double kRivalDistance = 0.5;  // seconds between offsets that are not the same one
constexpr double kRivalFactor = 1.5;    // of the unexplained variance, at least

/// A way to use the log, and how well that fits.
struct Use {
    LoggedCamera camera;
    double offset = 0.0;  // seconds, of the middle row
    double explained = -INFINITY;
};

class Checker {
public:
    Checker(const std::vector<FeatureTracks>& samples, const std::vector<MotionSample>& rates,
            const CheckedCamera& camera, const std::function<void()>& onStep)
        : samples_(samples), camera_(camera), onStep_(onStep), gyro_(rates),
          comparison_(samples, gyro_), width_(samples.front().width) {
        given_.camera = {camera.axes, camera.focal.value_or(0.0), 1.0};
        given_.offset = camera.timeOffset + camera.readoutTime / 2.0;
    }

    MotionCheck run() {
        const double first = samples_.front().frameTimes.front() + camera_.timeOffset;
        const double last = samples_.back().frameTimes.back() + camera_.timeOffset;
        coversNothing_ = last + camera_.readoutTime < gyro_.firstTime() || first > gyro_.lastTime();
        if (coversNothing_ &&
            (!comparison_.isEnough() || std::sqrt(comparison_.variance()) < kStill * width_)) {
            add(Severity::kFatal,
                asItIs() +
                    "; the picture moves too little to find a time offset: give it with "
                    "--time-offset");
            return check_;
        }
        if (!comparison_.isEnough()) return check_;
        if (const auto here = comparison_.at(given_.offset)) {
            if (!camera_.focal) {
                given_.camera.focal = plausibleFocal(here->agreementOf(camera_.axes), 1.0);
            }
            given_.explained = here->explained(given_.camera);
            check_.shake = std::sqrt(here->variance());
            const double predicted = std::sqrt(here->predicted(given_.camera));
            if (std::max(check_.shake, predicted) < kStill * width_) return check_;
            check_.explained = given_.explained;
            const double left = check_.shake * std::sqrt(1.0 - std::min(1.0, given_.explained));
            explainsLess_ = given_.explained < 0.0 && predicted > kStill * width_;
            check_.isHarmful = explainsLess_ && left > check_.shake + kStill / 2.0 * width_;
        }
        diagnose();
        sortFindings(check_.findings);
        return check_;
    }

private:
    void add(Severity severity, const std::string& text, const std::string& remedy = {}) {
        check_.findings.push_back({severity, text, remedy});
    }
    Severity severity() const {
        return check_.isHarmful || coversNothing_ ? Severity::kFatal : Severity::kWarning;
    }

    /// The best focal length in a usual range, or the middle of the range if none is.
    double plausibleFocal(const TurnProducts::Agreement& in, double unit) const {
        const double best = in.bestFocal(unit);
        if (!(best > 0.0)) return width_;
        return std::clamp(best, kFocalRange[0] * width_, kFocalRange[1] * width_);
    }

    /// Takes `use` for `best` if it fits better.
    static void keepBetter(Use& best, const Use& use) {
        if (use.explained > best.explained) best = use;
    }

    enum class Range { kNone, kNear, kWhole };

    /// What is free in a search.
    struct Freedom {
        Range offset = Range::kNone;
        bool axes = false;
        bool focal = false;
        bool unit = false;
    };

    /// A use that anything fits better than.
    Use worst() const {
        Use use = given_;
        use.explained = -INFINITY;
        return use;
    }

    Use bestOf(const TurnProducts& products, double offset, const Freedom& free) const {
        Use best = worst();
        static const std::vector<double> kUnits = {1.0, toRadians(1.0), toDegrees(1.0)};
        for (size_t i = 0; i < (free.axes ? allAxes().size() : 1); ++i) {
            Use use = given_;
            use.offset = offset;
            if (free.axes) use.camera.axes = allAxes()[i];
            const TurnProducts::Agreement in = products.agreementOf(use.camera.axes);
            for (size_t u = 0; u < (free.unit ? kUnits.size() : 1); ++u) {
                use.camera.unit = kUnits[u];
                if (free.focal) use.camera.focal = plausibleFocal(in, use.camera.unit);
                use.explained = products.explained(in, use.camera.focal, use.camera.unit);
                keepBetter(best, use);
            }
        }
        return best;
    }

    Use bestAt(double offset, const Freedom& free) const {
        const auto products = comparison_.at(offset);
        return products ? bestOf(*products, offset, free) : worst();
    }

    /// Offsets of a search.
    struct Interval {
        double from, to;
    };

    Interval intervalOf(Range range) const {
        if (range == Range::kNone) return {given_.offset, given_.offset};
        if (range == Range::kNear) return {given_.offset - kNearby, given_.offset + kNearby};
        const double least = comparison_.smallestOffset(), most = comparison_.largestOffset();
        // Where the clocks have nothing in common, log and clip may have been started together.
        const double around = coversNothing_ ? least + kFarthest : given_.offset;
        if (most - least <= 2.0 * kFarthest) return {least, most};
        return {std::max(least, around - kFarthest), std::min(most, around + kFarthest)};
    }

    /// The best use for each freedom, in one pass over the offsets. Those near `leftOut` are not tried.
    std::vector<Use> search(const std::vector<Freedom>& freedoms,
                            std::optional<double> leftOut = {}) const {
        std::vector<Use> best(freedoms.size(), worst());
        const auto tryAt = [&](double offset, Range least) {
            if (leftOut && std::fabs(offset - *leftOut) < kRivalDistance) return;
            const auto products = comparison_.at(offset);
            for (size_t i = 0; products && i < best.size(); ++i) {
                if (freedoms[i].offset < least) continue;
                keepBetter(best[i], bestOf(*products, offset, freedoms[i]));
            }
        };
        tryAt(given_.offset, Range::kNone);
        Range widest = Range::kNone;
        for (const Freedom& free : freedoms) widest = std::max(widest, free.offset);
        const auto [from, to] = intervalOf(widest);
        int steps = 0;
        for (double offset = from; offset < to; offset += kWholeStep) {
            if (onStep_ && ++steps % 64 == 0) onStep_();
            tryAt(offset, widest);
        }
        for (size_t i = 0; i < best.size(); ++i) {
            if (freedoms[i].offset != Range::kNone) best[i] = refined(best[i], freedoms[i]);
        }
        return best;
    }

    Use refined(Use best, const Freedom& free) const {
        const double around = best.offset;
        for (double d = -2.0 * kWholeStep; d <= 2.0 * kWholeStep; d += kFineStep) {
            keepBetter(best, bestAt(around + d, free));
        }
        return best;
    }

    void diagnose() {
        const bool focalIsFree = !camera_.focal;
        if (given_.explained > kFitsWell) {
            const Use nearby = search({{Range::kNear, false, true, false}})[0];
            report(nearby);
            if (!lookForJumps(nearby)) check_.fittingOffset = nearby.offset;
            return;
        }
        if (lookForJumps(given_)) return;
        // From the simplest change on.
        const std::vector<Freedom> freedoms = {
            {Range::kNone, false, focalIsFree, true},   {Range::kNone, false, true, false},
            {Range::kWhole, false, focalIsFree, false}, {Range::kNone, true, focalIsFree, false},
            {Range::kWhole, false, true, false},        {Range::kWhole, true, focalIsFree, false},
            {Range::kWhole, true, true, true}};
        const std::vector<Use> uses = search(freedoms);
        const Use& all = uses.back();
        if (all.explained < kFits) return reportNoFit(all);
        check_.isHarmful = explainsLess_;
        // The first that does nearly as well as the best one.
        const auto use = std::find_if(uses.begin(), uses.end(), [&](const Use& simple) {
            return 1.0 - simple.explained <= 1.5 * (1.0 - all.explained) + 0.02;
        });
        if (coversNothing_) {
            judgeOffset(*use, freedoms[static_cast<size_t>(use - uses.begin())]);
            if (!check_.foundOffset->isCertain()) {
                return add(Severity::kFatal,
                           fmt::format("{}; no time offset is certain: {}; give it with "
                                       "--time-offset",
                                       asItIs(), describe(*check_.foundOffset)));
            }
        }
        report(*use);
        if (lookForJumps(*use)) {
            check_.foundOffset.reset();
        } else {
            check_.fittingOffset = use->offset;
        }
    }

    /// Says how certain an offset is that was found in all of the log. freedom: that it was found with.
    void judgeOffset(const Use& use, const Freedom& freedom) {
        constexpr double kReach = 0.004;       // seconds
        constexpr double kCertain = 0.002;     // seconds; a tenth of a usual readout
        constexpr double kWeak = 0.006;        // seconds
        constexpr double kFreedomShare = 0.9;  // the rest goes into taking out slow motion
        const auto at = [&](double aside) {
            const auto products = comparison_.at(use.offset + aside);
            return products ? 1.0 - products->explained(use.camera) : INFINITY;
        };
        FoundOffset found;
        found.timeOffset = use.offset - camera_.readoutTime / 2.0;
        found.explained = use.explained;
        const Use rival = search({freedom}, use.offset)[0];
        found.rivalExplained = std::max(0.0, rival.explained);
        found.rivalTimeOffset = rival.offset - camera_.readoutTime / 2.0;
        const auto products = comparison_.at(use.offset);
        const double left = at(0.0), before = at(-kReach), after = at(kReach);
        const double curvature = (before - 2.0 * left + after) / (kReach * kReach);
        if (products && std::isfinite(curvature) && curvature > 0.0) {
            const double shift = (before - after) / (2.0 * kReach * curvature);
            found.timeOffset += std::clamp(shift, -kReach, kReach);
            const double freedoms = kFreedomShare * 3.0 * static_cast<double>(products->pairs);
            found.deviation = std::sqrt(2.0 * left / (freedoms * curvature));
            const bool moves = std::sqrt(products->variance()) > kStill * width_;
            const bool isAlone = 1.0 - found.rivalExplained > kRivalFactor * left;
            if (moves && isAlone && found.deviation < kWeak) {
                found.confidence =
                    found.deviation < kCertain ? Confidence::kWellDetermined : Confidence::kWeak;
            }
        }
        check_.foundOffset = found;
    }

    /// How the log fits as it is.
    std::string asItIs() const {
        if (coversNothing_) {
            const double given = camera_.timeOffset;
            return fmt::format(
                "no frame has motion: the log runs from {} to {}, the frames on the same clock "
                "from {} to {}",
                durationText(gyro_.firstTime()), durationText(gyro_.lastTime()),
                durationText(samples_.front().frameTimes.front() + given),
                durationText(samples_.back().frameTimes.back() + given));
        }
        if (!check_.explained) return "the log covers less than half of the clip";
        if (*check_.explained < 0.0) {
            return "the log explains less than nothing of the shake: following it, the picture "
                   "would shake more";
        }
        return fmt::format("the log explains {:.0f} % of the shake", 100.0 * *check_.explained);
    }

    void reportNoFit(const Use& best) {
        std::string text = asItIs();
        if (!check_.explained && !coversNothing_) {
            return add(severity(), text + ": start the log before the video and stop it after");
        }
        const auto [from, to] = intervalOf(Range::kWhole);
        text += fmt::format("; no time offset from {:.0f} to {:.0f} s and no axes {}", from, to,
                            best.explained > 0.0
                                ? fmt::format("explain more than {:.0f} %", 100.0 * best.explained)
                                : "mend that");
        add(severity(), text +
                            ": it is another clip's log, or the picture moves by itself; give the "
                            "log that was recorded with the clip");
    }

    void report(const Use& use) {
        const double before = given_.explained;
        std::vector<std::string> what, how;
        const double offset = use.offset - camera_.readoutTime / 2.0;
        const double wrong = use.offset - given_.offset;
        const bool focalIsWrong =
            camera_.focal && std::fabs(std::log(use.camera.focal / *camera_.focal)) > 0.2;
        if (use.camera.unit != 1.0) {
            what.push_back(use.camera.unit < 1.0
                               ? "its values are degrees per second, taken for rad/s"
                               : "its values are rad/s, taken for degrees per second");
            how.push_back(use.camera.unit < 1.0 ? "gscale,0.0174533 in the log's header"
                                                : "gscale,1 in the log's header");
        }
        if (use.camera.axes.letters() != camera_.axes.letters()) {
            what.push_back(fmt::format("its axes are {}, not {}", use.camera.axes.letters(),
                                       camera_.axes.letters()));
            how.push_back("--axes " + use.camera.axes.letters());
        }
        if (focalIsWrong) {
            what.push_back(fmt::format("the focal length is about {:.0f} pixels, not {:.0f}",
                                       use.camera.focal, *camera_.focal));
            how.push_back(fmt::format("--focal {:.0f}", use.camera.focal));
        }
        if (std::fabs(wrong) > kNoticeable) {
            what.push_back(fmt::format("the time offset is wrong by {}", durationOf(wrong)));
            how.push_back(fmt::format("--time-offset {:.4f}", offset));
        }
        if (what.empty()) return;
        // Small errors are worth a word only where they cost something.
        if (1.0 - use.explained > 0.7 * (1.0 - before)) return;
        const std::string remedy = fmt::format("{}", fmt::join(how, " "));
        add(severity(),
            fmt::format("{}; {} fits the pictures and explains {:.0f} %: {}", asItIs(), remedy,
                        100.0 * use.explained, fmt::join(what, ", and ")),
            remedy);
    }

    /// Offset of a piece of the clip, with the time of its middle.
    struct PieceOffset {
        double time, offset;
    };

    /// Pieces of the samples, of about a second and a half each.
    std::vector<FeatureTracks> pieces() const {
        std::vector<FeatureTracks> result;
        for (const FeatureTracks& sample : samples_) {
            const double seconds = sample.frameTimes.back() - sample.frameTimes.front();
            const auto parts = static_cast<size_t>(std::max(1.0, std::round(seconds / kPiece)));
            const size_t pairs = sample.motions.size();
            for (size_t i = 0; i < parts; ++i) {
                const auto first = static_cast<ptrdiff_t>(pairs * i / parts);
                const auto end = static_cast<ptrdiff_t>(pairs * (i + 1) / parts);
                result.push_back(
                    {sample.width,
                     sample.height,
                     {sample.frameTimes.begin() + first, sample.frameTimes.begin() + end + 1},
                     {sample.motions.begin() + first, sample.motions.begin() + end}});
            }
        }
        return result;
    }

    /// The offset of one piece near that of the whole, if it is certain.
    std::optional<PieceOffset> offsetOf(const FeatureTracks& piece, const Use& use) const {
        const TurnComparison comparison({piece}, gyro_);
        Use best = use;
        best.explained = -INFINITY;
        const auto tryOffsets = [&](double around, double range, double step) {
            for (double d = -range; d <= range; d += step) {
                const auto products = comparison.at(around + d);
                if (products) {
                    keepBetter(best, {use.camera, around + d, products->explained(use.camera)});
                }
            }
        };
        tryOffsets(use.offset, kJumpRange, kWholeStep);
        tryOffsets(best.offset, kWholeStep, kFineStep);
        if (best.explained < kFitsWell) return std::nullopt;
        // A slow pan fits at any offset.
        const double period = framePeriod();
        for (const double aside : {-0.7 * period, 0.7 * period}) {
            const auto products = comparison.at(best.offset + aside);
            if (!products || std::sqrt(products->variance()) < kStill * width_ ||
                products->explained(use.camera) > best.explained - kSharp) {
                return std::nullopt;
            }
        }
        return PieceOffset{(piece.frameTimes.front() + piece.frameTimes.back()) / 2.0,
                           best.offset - camera_.readoutTime / 2.0};
    }

    /// Frames that are missing without a gap in the times show as time offsets that differ.
    bool lookForJumps(const Use& use) {
        std::vector<PieceOffset> offsets;
        for (const FeatureTracks& piece : pieces()) {
            if (const auto found = offsetOf(piece, use)) offsets.push_back(*found);
        }
        if (offsets.size() < 2) return false;
        const auto [least, most] =
            std::minmax_element(offsets.begin(), offsets.end(),
                                [](const auto& a, const auto& b) { return a.offset < b.offset; });
        const double period = framePeriod();
        const double apart = most->offset - least->offset;
        if (apart < 0.7 * period) return false;
        const auto& first = least->time < most->time ? *least : *most;
        const auto& last = least->time < most->time ? *most : *least;
        const double frames = (last.offset - first.offset) / period;
        add(severity(),
            fmt::format(
                "the time offset is {:.3f} s at {:.1f} s of the clip and {:.3f} s at {:.1f} s: "
                "{}; give the frames' own times in a frames.csv",
                first.offset, first.time, last.offset, last.time,
                frames > 0.0 ? fmt::format("about {:.0f} frames are missing in between, without a "
                                           "gap in the frames' times",
                                           frames)
                             : std::string("the frames' times run ahead of the log's clock")));
        return true;
    }

    double framePeriod() const {
        std::vector<double> periods;
        for (const FeatureTracks& sample : samples_) {
            for (size_t i = 1; i < sample.frameTimes.size(); ++i) {
                periods.push_back(sample.frameTimes[i] - sample.frameTimes[i - 1]);
            }
        }
        return median(std::move(periods));
    }

    static std::string durationOf(double seconds) {
        return std::fabs(seconds) < 1.0 ? fmt::format("{:.1f} ms", 1e3 * seconds)
                                        : fmt::format("{:.2f} s", seconds);
    }

    static constexpr double kNoticeable = 0.006;  // seconds

    const std::vector<FeatureTracks>& samples_;
    const CheckedCamera& camera_;
    const std::function<void()>& onStep_;
    GyroPath gyro_;
    TurnComparison comparison_;
    double width_;
    Use given_;
    MotionCheck check_;
    bool coversNothing_ = false;
    bool explainsLess_ = false;  // than nothing
};

/// Moves features to where a pinhole shows them; leaves out those far out, which it shows farther
/// still.
void takeLensOut(const PinholeCamera& camera, std::vector<FeatureTracks>& samples) {
    constexpr double kWidest = 45.0;  // degrees off the axis
    PinholeCamera pinhole = camera;
    pinhole.lens = {};
    const double farthest = camera.focal * camera.lens.at(toRadians(kWidest)).radius;
    const auto move = [&](float& x, float& y) {
        const Eigen::Vector2d seen(x, y);
        const Eigen::Vector2d centre(camera.width / 2.0, camera.height / 2.0);
        if (!((seen - centre).norm() < farthest)) return false;
        const Eigen::Vector2d moved = pinhole.project(camera.ray(seen));
        x = static_cast<float>(moved.x());
        y = static_cast<float>(moved.y());
        return true;
    };
    for (FeatureTracks& sample : samples) {
        for (std::vector<FeatureMotion>& motions : sample.motions) {
            const auto end = std::remove_if(motions.begin(), motions.end(), [&](FeatureMotion& m) {
                return !move(m.fromX, m.fromY) || !move(m.toX, m.toY);
            });
            motions.erase(end, motions.end());
        }
    }
}

}  // namespace

std::string describe(const FoundOffset& found) {
    return fmt::format(
        "{:.4f} s +- {:.1f} ms explains {:.0f} % of the shake, the next best, {:.4f} s, {:.0f} %: "
        "{}",
        found.timeOffset, 1e3 * found.deviation, 100.0 * found.explained, found.rivalTimeOffset,
        100.0 * found.rivalExplained, nameOf(found.confidence));
}

MotionCheck checkMotion(const std::vector<FeatureTracks>& samples,
                        const std::vector<MotionSample>& rates, const CheckedCamera& camera,
                        const std::function<void()>& onStep) {
    if (samples.empty() || rates.size() < 2) return {};
    std::vector<FeatureTracks> onLogsClock = samples;
    for (FeatureTracks& sample : onLogsClock) {
        for (double& time : sample.frameTimes) time *= 1.0 + camera.clockDrift;
        camera.shifts.takeOut(camera.timeOffset, camera.readoutTime, sample);
    }
    if (!camera.lens.isNone() && camera.focal) {
        takeLensOut({samples[0].width, samples[0].height, *camera.focal, 0.0, camera.lens},
                    onLogsClock);
    }
    return Checker(onLogsClock, rates, camera, onStep).run();
}

}  // namespace framehold
