#include "report/run_record.h"

#include "common/text_fields.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace framehold {

using nlohmann::ordered_json;
using qlx::zpr_framehold::Quaternion;

namespace {

constexpr const char* kKind = "framehold run";

ordered_json toJson(const std::optional<Quaternion>& q) {
    return q ? ordered_json{q->w, q->x, q->y, q->z} : ordered_json();
}

std::optional<Quaternion> orientationFrom(const ordered_json& json) {
    if (json.is_null()) return std::nullopt;
    return Quaternion(json.at(0), json.at(1), json.at(2), json.at(3));
}

/// Calls visit(name, field) for every field of a run but the frames; for both directions.
template <class Run, class Visit>
void visitFields(Run& run, Visit visit) {
    visit("input", run.input);
    visit("output", run.output);
    visit("motion_log", run.motionLog);
    visit("engine", run.engine);
    visit("axes", run.axes);
    visit("frames_per_second", run.framesPerSecond);
    visit("seconds_taken", run.secondsTaken);
    visit("input_width", run.param.inputImage.width);
    visit("input_height", run.param.inputImage.height);
    visit("output_width", run.param.outputImage.width);
    visit("output_height", run.param.outputImage.height);
    visit("field_of_view", run.param.fieldOfView);
    visit("field_of_view_mode", run.param.fieldOfViewMode);
    visit("readout_time_s", run.param.readoutTime);
    visit("time_offset_s", run.param.timeOffset);
    visit("sensor_mask", run.param.sensorMask);
    visit("crop_percent", run.param.cropPercent);
    visit("smoothing_level", run.param.smoothingLevel);
    visit("delay_frames", run.param.delayFrames);
    visit("notes", run.notes);
    visit("warnings", run.warnings);
}

/// The same for fields that runs of earlier versions lack.
template <class Run, class Visit>
void visitNewFields(Run& run, Visit visit) {
    visit("smoothing_chosen", run.choosesSmoothing);
    visit("mean_smoothing_level", run.meanSmoothingLevel);
    visit("zoom", run.zoom);
    visit("horizon_percent", run.horizon);
    visit("calibrated", run.isCalibrated);
    visit("misfit", run.misfit);
    visit("remedy", run.remedy);
}

FrameRecord frameFrom(const ordered_json& json) {
    FrameRecord frame{};
    frame.time = json.at("time_s");
    frame.measured = orientationFrom(json.at("measured_wxyz"));
    frame.corrected = orientationFrom(json.at("corrected_wxyz"));
    frame.marginUsed = json.at("margin_used");
    frame.milliseconds = json.at("milliseconds");
    frame.zoom = json.value("zoom", 1.0);
    return frame;
}

}  // namespace

void StageClock::end(const char* stage, StageTimes& times) {
    const std::clock_t now = std::clock();
    times.emplace_back(stage, static_cast<double>(now - start_) / CLOCKS_PER_SEC);
    start_ = now;
}

void saveRunRecord(const OutputName& file, const RunRecord& run) {
    ordered_json json;
    json["kind"] = kKind;
    const auto save = [&json](const char* name, const auto& field) { json[name] = field; };
    visitFields(run, save);
    visitNewFields(run, save);
    if (run.shake) json["shake"] = {run.shake->before, run.shake->after};
    json["frames"] = ordered_json::array();
    for (const FrameRecord& frame : run.frames) {
        json["frames"].push_back({{"time_s", frame.time},
                                  {"measured_wxyz", toJson(frame.measured)},
                                  {"corrected_wxyz", toJson(frame.corrected)},
                                  {"margin_used", frame.marginUsed},
                                  {"milliseconds", frame.milliseconds},
                                  {"zoom", frame.zoom}});
    }
    writeFile(file, json.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n");
}

RunRecord loadRunRecord(const std::string& path) {
    const ordered_json json = ordered_json::parse(readFile(path), nullptr, false);
    if (json.is_discarded()) throw FileError(path, 0, "not JSON");
    try {
        if (!json.is_object() || json.value("kind", "") != kKind) {
            throw FileError(path, 0, "is not what stabilize --save-run writes");
        }
        RunRecord run;
        const auto load = [&](const char* name, auto& field) {
            try {
                json.at(name).get_to(field);
            } catch (const nlohmann::json::exception&) {
                throw FileError(path, 0, fmt::format("{}: is missing, or of another kind", name));
            }
        };
        visitFields(run, load);
        visitNewFields(run, [&](const char* name, auto& field) {
            if (json.contains(name)) load(name, field);
        });
        if (json.contains("shake")) run.shake = {json["shake"].at(0), json["shake"].at(1)};
        for (const ordered_json& frame : json.at("frames")) run.frames.push_back(frameFrom(frame));
        return run;
    } catch (const nlohmann::json::exception&) {
        throw FileError(path, 0, "shake or frames: a value is missing, or of another kind");
    }
}

}  // namespace framehold
