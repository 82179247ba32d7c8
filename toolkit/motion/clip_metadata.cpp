#include "motion/clip_metadata.h"

#include "common/nearest_name.h"
#include "common/text_fields.h"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace framehold {

namespace {

using nlohmann::json;

/// Reads one optional key; what does not fit it is an error that names it.
template <class Read>
void readKey(const std::string& path, const json& object, const char* key, Read read) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return;
    try {
        read(*found);
    } catch (const std::exception& error) {
        throw FileError(path, 0, fmt::format("{}: {}", key, error.what()));
    }
}

/// Keys that are not known are remarks, unless they look like one that is.
std::vector<std::string> misspeltKeys(const std::string& path, const json& root) {
    const std::vector<std::string> kKnown = {"name",       "video",
                                             "frames",     "width",
                                             "height",     "fps",
                                             "duration_s", "focal_px",
                                             "readout_s",  "time_offset_s",
                                             "axes",       "gravity_hint_mps2",
                                             "imu",        "clock_drift_ppm",
                                             "frames_file"};
    std::vector<std::string> warnings;
    for (const auto& [key, value] : root.items()) {
        const bool isRemark = key.size() > 5 && key.compare(key.size() - 5, 5, "_note") == 0;
        if (isRemark || std::find(kKnown.begin(), kKnown.end(), key) != kKnown.end()) continue;
        const std::string nearest = nearestName(key, kKnown);
        if (nearest.empty()) continue;
        warnings.push_back(
            fmt::format("{}: {} is not a known key; did you mean {}?", path, key, nearest));
    }
    return warnings;
}

double atLeast(double low, const json& value) {
    const auto number = value.get<double>();
    if (!(number >= low)) {
        throw std::invalid_argument(fmt::format("{} is not at least {}", number, low));
    }
    return number;
}

int pictureWidth(const json& value) {
    constexpr double kLargest = 65536.0;
    const double width = atLeast(2.0, value);
    if (width > kLargest) {
        throw std::invalid_argument(fmt::format("{} is not at most {}", width, kLargest));
    }
    return static_cast<int>(width);
}

}  // namespace

std::vector<double> readFrameTimes(const std::string& path) {
    const std::string text = readFile(path);
    LineReader lines(path, text);
    if (!lines.next() ||
        splitFields(lines.line()) != std::vector<std::string_view>{"frame", "timestamp_s"}) {
        lines.fail("the first line is not frame,timestamp_s");
    }
    std::vector<double> times;
    while (lines.next()) {
        const auto fields = splitFields(lines.line());
        if (fields.size() < 2) lines.fail("timestamp_s is missing");
        const double frame = lines.number(fields[0], "frame");
        if (frame != static_cast<double>(times.size())) {
            lines.fail(fmt::format("frame: {} where {} is expected", fields[0], times.size()));
        }
        times.push_back(lines.number(fields[1], "timestamp_s"));
    }
    return times;
}

ClipMetadata readClipMetadata(const std::string& path) {
    json root;
    try {
        root = json::parse(readFile(path));
    } catch (const json::exception& error) {
        throw FileError(path, 0, fmt::format("not JSON: {}", error.what()));
    }
    if (!root.is_object()) throw FileError(path, 0, "not a JSON object");

    ClipMetadata metadata;
    metadata.warnings = misspeltKeys(path, root);
    readKey(path, root, "video", [&](const json& v) { metadata.video = v.get<std::string>(); });
    readKey(path, root, "width", [&](const json& v) { metadata.width = pictureWidth(v); });
    readKey(path, root, "focal_px", [&](const json& v) { metadata.focalLength = atLeast(1.0, v); });
    readKey(path, root, "readout_s",
            [&](const json& v) { metadata.readoutTime = atLeast(0.0, v); });
    readKey(path, root, "time_offset_s",
            [&](const json& v) { metadata.timeOffset = v.get<double>(); });
    readKey(path, root, "clock_drift_ppm",
            [&](const json& v) { metadata.clockDrift = 1e-6 * v.get<double>(); });
    readKey(path, root, "gravity_hint_mps2",
            [&](const json& v) { metadata.gravityHint = v.get<Vec3>(); });
    readKey(path, root, "axes", [&](const json& v) {
        metadata.axes = AxisMapping::fromTerms({v.at("device_x").get<std::string>(),
                                                v.at("device_y").get<std::string>(),
                                                v.at("device_z").get<std::string>()});
    });
    const auto folder = std::filesystem::path(path).parent_path();
    readKey(path, root, "imu", [&](const json& v) {
        if (v.contains("file"))
            metadata.motionLog = (folder / v.at("file").get<std::string>()).string();
    });
    std::string frames = "frames.csv";
    bool mustExist = false;
    readKey(path, root, "frames_file", [&](const json& v) {
        frames = v.get<std::string>();
        mustExist = true;
    });
    if (frames.empty()) return metadata;
    frames = (folder / frames).string();
    if (mustExist || std::filesystem::exists(frames)) metadata.frameTimes = readFrameTimes(frames);
    return metadata;
}

}  // namespace framehold
