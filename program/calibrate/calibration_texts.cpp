#include "calibrate/calibration_texts.h"

#include "common/angles.h"
#include "report/parameter_snippet.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;
using nlohmann::ordered_json;

namespace {

constexpr double kMillis = 1e3;
constexpr double kMillionths = 1e6;
constexpr double kSameOffset = 0.002;  // seconds within which clips share an offset

std::string rowOf(const std::string& label, const CalibratedValue& finding, double unit,
                  const std::string& unitName, const std::string& remark = "") {
    const std::string deviation = finding.confidence == Confidence::kGiven
                                      ? ""
                                      : fmt::format("+-{:.1f}", unit * finding.deviation);
    return fmt::format("{:<14}{:>10.1f} {:<5}{:<10}{}{}{}\n", label, unit * finding.value, unitName,
                       deviation, nameOf(finding.confidence), remark.empty() ? "" : ": ", remark);
}

ordered_json jsonOf(const CalibratedValue& finding) {
    return {{"value", finding.value},
            {"deviation", finding.deviation},
            {"confidence", nameOf(finding.confidence)}};
}

double degreesAcross(const Calibration& c) {
    const LensDistortion lens = c.lens ? c.lens->lens() : LensDistortion();
    return toDegrees(2.0 * lens.angle(c.width / 2.0 / c.focal.value));
}

std::string lensRowsOf(const LensCalibration& lens) {
    const auto row = [&](const char* name, const CalibratedValue& k) {
        return fmt::format("{:<14}{:>10.4f} {:<5}{:<10}{}\n", name, k.value, "",
                           fmt::format("+-{:.4f}", k.deviation), nameOf(k.confidence));
    };
    std::string text =
        fmt::format("{:<14}{:>10}\n", "lens", nameOf(lens.model)) + row("k1", lens.k1);
    if (lens.k2.value != 0.0) text += row("k2", lens.k2);
    return text;
}

/// The time offset of all clips; none if they do not determine one or differ.
std::optional<double> sharedOffset(const Calibration& calibration) {
    double least = INFINITY;
    double most = -INFINITY;
    double sum = 0.0;
    for (const ClockCalibration& clock : calibration.clocks) {
        if (!clock.offset.isUsable()) return std::nullopt;
        least = std::min(least, clock.offset.value);
        most = std::max(most, clock.offset.value);
        sum += clock.offset.value;
    }
    if (most - least > kSameOffset) return std::nullopt;
    return sum / static_cast<double>(calibration.clocks.size());
}

/// As many digits as mean something: steps of one.
double rounded(double value, double steps) { return std::round(value * steps) / steps; }

/// The path of `file` as seen from the folder that `path` is in.
std::string relativeTo(const std::string& path, const std::string& file) {
    const fs::path folder = fs::absolute(path).parent_path();
    return fs::relative(fs::absolute(file), folder).string();
}

}  // namespace

std::string tableOf(const Calibration& c, const std::vector<ClipFiles>& clips) {
    std::string text;
    text += rowOf("focal length", c.focal, 1.0, "px",
                  c.focal.isUsable() ? fmt::format("{:.1f} degrees across the width of {}",
                                                   degreesAcross(c), c.width)
                                     : "the clip turns too little, or is no pinhole's");
    text += rowOf("readout", c.readout, kMillis, "ms");
    for (size_t i = 0; i < c.clocks.size(); ++i) {
        const std::string clip = c.clocks.size() > 1 ? clips[i].video : "";
        std::string remark = clip;
        if (const auto& rival = c.clocks[i].rivalOffset) {
            if (!remark.empty()) remark += ", ";
            remark += fmt::format("{:.1f} ms fits about as well", kMillis * *rival);
        }
        text += rowOf("time offset", c.clocks[i].offset, kMillis, "ms", remark);
        text += rowOf("clock drift", c.clocks[i].drift, kMillionths, "ppm", clip);
    }
    if (c.lens) text += lensRowsOf(*c.lens);
    if (c.distortion.isUsable()) text += rowOf("distortion", c.distortion, 100.0, "%");
    text +=
        fmt::format("{:<14}{:>10}{:16}{}", "axes", c.axes.letters(), "", nameOf(c.axesConfidence));
    if (!c.runnerUp.empty()) {
        text += fmt::format(": the reprojection error of the next best, {}, is {:.2f} px",
                            c.runnerUp, c.runnerUpReprojectionError);
    }
    text += fmt::format(
        "\nThe log explains {:.0f} % of the shake's variance. The reprojection error is {:.2f}\n"
        "px, without the log {:.2f} px; {:.0f} % of the features move on their own. +- is one\n"
        "standard deviation.\n",
        100.0 * c.explainedVariance, c.reprojectionError, c.reprojectionErrorAtRest,
        100.0 * c.outliers);
    if (isDistorted(c) && !c.lens) text += "Warning: " + distortionText(c) + ".\n";
    return text;
}

ordered_json jsonOf(const Calibration& c, const std::vector<ClipFiles>& clips) {
    ordered_json root;
    root["width"] = c.width;
    root["height"] = c.height;
    root["focal_px"] = jsonOf(c.focal);
    root["readout_s"] = jsonOf(c.readout);
    root["axes"] = {{"letters", c.axes.letters()}, {"confidence", nameOf(c.axesConfidence)}};
    root["distortion"] = jsonOf(c.distortion);
    root["distorted"] = isDistorted(c);
    if (c.lens) {
        root["lens"] = {{"model", nameOf(c.lens->model)},
                        {"k1", jsonOf(c.lens->k1)},
                        {"k2", jsonOf(c.lens->k2)},
                        {"pinhole_focal_px", jsonOf(c.lens->pinholeFocal)}};
    }
    if (!c.runnerUp.empty()) {
        root["axes"]["next_best"] = {{"letters", c.runnerUp},
                                     {"reprojection_error_px", c.runnerUpReprojectionError}};
    }
    for (size_t i = 0; i < c.clocks.size(); ++i) {
        root["clips"].push_back({{"video", clips[i].video},
                                 {"motion", clips[i].motion},
                                 {"time_offset_s", jsonOf(c.clocks[i].offset)},
                                 {"clock_drift", jsonOf(c.clocks[i].drift)}});
    }
    root["explained_variance"] = c.explainedVariance;
    root["reprojection_error_px"] = c.reprojectionError;
    root["reprojection_error_without_log_px"] = c.reprojectionErrorAtRest;
    root["outliers"] = c.outliers;
    return root;
}

std::string distortionText(const Calibration& c) {
    return fmt::format(
        "the lens shows the corners {:.1f} % further {} than a pinhole, which is assumed: "
        "up to {:.0f} % of the shake stays there",
        std::fabs(100.0 * c.distortion.value), c.distortion.value > 0.0 ? "in" : "out",
        std::fabs(300.0 * c.distortion.value));
}

ordered_json presetOf(const Calibration& c, const std::vector<ClipFiles>& clips,
                      const std::string& path) {
    const ClipMetadata metadata = metadataOf(c, 0);
    const std::optional<double> offset = sharedOffset(c);
    ordered_json root;
    if (clips.size() == 1) root["video"] = relativeTo(path, clips[0].video);
    root["width"] = c.width;
    root["height"] = c.height;
    if (metadata.focalLength) root["focal_px"] = rounded(*metadata.focalLength, 100);
    if (metadata.lens) {
        const auto& k = metadata.lens->coefficients();
        root["lens"] = {{"model", nameOf(metadata.lens->model())}, {"k1", rounded(k[0], 1e6)}};
        if (k[1] != 0.0) root["lens"]["k2"] = rounded(k[1], 1e6);
    }
    if (metadata.readoutTime) root["readout_s"] = rounded(*metadata.readoutTime, 1e6);
    if (offset) root["time_offset_s"] = rounded(*offset, 1e6);
    if (metadata.axes) {
        for (size_t i = 0; i < 3; ++i) {
            root["axes"][std::string("device_") + "xyz"[i]] = metadata.axes->term(i);
        }
    }
    if (clips.size() > 1) return root;
    if (metadata.clockDrift)
        root["clock_drift_ppm"] = rounded(kMillionths * *metadata.clockDrift, 10);
    if (clips[0].motion != clips[0].video) {
        root["imu"] = {{"file", relativeTo(path, clips[0].motion)}};
    }
    root["frames_file"] = clips[0].frames.empty() ? "" : relativeTo(path, clips[0].frames);
    return root;
}

std::string snippetOf(const Calibration& c) {
    ClipMetadata camera = metadataOf(c, 0);
    camera.timeOffset = sharedOffset(c);
    if (c.lens) camera.focalLength = c.lens->pinholeFocal.value;  // the library knows no lens
    return cameraSnippet(camera, c.height);
}

}  // namespace framehold
