#include "stabilize/run_summary.h"

#include "clip/camera_options.h"
#include "common/text_fields.h"
#include "report/verdict.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

namespace framehold {

using nlohmann::ordered_json;

namespace {

const char* nameOf(RunSummary::End end) {
    switch (end) {
        case RunSummary::End::kDone:
            return "done";
        case RunSummary::End::kSkipped:
            return "skipped";
        case RunSummary::End::kFailed:
            return "failed";
        case RunSummary::End::kInterrupted:
            break;
    }
    return "interrupted";
}

ordered_json parametersOf(const RunRecord& run) {
    const ZPR_Param& p = run.param;
    ordered_json json;
    if (p.fieldOfViewMode == ZPR_FOV_FOCAL_LENGTH) {
        json["focal_px"] = p.fieldOfView;
    } else {
        json["field_of_view_deg"] = p.fieldOfView;
        json["field_of_view_across"] = sideOf(p.fieldOfViewMode);
    }
    json["readout_s"] = p.readoutTime;
    json["time_offset_s"] = p.timeOffset;
    json["axes"] = run.axes;
    json["sensor_mask"] = p.sensorMask;
    json["crop_percent"] = p.cropPercent;
    if (run.choosesSmoothing) {
        json["smoothing"] = "auto";
        json["mean_smoothing_level"] = run.meanSmoothingLevel;
    } else {
        json["smoothing"] = p.smoothingLevel;
    }
    json["zoom"] = run.zoom;
    json["horizon_percent"] = run.horizon;
    json["delay_frames"] = p.delayFrames;
    return json;
}

void addOutcome(const RunRecord& run, ordered_json& json) {
    const auto hasNone = [](const FrameRecord& frame) { return !frame.corrected; };
    double largest = 0.0;
    for (const FrameRecord& frame : run.frames) largest = std::max(largest, frame.marginUsed);
    json["motion_log"] = run.motionLog;
    json["engine"] = run.engine;
    json["parameters"] = parametersOf(run);
    json["frames"] = run.frames.size();
    if (run.framesExpected > 0) json["frames_expected"] = run.framesExpected;
    json["frames_without_orientation"] =
        std::count_if(run.frames.begin(), run.frames.end(), hasNone);
    json["largest_margin_used"] = largest;
    json["frames_per_second"] = run.framesPerSecond;
    json["seconds_taken"] = run.secondsTaken;
    const Verdict verdict = verdictOf(run);
    json["verdict"] = verdict.sentence;
    if (!verdict.advice.empty()) json["advice"] = verdict.advice;
    for (const auto& [stage, seconds] : run.stageTimes) json["processor_seconds"][stage] = seconds;
}

}  // namespace

std::string lineOf(const RunSummary& summary) {
    const RunRecord& run = summary.record;
    if (summary.end == RunSummary::End::kFailed) {
        return fmt::format("{}: FAILED: {}", run.input, summary.error);
    }
    if (summary.end == RunSummary::End::kSkipped) {
        return fmt::format("{}: skipped: {} is there", run.input, run.output);
    }
    return fmt::format("{}: {} frames in {:.1f} s, written: {}", run.input, run.frames.size(),
                       run.secondsTaken, run.output);
}

ordered_json jsonOf(const RunSummary& summary) {
    const RunRecord& run = summary.record;
    ordered_json json;
    json["input"] = run.input;
    json["output"] = run.output;
    json["status"] = !run.losses.empty() && summary.end == RunSummary::End::kDone
                         ? "done with losses"
                         : nameOf(summary.end);
    if (!summary.error.empty()) json["error"] = summary.error;
    if (summary.end == RunSummary::End::kDone) addOutcome(run, json);
    if (!run.losses.empty()) json["losses"] = run.losses;
    json["notes"] = run.notes;
    json["warnings"] = run.warnings;
    return json;
}

void RunMessages::note(const std::string& text) {
    record_.notes.push_back(text);
    say(text);
}

void RunMessages::warn(const std::string& text) {
    record_.warnings.push_back(text);
    progress_.print(fmt::format("{}warning: {}", escaped(prefix_), escaped(text)));
}

void RunMessages::lose(const std::string& text) {
    record_.losses.push_back(text);
    warn(text);
}

void RunMessages::say(const std::string& text) const {
    if (showsNotes_) progress_.print(escaped(prefix_) + escaped(text));
}

}  // namespace framehold
