#include "common/text_fields.h"
#include "inspect/inspection.h"

#include <fmt/format.h>

namespace framehold {

namespace {

class InspectionText {
public:
    std::string write(const Inspection& inspection) {
        if (!inspection.sources.empty()) heading("found");
        for (const auto& source : inspection.sources) {
            row(source.what.c_str(), "{} ({})", escaped(source.file), escaped(source.rule));
        }
        for (const std::string& setting : inspection.camera) row("camera", "{}", escaped(setting));
        writeLog(inspection.log);
        const LogStatistics& s = inspection.statistics;
        if (s.rates.stamps.samples > 0) writeSensor("gyroscope", s.rates, "rad/s");
        if (s.gravity.stamps.samples > 0) writeSensor("accelerometer", s.gravity, "m/s^2");
        if (s.orientations.samples > 0) {
            heading("orientations");
            writeStamps(s.orientations);
        }
        if (inspection.video) writeVideo(*inspection.video);
        writeFindings(inspection);
        return text_;
    }

private:
    template <class... Args>
    void row(const char* label, fmt::format_string<Args...> text, Args&&... args) {
        text_ += fmt::format("  {:<14}{}\n", label, fmt::format(text, std::forward<Args>(args)...));
    }

    void heading(const std::string& text) { text_ += text + "\n"; }

    void writeLog(const MotionLog& log) {
        for (const std::string& file : log.files) heading(escaped(file));
        row("format", "{}, detected by {}", log.format, log.detectedBy);
        for (const auto& [key, value] : log.headers) {
            if (key == "id" || key == "note" || key == "vendor")
                row(key.c_str(), "{}", excerpt(value));
        }
        row("axes", "{}", log.orientation.letters());
        if (log.readoutTime) row("readout", "{:.2f} ms", 1e3 * *log.readoutTime);
        if (!log.lensShifts.empty()) {
            row("lens shifts", "{}, up to {:.1f} pixels", log.lensShifts.size(),
                largestShift(log.lensShifts));
        }
    }

    void writeStamps(const StampStatistics& stamps) {
        row("samples", "{} in {}, from {} to {}", stamps.samples, durationText(stamps.seconds()),
            durationText(stamps.from), durationText(stamps.to));
        row("rate", "{:.1f} Hz: steps of {:.3f} ms, jitter {:.3f} ms", stamps.perSecond(),
            1e3 * stamps.step, 1e3 * stamps.jitter);
        row("stamps", "{}, {}, {} out of order", counted(stamps.gaps, "gap"),
            counted(stamps.duplicates, "duplicate"), stamps.outOfOrder);
    }

    void writeSensor(const char* name, const VectorStatistics& sensor, const char* unit) {
        heading(name);
        writeStamps(sensor.stamps);
        row("values", "half are above {:.3f} {}, the largest is {:.3f}, {} saturated",
            sensor.medianLength, unit, sensor.largest, sensor.saturated);
        const auto vector = [](const Vec3& v) {
            return fmt::format("{:.4f}, {:.4f}, {:.4f}", v[0], v[1], v[2]);
        };
        if (sensor.noise) row("noise", "{} {} (x, y, z)", vector(*sensor.noise), unit);
        if (sensor.rest) {
            row("at rest", "{} {}, at {:.1f} s", vector(sensor.rest->mean), unit,
                sensor.rest->from);
        }
    }

    void writeVideo(const VideoInspection& video) {
        heading(escaped(video.video));
        writeStamps(video.frames);
        if (video.table) {
            row("frames.csv", "{:+.0f} ppm against the video's times, up to {:.2f} ms off that",
                1e6 * video.table->drift, 1e3 * video.table->largestDeviation);
        }
        if (!video.clock) return;
        const ClockSynchronization& clock = *video.clock;
        row("time offset", "{:.1f} +- {:.1f} ms fits the pictures, {:.1f} ms was {}",
            1e3 * video.fittedTimeOffset(), 1e3 * clock.offsetError, 1e3 * video.timeOffset,
            video.found ? "found in the log" : "given");
        row("", "(with a readout of {:.1f} ms; the log explains {:.0f} % of the motion)",
            1e3 * video.readoutTime, 100.0 * clock.explainedVariance);
        if (clock.drift) {
            row("clock drift", "{:+.0f} +- {:.0f} ppm", 1e6 * *clock.drift, 1e6 * clock.driftError);
        } else {
            row("clock drift", "cannot be determined: the clip is short, or hardly turns in parts");
        }
    }

    void writeFindings(const Inspection& inspection) {
        static constexpr const char* kLabels[] = {"note", "warning", "unusable"};
        for (const LogFinding& finding : inspection.findings) {
            text_ += fmt::format("{}: {}\n", kLabels[static_cast<int>(finding.severity)],
                                 escaped(finding.text));
        }
        if (inspection.findings.empty()) text_ += "nothing will go wrong with it\n";
    }

    std::string text_;
};

}  // namespace

std::string inspectionText(const Inspection& inspection) {
    return InspectionText().write(inspection);
}

}  // namespace framehold
