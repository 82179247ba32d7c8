#include "inspect/inspection.h"

#include <nlohmann/json.hpp>

namespace framehold {

namespace {

using Json = nlohmann::ordered_json;

Json stampsJson(const StampStatistics& stamps) {
    Json gaps = Json::array();
    for (const auto& gap : stamps.firstGaps)
        gaps.push_back({{"from_s", gap.from}, {"seconds", gap.seconds}});
    return {{"samples", stamps.samples},
            {"from_s", stamps.from},
            {"to_s", stamps.to},
            {"rate_hz", stamps.perSecond()},
            {"step_s", stamps.step},
            {"jitter_s", stamps.jitter},
            {"duplicates", stamps.duplicates},
            {"out_of_order", stamps.outOfOrder},
            {"gap_count", stamps.gaps},
            {"gaps", gaps}};
}

/// The values are in rad/s or m/s^2.
Json sensorJson(const VectorStatistics& sensor) {
    Json json = stampsJson(sensor.stamps);
    json["median_length"] = sensor.medianLength;
    json["largest"] = sensor.largest;
    json["saturated"] = sensor.saturated;
    json["repeated"] = sensor.repeated;
    if (sensor.noise) json["noise"] = *sensor.noise;
    if (sensor.rest) json["at_rest"] = {{"from_s", sensor.rest->from}, {"mean", sensor.rest->mean}};
    return json;
}

Json videoJson(const VideoInspection& video) {
    Json json = {{"file", video.video}, {"frames", stampsJson(video.frames)}};
    json["frames_outside"] = video.uncovered;
    json["time_offset_s"] = video.timeOffset;
    json["readout_s"] = video.readoutTime;
    if (video.found) {
        json["found_offset"] = {{"time_offset_s", video.found->timeOffset},
                                {"deviation_s", video.found->deviation},
                                {"explained", video.found->explained},
                                {"next_best_s", video.found->rivalTimeOffset},
                                {"next_best_explained", video.found->rivalExplained},
                                {"confidence", nameOf(video.found->confidence)}};
    }
    if (video.table) {
        json["frame_table"] = {{"drift", video.table->drift},
                               {"largest_deviation_s", video.table->largestDeviation}};
    }
    if (!video.clock) return json;
    Json& fit = json["fit"];
    fit["time_offset_s"] = video.fittedTimeOffset();
    fit["time_offset_error_s"] = video.clock->offsetError;
    fit["explained_variance"] = video.clock->explainedVariance;
    if (video.clock->drift) {
        fit["drift"] = *video.clock->drift;
        fit["drift_error"] = video.clock->driftError;
    }
    return json;
}

}  // namespace

std::string inspectionJson(const Inspection& inspection) {
    const MotionLog& log = inspection.log;
    Json json = {{"files", log.files}, {"format", log.format}, {"detected_by", log.detectedBy}};
    json["usable"] = inspection.isUsable();
    json["axes"] = log.orientation.letters();
    if (log.readoutTime) json["readout_s"] = *log.readoutTime;
    for (const auto& source : inspection.sources) {
        json["sources"].push_back(
            {{"what", source.what}, {"file", source.file}, {"rule", source.rule}});
    }
    if (!inspection.camera.empty()) json["camera"] = inspection.camera;
    if (!log.lensShifts.empty()) {
        json["lens_shifts"] = {{"samples", log.lensShifts.size()},
                               {"largest_px", largestShift(log.lensShifts)},
                               {"width_px", log.lensShiftWidth}};
    }
    for (const auto& [key, value] : log.headers) json["headers"][key] = value;
    const LogStatistics& s = inspection.statistics;
    if (s.rates.stamps.samples > 0) json["gyroscope"] = sensorJson(s.rates);
    if (s.gravity.stamps.samples > 0) json["accelerometer"] = sensorJson(s.gravity);
    if (s.orientations.samples > 0) json["orientations"] = stampsJson(s.orientations);
    if (inspection.video) json["video"] = videoJson(*inspection.video);
    json["findings"] = Json::array();
    static constexpr const char* kSeverities[] = {"note", "warning", "unusable"};
    for (const LogFinding& finding : inspection.findings) {
        json["findings"].push_back({{"severity", kSeverities[static_cast<int>(finding.severity)]},
                                    {"text", finding.text}});
    }
    return json.dump(1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace framehold
