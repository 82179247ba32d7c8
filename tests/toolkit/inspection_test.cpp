// What `framehold inspect` finds in logs that something is wrong with.
#include "calibration/clock_synchronization.h"
#include "inspection/log_findings.h"
#include "inspection/video_inspection.h"
#include "support/test_support.h"

#include <algorithm>
#include <cmath>
#include <functional>

using namespace framehold;

namespace {

/// Seconds of hand shake, as an angular rate.
Vec3 shake(double t) {
    return {0.3 * std::sin(11.0 * t) + 0.2 * std::sin(23.7 * t + 1.0),
            0.4 * std::sin(8.3 * t + 2.0) - 0.1 * std::sin(31.0 * t),
            0.2 * std::sin(14.9 * t + 0.5) + 0.1 * std::sin(5.3 * t)};
}

/// Ten seconds at 200 Hz: two at rest, then shake; noise of 0.002 rad/s and 0.02 m/s^2.
MotionLog goodLog() {
    zpr_test::TestRandom random(41);
    // The sum of twelve uniform numbers has the variance 1.
    const auto noise = [&] {
        double sum = -6.0;
        for (int i = 0; i < 12; ++i) sum += random.uniform(0.0, 1.0);
        return sum;
    };
    MotionLog log;
    for (int i = 0; i < 2000; ++i) {
        const double t = 100.0 + 0.005 * i;
        Vec3 rate = t < 102.0 ? Vec3{} : shake(t);
        Vec3 gravity = {9.81, 0.0, 0.0};
        for (double& v : rate) v += 0.002 * noise();
        for (double& v : gravity) v += 0.02 * noise();
        log.rates.push_back({t, rate});
        log.gravity.push_back({t, gravity});
    }
    return log;
}

struct Fault {
    const char* name;
    std::function<void(MotionLog&)> make;
    Severity severity;
    const char* finding;  // starts with this
};

void forEachRate(MotionLog& log, const std::function<void(size_t, MotionSample&)>& change) {
    for (size_t i = 0; i < log.rates.size(); ++i) change(i, log.rates[i]);
}

const Fault kFaults[] = {
    {"bias",
     [](MotionLog& log) { forEachRate(log, [](size_t, MotionSample& s) { s.value[1] += 0.05; }); },
     Severity::kWarning, "the gyroscope turns by 0.050 rad/s at rest"},
    {"gap",
     [](MotionLog& log) { log.rates.erase(log.rates.begin() + 1000, log.rates.begin() + 1040); },
     Severity::kWarning, "gyroscope: 1 gap, 200.0 ms in all, the longest of 205.0 ms at 104.995 s"},
    {"coarse stamps",
     [](MotionLog& log) {
         forEachRate(log,
                     [](size_t, MotionSample& s) { s.time = std::floor(s.time * 120.0) / 120.0; });
     },
     Severity::kWarning, "gyroscope: steps vary by"},
    {"duplicates",
     [](MotionLog& log) {
         forEachRate(log, [&](size_t i, MotionSample& s) {
             if (i % 200 == 9) s.time -= 0.005;
         });
         for (size_t i = 9; i < log.rates.size(); i += 200)
             log.rates[i].time = log.rates[i - 1].time;
     },
     Severity::kWarning, "gyroscope: 10 of 2000 samples have the same stamp"},
    {"out of order",
     [](MotionLog& log) {
         std::swap(log.rates[500], log.rates[501]);
         log.sortByTime();
     },
     Severity::kNote, "gyroscope: 1 of 2000 samples were out of order"},
    {"saturation",
     [](MotionLog& log) {
         forEachRate(log, [](size_t, MotionSample& s) {
             s.value[0] = std::clamp(8.0 * s.value[0], -2.2, 2.2);
         });
     },
     Severity::kWarning, "gyroscope: "},
    {"degrees",
     [](MotionLog& log) {
         forEachRate(log, [](size_t, MotionSample& s) {
             for (double& v : s.value) v *= 57.29578;
         });
     },
     Severity::kWarning, "the camera turns by "},
    {"slow", [](MotionLog& log) { log.rates = thinned(log.rates, 40.0); }, Severity::kWarning,
     "gyroscope: 40 samples per second"},
    {"too slow", [](MotionLog& log) { log.rates = thinned(log.rates, 10.0); }, Severity::kFatal,
     "gyroscope: 10.0 samples per second follow no hand's shake"},
    {"repeated",
     [](MotionLog& log) {
         for (size_t i = 1; i < log.rates.size(); i += 2)
             log.rates[i].value = log.rates[i - 1].value;
     },
     Severity::kWarning, "gyroscope: 50 % of the samples repeat"},
    {"dead",
     [](MotionLog& log) { forEachRate(log, [](size_t, MotionSample& s) { s.value = {}; }); },
     Severity::kFatal, "gyroscope: all values are 0"},
    {"linear acceleration",
     [](MotionLog& log) {
         for (MotionSample& s : log.gravity) s.value[0] -= 9.81;
     },
     Severity::kWarning, "gravity is 0.0"},
    {"wrong scale",
     [](MotionLog& log) {
         for (MotionSample& s : log.gravity) s.value[0] *= 0.5;
     },
     Severity::kWarning, "gravity is 4.9"},
    {"no accelerometer", [](MotionLog& log) { log.gravity.clear(); }, Severity::kNote,
     "no accelerometer"},
    {"mirrored", [](MotionLog& log) { log.orientation = AxisMapping::fromLetters("XYz"); },
     Severity::kWarning, "the orientation XYz mirrors"},
};

TEST(Inspection, FindsEachFaultAndNoneInAGoodLog) {
    const MotionLog good = goodLog();
    EXPECT_TRUE(findingsOf(good, logStatistics(good)).empty());
    for (const Fault& fault : kFaults) {
        SCOPED_TRACE(fault.name);
        MotionLog log = good;
        fault.make(log);
        const auto findings = findingsOf(log, logStatistics(log));
        const auto found = std::find_if(findings.begin(), findings.end(), [&](const LogFinding& f) {
            return f.text.rfind(fault.finding, 0) == 0;
        });
        for (const LogFinding& f : findings) SCOPED_TRACE(f.text);
        ASSERT_NE(found, findings.end()) << (findings.empty() ? "none" : findings[0].text);
        EXPECT_EQ(found->severity, fault.severity);
        EXPECT_GE(findings.front().severity, findings.back().severity);
    }
}

TEST(Inspection, MeasuresNoiseAndRest) {
    const LogStatistics s = logStatistics(goodLog());
    EXPECT_NEAR(s.rates.stamps.perSecond(), 200.0, 1e-6);
    ASSERT_TRUE(s.rates.rest && s.rates.noise && s.gravity.noise);
    EXPECT_LT(s.rates.rest->from, 101.01);
    for (size_t axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR((*s.rates.noise)[axis], 0.002, 0.0004);
        EXPECT_NEAR((*s.gravity.noise)[axis], 0.02, 0.004);
    }
    EXPECT_NEAR(s.gravity.medianLength, 9.81, 0.01);
}

TEST(AxisMapping, RecognizesMirrors) {
    for (const char* turned : {"XYZ", "YxZ", "YZX", "zXy"})
        EXPECT_TRUE(AxisMapping::fromLetters(turned).isProper()) << turned;
    for (const char* mirrored : {"XYz", "YXZ", "xyz", "ZYX"})
        EXPECT_FALSE(AxisMapping::fromLetters(mirrored).isProper()) << mirrored;
}

/// Pictures that move with the shake as a linear map says, and a little by themselves.
struct SimulatedClip {
    std::vector<double> times;
    std::vector<PictureMotion> motions;
};

SimulatedClip simulate(double seconds, double offset, double drift, double ownMotion) {
    zpr_test::TestRandom random(43);
    SimulatedClip clip;
    for (double t = 0.0; t < seconds; t += 1.0 / 30.0) clip.times.push_back(t);
    const auto onLog = [&](double t) { return 100.0 + (1.0 + drift) * t + offset; };
    for (size_t i = 1; i < clip.times.size(); ++i) {
        Vec3 turned{};
        constexpr int kSteps = 20;
        const double from = onLog(clip.times[i - 1]), to = onLog(clip.times[i]);
        for (int k = 0; k < kSteps; ++k) {
            const Vec3 rate = shake(from + (to - from) * (k + 0.5) / kSteps);
            for (size_t axis = 0; axis < 3; ++axis)
                turned[axis] += rate[axis] * (to - from) / kSteps;
        }
        const auto own = [&] { return ownMotion * random.uniform(-1.0, 1.0); };
        clip.motions.push_back(std::array<double, 3>{
            900.0 * (turned[1] + own()), -900.0 * (turned[0] + own()), turned[2] + own()});
    }
    clip.motions[7].reset();
    return clip;
}

/// Each sample stands for the time since the one before it.
std::vector<MotionSample> longShake() {
    std::vector<MotionSample> rates;
    for (double t = 99.0; t < 142.0; t += 0.005) rates.push_back({t, shake(t - 0.0025)});
    return rates;
}

TEST(ClockSynchronization, FindsOffsetAndDriftWhateverTheAxes) {
    for (const auto& [offset, drift] : {std::pair{0.037, 0.0}, {-0.2, 3e-4}, {0.4, -8e-4}}) {
        SCOPED_TRACE(drift);
        const SimulatedClip clip = simulate(40.0, offset, drift, 0.002);
        const auto fit = synchronizeClocks(clip.times, clip.motions, longShake(), 100.0, 1.0);
        ASSERT_TRUE(fit && fit->drift);
        EXPECT_NEAR(fit->offset, 100.0 + offset + 20.0 * drift, 1e-3);
        EXPECT_LT(fit->offsetError, 1e-3);
        EXPECT_NEAR(*fit->drift, drift, 4e-5);
        EXPECT_GT(fit->explainedVariance, 0.9);
    }
    const SimulatedClip shortClip = simulate(4.0, 0.0, 0.0, 0.002);
    const auto fit = synchronizeClocks(shortClip.times, shortClip.motions, longShake(), 100.0, 1.0);
    EXPECT_TRUE(fit && !fit->drift);
    // Pictures that move by themselves, or that the log does not reach.
    const SimulatedClip other = simulate(10.0, 0.0, 0.0, 1.0);
    EXPECT_FALSE(synchronizeClocks(other.times, other.motions, longShake(), 100.0, 1.0));
    EXPECT_FALSE(synchronizeClocks(shortClip.times, shortClip.motions, longShake(), 0.0, 1.0));
}

TEST(VideoInspection, ReportsOffsetAndDriftOfTheClocks) {
    VideoInspection v;
    v.frames = stampStatistics({0.0, 1.0, 2.0, 10.0 * 2.0}, 0);
    v.log = stampStatistics({500.0, 530.0}, 0);
    v.readoutTime = 0.02;
    const auto said = [&](const char* start) {
        const auto findings = findingsOf(v);
        return std::any_of(findings.begin(), findings.end(),
                           [&](const LogFinding& f) { return f.text.rfind(start, 0) == 0; });
    };
    v.uncovered = 4;
    EXPECT_TRUE(said("no frame has motion"));
    v.timeOffset = 500.0;
    v.uncovered = 1;
    v.clock = ClockSynchronization{500.047, 0.0005, 0.9, 4e-4, 1e-5};
    EXPECT_TRUE(said("1 of 4 frames are outside"));
    EXPECT_TRUE(said("the time offset is wrong by 37.0 ms: --time-offset 500.0370"));
    EXPECT_TRUE(said("the clocks drift apart by 8.0 ms"));
    v.uncovered = 0;
    v.clock = ClockSynchronization{500.011, 0.0005, 0.9, 4e-4, 3e-4};
    EXPECT_TRUE(findingsOf(v).empty());
}

/// Features on a grid, moved as a camera of 300 pixels' focal length sees them that turns with
/// `shake` at a time offset of 100 s; `own` pixels of motion that no log knows. Picture times from
/// `dropAt` on are too early by ten frames.
FeatureTracks tracksOf(double seconds, double scale, double own, double dropAt = INFINITY) {
    zpr_test::TestRandom random(47);
    constexpr double kFocal = 300.0;
    FeatureTracks tracks;
    tracks.width = 320;
    tracks.height = 240;
    for (double t = 0.0; t < seconds; t += 1.0 / 30.0) tracks.frameTimes.push_back(t);
    for (size_t i = 1; i < tracks.frameTimes.size(); ++i) {
        const double late = tracks.frameTimes[i - 1] < dropAt ? 0.0 : 10.0 / 30.0;
        Vec3 turned{};
        for (int k = 0; k < 20; ++k) {
            const Vec3 rate = shake(100.0 + late + tracks.frameTimes[i - 1] + (k + 0.5) / 600.0);
            for (size_t axis = 0; axis < 3; ++axis) turned[axis] += scale * rate[axis] / 600.0;
        }
        const double x = kFocal * turned[0] + own * random.uniform(-1.0, 1.0);
        const double y = -kFocal * turned[1] + own * random.uniform(-1.0, 1.0);
        std::vector<FeatureMotion> motions;
        for (int column = 0; column < 320; column += 40) {
            for (int row = 0; row < 240; row += 40) {
                const auto moved = [](int at, double by) { return static_cast<float>(at + by); };
                motions.push_back({static_cast<float>(column), static_cast<float>(row),
                                   moved(column, x - turned[2] * (row - 120)),
                                   moved(row, y + turned[2] * (column - 160))});
            }
        }
        tracks.motions.push_back(motions);
    }
    return tracks;
}

TEST(MotionCheck, NamesWhatDoesNotFitAndNothingElse) {
    const auto axes = [](const char* letters) { return AxisMapping::fromLetters(letters); };
    const auto scaled = [](double factor, double later) {
        std::vector<MotionSample> rates = longShake();
        for (MotionSample& rate : rates) {
            rate.time += later;
            for (double& value : rate.value) value *= factor;
        }
        return rates;
    };
    const FeatureTracks good = tracksOf(8.0, 1.0, 0.2);
    struct Case {
        const char* name;
        FeatureTracks tracks;
        std::vector<MotionSample> rates;
        CheckedCamera camera;
        const char* finding;  // empty: none
        bool isFatal;
    };
    const Case cases[] = {
        {"good", good, longShake(), {300.0, 0.0, 100.0, 0.0, {}}, "", false},
        {"focal length unknown", good, longShake(), {{}, 0.0, 100.0, 0.0, {}}, "", false},
        {"hardly moves",
         tracksOf(8.0, 0.0, 0.03),
         scaled(0.01, 0.0),
         {300.0, 0.0, 100.0, 0.0, {}},
         "",
         false},
        {"short", tracksOf(0.5, 1.0, 0.2), longShake(), {300.0, 0.0, 100.0, 0.0, {}}, "", false},
        {"flipped", good, longShake(), {300.0, 0.0, 100.0, 0.0, axes("xyZ")}, "--axes XYZ", true},
        {"mirrored", good, longShake(), {300.0, 0.0, 100.0, 0.0, axes("Xyz")}, "--axes XYZ", true},
        {"swapped", good, longShake(), {300.0, 0.0, 100.0, 0.0, axes("YxZ")}, "--axes XYZ", true},
        {"focal x 3", good, longShake(), {900.0, 0.0, 100.0, 0.0, {}}, "--focal 3", true},
        {"focal / 2", good, longShake(), {150.0, 0.0, 100.0, 0.0, {}}, "--focal 3", false},
        {"degrees", good, scaled(57.29578, 0.0), {300.0, 0.0, 100.0, 0.0, {}}, "gscale", true},
        {"1.3 s", good, scaled(1.0, 1.3), {300.0, 0.0, 100.0, 0.0, {}}, "--time-offset 101.", true},
        {"70 s", good, scaled(1.0, 70.0), {300.0, 0.0, 100.0, 0.0, {}}, "--time-offset 170.", true},
        {"own motion",
         tracksOf(8.0, 1.0, 20.0),
         longShake(),
         {300.0, 0.0, 120.0, 0.0, {}},
         "another clip's",
         true},
        {"drops",
         tracksOf(8.0, 1.0, 0.2, 3.0),
         longShake(),
         {300.0, 0.0, 100.0, 0.0, {}},
         "about 10 frames are missing",
         true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const MotionCheck check = checkMotion({c.tracks}, c.rates, c.camera);
        const bool isSaid = !check.findings.empty();
        ASSERT_EQ(isSaid, c.finding[0] != 0) << (isSaid ? check.findings[0].text : "");
        if (!isSaid) continue;
        EXPECT_NE(check.findings[0].text.find(c.finding), std::string::npos)
            << check.findings[0].text;
        EXPECT_EQ(check.findings[0].severity == Severity::kFatal, c.isFatal)
            << check.findings[0].text;
    }
}

TEST(MotionCheck, AnOffsetInAllOfALogIsFoundOrRefused) {
    constexpr double kClock = 538148.0;
    struct Case {
        const char* name;
        double seconds;  // of the clip
        double scale;    // of the camera's turns
        double own;      // pixels of other motion
        double from;     // seconds, of the log; the clip starts at 100, and the shake is the
        double to;       // same again every 62.8 s
        bool isFound;
        const char* finding;
    };
    const Case cases[] = {
        {"found", 6.0, 1.0, 0.2, 80.0, 140.0, true, "--time-offset 538247.9"},
        {"moves by itself too", 6.0, 1.0, 1.0, 80.0, 140.0, true, "--time-offset 538247.9"},
        {"starts before the log", 6.0, 1.0, 0.2, 102.0, 160.0, true, "--time-offset 538247.9"},
        {"is not in the log", 6.0, 1.0, 0.2, 110.0, 165.0, false, "no frame has motion"},
        {"twice in the log", 6.0, 1.0, 0.2, 95.0, 180.0, false, "538310.8220 s, 100 %: unobs"},
        {"hardly moves", 6.0, 0.0, 0.03, 80.0, 140.0, false, "moves too little"},
        {"short", 0.5, 1.0, 0.2, 80.0, 140.0, false, "moves too little"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<MotionSample> rates;
        for (double t = c.from; t < c.to; t += 0.01)
            rates.push_back({kClock + t, shake(t - 0.005)});
        const FeatureTracks tracks = tracksOf(c.seconds, c.scale, c.own);
        const MotionCheck check = checkMotion({tracks}, rates, {300.0, 0.02, 0.0, 0.0, {}});
        ASSERT_EQ(check.findings.size(), 1u);
        EXPECT_NE(check.findings[0].text.find(c.finding), std::string::npos)
            << check.findings[0].text;
        EXPECT_EQ(check.findings[0].severity, Severity::kFatal);
        EXPECT_EQ(check.foundOffset && check.foundOffset->isCertain(), c.isFound);
        if (!c.isFound) continue;
        EXPECT_NEAR(check.foundOffset->timeOffset, kClock + 100.0 - 0.01, 0.001);
        EXPECT_NEAR(check.foundOffset->timeOffset, kClock + 100.0 - 0.01,
                    5.0 * check.foundOffset->deviation + 2e-4);
    }
}

}  // namespace
