#include "inspection/log_findings.h"

#include "common/library_constants.h"
#include "common/text_fields.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace framehold {

namespace {

class FindingsWriter {
public:
    FindingsWriter(const MotionLog& log, const LogStatistics& statistics)
        : log_(log), statistics_(statistics) {}

    std::vector<LogFinding> write() {
        if (!log_.rates.empty()) {
            lookAtStamps("gyroscope", statistics_.rates.stamps, true);
            lookAtRates();
        }
        if (!log_.orientations.empty()) {
            lookAtStamps("orientations", statistics_.orientations, log_.rates.empty());
        }
        if (!log_.gravity.empty()) {
            lookAtStamps("accelerometer", statistics_.gravity.stamps, false);
            lookAtGravity();
        } else if (!log_.rates.empty()) {
            note(
                "no accelerometer: what is up is not known, and the picture's top is taken for it; "
                "--gravity gives another direction");
        }
        if (!log_.orientation.isProper()) {
            warn(
                "the orientation {} mirrors the axes, which no sensor's mounting does: one letter "
                "is in the wrong case or two are exchanged; framehold calibrate finds the right "
                "axes",
                log_.orientation.letters());
        }
        if (!log_.lensShifts.empty()) {
            note(
                "the lens moved up to {:.1f} pixels{} against the shake: expect residual shake "
                "with "
                "--engine live; --engine offline takes it into account",
                largestShift(log_.lensShifts),
                log_.lensShiftWidth > 0.0 ? fmt::format(" of {:.0f}", log_.lensShiftWidth) : "");
        }
        for (const std::string& text : log_.notes) note("{}", text);
        sortFindings(findings_);
        return findings_;
    }

private:
    template <class... Args>
    void add(Severity severity, fmt::format_string<Args...> text, Args&&... args) {
        findings_.push_back({severity, fmt::format(text, std::forward<Args>(args)...)});
    }
    template <class... Args>
    void note(fmt::format_string<Args...> text, Args&&... args) {
        add(Severity::kNote, text, std::forward<Args>(args)...);
    }
    template <class... Args>
    void warn(fmt::format_string<Args...> text, Args&&... args) {
        add(Severity::kWarning, text, std::forward<Args>(args)...);
    }

    /// steers: true if the stabilization follows this sensor.
    void lookAtStamps(const char* sensor, const StampStatistics& stamps, bool steers) {
        if (stamps.step <= 0.0) {
            add(steers ? Severity::kFatal : Severity::kWarning,
                "{}: {} samples with no time between most of them: the time column is too coarse "
                "or the wrong one",
                sensor, stamps.samples);
            return;
        }
        if (steers) lookAtRate(sensor, stamps);
        lookAtGaps(sensor, stamps);
        constexpr double kUsualJitter = 0.2;
        if (stamps.jitter > kUsualJitter * stamps.step) {
            warn(
                "{}: steps vary by {:.0f} % ({:.2f} ms): the stamps are of when samples arrived, "
                "not of when they were measured; log the sensor event's own timestamp",
                sensor, 100.0 * stamps.jitter / stamps.step, 1e3 * stamps.jitter);
        }
        if (stamps.duplicates > 0) {
            warn(
                "{}: {} of {} samples have the same stamp as the one before, and what was turned "
                "in between is lost; log times with more digits",
                sensor, stamps.duplicates, stamps.samples);
        }
        if (stamps.outOfOrder > 0) {
            note("{}: {} of {} samples were out of order and have been sorted", sensor,
                 stamps.outOfOrder, stamps.samples);
        }
    }

    void lookAtRate(const char* sensor, const StampStatistics& stamps) {
        constexpr double kSlowest = 20.0, kSlow = 90.0;
        const double rate = stamps.perSecond();
        if (rate < kSlowest) {
            add(Severity::kFatal,
                "{}: {:.1f} samples per second follow no hand's shake, which goes to 20 Hz; log "
                "with at least 100, better 200",
                sensor, rate);
        } else if (rate < kSlow) {
            warn(
                "{}: {:.0f} samples per second: the fast part of the shake and the rolling "
                "shutter will stay; log with at least 100, better 200",
                sensor, rate);
        }
    }

    void lookAtGaps(const char* sensor, const StampStatistics& stamps) {
        if (stamps.gaps == 0) return;
        warn(
            "{}: {}, {} in all, the longest of {} at {:.3f} s: the motion in between is taken for "
            "even; "
            "write the log on a thread of its own",
            sensor, counted(stamps.gaps, "gap"), durationText(stamps.missing),
            durationText(stamps.longest->seconds), stamps.longest->from);
    }

    void lookAtRates() {
        const VectorStatistics& rates = statistics_.rates;
        constexpr double kFasterThanAnyHand = 12.0;  // rad/s
        if (rates.medianLength > kFasterThanAnyHand) {
            warn(
                "the camera turns by {:.1f} rad/s half of the time, faster than any hand: the "
                "values are likely degrees per second; set gscale to 0.0174533 or name the unit "
                "in the column",
                rates.medianLength);
        }
        if (rates.largest == 0.0) {
            add(Severity::kFatal, "gyroscope: all values are 0: the sensor was not running");
        }
        if (rates.saturated > 0) {
            warn(
                "gyroscope: {} samples at the end of its range, {:.2f} rad/s: the fastest turns "
                "are not followed; choose a larger range",
                rates.saturated, rates.largest);
        }
        lookAtRepetition("gyroscope", rates);
        lookAtBias(rates);
    }

    void lookAtRepetition(const char* sensor, const VectorStatistics& sensorStatistics) {
        constexpr double kOften = 0.3;
        const auto samples = static_cast<double>(sensorStatistics.stamps.samples);
        const double share = static_cast<double>(sensorStatistics.repeated) / samples;
        if (share > kOften && sensorStatistics.largest > 0.0) {
            warn(
                "{}: {:.0f} % of the samples repeat the one before: the sensor is slower than the "
                "log, and the stamps are up to a step wrong; log one row for each sensor event",
                sensor, 100.0 * share);
        }
    }

    void lookAtBias(const VectorStatistics& rates) {
        constexpr double kLarge = 0.02;  // rad/s
        if (!rates.rest) {
            note("the gyroscope's bias is not known: the camera never rests for a second");
            return;
        }
        const Vec3& bias = rates.rest->mean;
        const double length = std::hypot(bias[0], bias[1], bias[2]);
        if (length > kLarge) {
            warn(
                "the gyroscope turns by {:.3f} rad/s at rest (at {:.1f} s): the picture will creep "
                "and the horizon tilt; log the calibrated sensor, or subtract {:.4f}, {:.4f}, "
                "{:.4f} from the columns",
                length, rates.rest->from, bias[0], bias[1], bias[2]);
        }
    }

    void lookAtGravity() {
        const VectorStatistics& gravity = statistics_.gravity;
        constexpr double kTolerance = 0.6;  // m/s^2; a phone's sensor uncalibrated
        const double length = gravity.medianLength;
        if (length < 3.0) {
            warn(
                "gravity is {:.2f} m/s^2 where 9.81 is expected: the app has taken it out (linear "
                "acceleration), and what is up is not known; log the accelerometer itself",
                length);
        } else if (std::abs(length - kStandardGravity) > kTolerance) {
            warn(
                "gravity is {:.2f} m/s^2 where 9.81 is expected: the scale is wrong by {:+.0f} %, "
                "or the camera accelerates all the time",
                length, 100.0 * (length / kStandardGravity - 1.0));
        }
        if (gravity.saturated > 0) {
            note("accelerometer: {} samples at the end of its range, {:.1f} m/s^2: hard knocks",
                 gravity.saturated, gravity.largest);
        }
        lookAtRepetition("accelerometer", gravity);
    }

    const MotionLog& log_;
    const LogStatistics& statistics_;
    std::vector<LogFinding> findings_;
};

}  // namespace

void sortFindings(std::vector<LogFinding>& findings) {
    std::stable_sort(
        findings.begin(), findings.end(),
        [](const LogFinding& a, const LogFinding& b) { return a.severity > b.severity; });
}

std::vector<LogFinding> findingsOf(const MotionLog& log, const LogStatistics& statistics) {
    return FindingsWriter(log, statistics).write();
}

}  // namespace framehold
