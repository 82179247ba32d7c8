#include "report/page_data.h"

#include "common/angles.h"
#include "measures/measure_rows.h"
#include "media/upright_frame.h"
#include "report/camera_angles.h"
#include "report/parameter_snippet.h"
#include "report/verdict.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>

namespace framehold {

using nlohmann::ordered_json;
using qlx::zpr_framehold::Quaternion;

namespace {

/// Five digits after the point are more than a plot shows, and keep pages small.
double rounded(double value) { return std::round(value * 1e5) / 1e5; }

ordered_json rounded(const std::vector<double>& values, double factor) {
    ordered_json result = ordered_json::array();
    for (const double v : values) result.push_back(rounded(v * factor));
    return result;
}

/// One value of each frame.
template <class Value>
ordered_json series(const std::vector<FrameRecord>& frames, Value value) {
    ordered_json result = ordered_json::array();
    for (const FrameRecord& frame : frames) result.push_back(value(frame));
    return result;
}

/// Orientation of the camera as if it had been held so that its pictures are upright.
/// turns: quarter turns clockwise of the pictures.
std::optional<Quaternion> upright(const std::optional<Quaternion>& orientation, int turns) {
    if (!orientation) return std::nullopt;
    const double half = toRadians(45.0 * turns);
    return *orientation * Quaternion(std::cos(half), 0.0, 0.0, std::sin(half));
}

ordered_json anglesOf(const std::vector<FrameRecord>& frames,
                      std::optional<Quaternion> FrameRecord::*which, const Quaternion& reference,
                      int turns) {
    std::vector<std::optional<Quaternion>> orientations;
    for (const FrameRecord& frame : frames) orientations.push_back(upright(frame.*which, turns));
    ordered_json result = {{"pan", ordered_json::array()},
                           {"tilt", ordered_json::array()},
                           {"roll", ordered_json::array()}};
    for (const auto& angles : cameraAngles(orientations, reference)) {
        const auto push = [&](const char* key, double CameraAngles::*axis) {
            result[key].push_back(angles ? ordered_json(rounded(*angles.*axis)) : ordered_json());
        };
        push("pan", &CameraAngles::pan);
        push("tilt", &CameraAngles::tilt);
        push("roll", &CameraAngles::roll);
    }
    return result;
}

/// First and last frame of each stretch without an orientation.
ordered_json stretchesWithout(const std::vector<FrameRecord>& frames) {
    ordered_json result = ordered_json::array();
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].measured) continue;
        if (i > 0 && !frames[i - 1].measured) {
            result.back()[1] = i;
        } else {
            result.push_back({i, i});
        }
    }
    return result;
}

/// True for a run whose zoom changes.
bool zooms(const std::vector<FrameRecord>& frames) {
    constexpr double kVisible = 1e-3;
    const auto [least, most] = std::minmax_element(
        frames.begin(), frames.end(), [](const auto& a, const auto& b) { return a.zoom < b.zoom; });
    return least != frames.end() && most->zoom - least->zoom > kVisible;
}

ordered_json parametersOf(const RunRecord& run) {
    const ZPR_Param& p = run.param;
    const bool isFocal = p.fieldOfViewMode == ZPR_FOV_FOCAL_LENGTH;
    ordered_json rows = ordered_json::array();
    const auto add = [&rows](const char* name, const std::string& value) {
        rows.push_back({name, value});
    };
    add("Motion log", std::filesystem::path(run.motionLog).filename().string());
    add("Axes of the log", run.axes);
    add("Frames per second", fmt::format("{:.3f}", run.framesPerSecond));
    add("Frames to the library", fmt::format("{} × {}", p.inputImage.width, p.inputImage.height));
    add("Frames from it", fmt::format("{} × {}", p.outputImage.width, p.outputImage.height));
    add(isFocal ? "Focal length" : "Field of view",
        fmt::format("{:.6g} {}", p.fieldOfView, isFocal ? "px" : "°"));
    add("Readout time", fmt::format("{:.6g} ms", 1000.0 * p.readoutTime));
    add("Time offset", fmt::format("{:.6g} ms", 1000.0 * p.timeOffset));
    add("Picture shown", fmt::format("{} %", p.cropPercent));
    add("Zoom", run.zoom);
    add("Smoothing level", run.choosesSmoothing
                               ? fmt::format("auto: up to {} of 10, {:.1f} in the mean",
                                             p.smoothingLevel, run.meanSmoothingLevel)
                               : fmt::format("{} of 10", p.smoothingLevel));
    if (run.horizon > 0.0) add("Roll levelled", fmt::format("{:g} %", run.horizon));
    add("Delay", fmt::format("{} frames", p.delayFrames));
    return rows;
}

/// turns: quarter turns clockwise by which pictures are shown.
ordered_json runOf(const RunRecord& run, int turns) {
    ordered_json result;
    const std::vector<FrameRecord>& frames = run.frames;
    result["frames"] = frames.size();
    result["seconds"] = rounded(run.secondsTaken);
    result["time"] =
        series(frames, [&](const FrameRecord& f) { return rounded(f.time - frames.front().time); });
    Quaternion reference(1.0, 0.0, 0.0, 0.0);
    for (const FrameRecord& frame : frames) {
        if (!frame.measured) continue;
        reference = *upright(frame.measured, turns);
        break;
    }
    result["measured"] = anglesOf(frames, &FrameRecord::measured, reference, turns);
    result["corrected"] = anglesOf(frames, &FrameRecord::corrected, reference, turns);
    result["margin"] = series(frames, [](const FrameRecord& f) {
        return f.measured ? ordered_json(rounded(100.0 * f.marginUsed)) : ordered_json();
    });
    result["milliseconds"] =
        series(frames, [](const FrameRecord& f) { return rounded(f.milliseconds); });
    if (zooms(frames)) {
        result["zoom"] = series(frames, [](const FrameRecord& f) { return rounded(f.zoom); });
    }
    result["without"] = stretchesWithout(frames);
    result["parameters"] = parametersOf(run);
    result["snippet"] = parameterSnippet(run.param);
    result["notes"] = run.notes;
    result["warnings"] = run.warnings;
    return result;
}

/// factor: from the clip's pixels to the original's. turns: quarter turns clockwise.
ordered_json shakeOf(const ClipMeasures& clip, double factor, int turns) {
    ordered_json result;
    result["time"] = ordered_json::array();
    for (const double time : clip.times) result["time"].push_back(rounded(time - clip.times[0]));
    // A quarter turn clockwise takes what went up to the right, and what went right down.
    const bool areSwapped = turns % 2 != 0;
    const double toRight = turns == 1 || turns == 2 ? -factor : factor;
    const double toBottom = turns >= 2 ? -factor : factor;
    result["x"] = rounded(areSwapped ? clip.shake.y : clip.shake.x, toRight);
    result["y"] = rounded(areSwapped ? clip.shake.x : clip.shake.y, toBottom);
    result["rotation"] = rounded(clip.shake.rotation, toDegrees(1.0));
    return result;
}

ordered_json measuresOf(const ReportContent& content) {
    ordered_json rows = ordered_json::array();
    for (const MeasureRow& row : measureRows()) {
        const auto text = [&row](const ClipMeasures& clip) {
            const auto value = row.value(clip);
            return value ? fmt::format("{:.{}f}", *value, row.digits) : std::string("–");
        };
        const auto left = remaining(row, content.before, content.after);
        rows.push_back({{"key", row.key},
                        {"label", row.label},
                        {"meaning", row.meaning},
                        {"before", text(content.before)},
                        {"after", text(content.after)},
                        {"remaining", left ? ordered_json(rounded(*left)) : ordered_json()}});
    }
    return rows;
}

/// The run's record with the shake that was measured in the whole clips, where it is known.
RunRecord measuredRun(const ReportContent& content) {
    RunRecord run = content.run.value_or(RunRecord());
    if (const auto shake = shakeIn(content)) run.shake = shake;
    return run;
}

ordered_json verdictIn(const ReportContent& content) {
    static constexpr const char* kKinds[] = {"steady", "partly", "shaky", "unknown"};
    const Verdict verdict = verdictOf(measuredRun(content));
    return {{"kind", kKinds[static_cast<size_t>(verdict.kind)]},
            {"sentence", verdict.sentence},
            {"advice", verdict.advice}};
}

ordered_json clipIn(const PlayingClip& clip) {
    if (clip.video.empty()) return {{"lack", clip.lack}};
    return {{"video", clip.video},          {"width", clip.width},
            {"height", clip.height},        {"split", rounded(clip.split)},
            {"start", rounded(clip.start)}, {"seconds", rounded(clip.seconds)}};
}

}  // namespace

std::optional<ShakeAmounts> shakeIn(const ReportContent& content) {
    if (!content.before.isPathKnown() || !content.after.isPathKnown()) return std::nullopt;
    return ShakeAmounts{content.before.relativeDisplacement(),
                        content.after.relativeDisplacement()};
}

ordered_json pageData(const ReportContent& content) {
    ordered_json data;
    data["original"] = std::filesystem::path(content.original).filename().string();
    data["stabilized"] = std::filesystem::path(content.stabilized).filename().string();
    const int turns = content.quarterTurns;
    const FrameArea shown = turned(FrameArea{content.before.width, content.before.height}, turns);
    data["width"] = shown.width;
    data["height"] = shown.height;
    data["turned"] = 90 * turns;
    data["cutoff"] = content.cutoff;
    data["lost"] = {content.before.lostFrames, content.after.lostFrames};
    data["verdict"] = verdictIn(content);
    data["clip"] = clipIn(content.clip);
    data["measures"] = measuresOf(content);
    const double factor = content.before.width / static_cast<double>(content.after.width);
    data["shake"] = {{"before", shakeOf(content.before, 1.0, turns)},
                     {"after", shakeOf(content.after, factor, turns)}};
    data["pictures"] = ordered_json::array();
    for (const PicturePair& pair : content.pictures) {
        data["pictures"].push_back(
            {{"label", pair.label}, {"before", pair.before}, {"after", pair.after}});
    }
    if (content.run) data["run"] = runOf(*content.run, turns);
    return data;
}

}  // namespace framehold
