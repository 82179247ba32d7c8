#include "motion/clip_metadata.h"

#include "common/nearest_name.h"
#include "common/text_fields.h"
#include "motion/formats/text_rows.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

namespace framehold {

namespace fs = std::filesystem;

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

/// Sentences on keys that are not known: each that looks like a misspelt one, then the others.
std::vector<std::string> unknownKeys(const std::string& path, const json& root) {
    const std::vector<std::string> kKnown = {
        "name",          "video",        "frames",          "width",
        "height",        "fps",          "duration_s",      "imu",
        "focal_px",      "lens",         "readout_s",       "axes",
        "time_offset_s", "seed",         "clock_drift_ppm", "gravity_hint_mps2",
        "motion",        "moving_share", "frames_file",     "lens_shifts_file"};
    constexpr size_t kMostNamed = 5;
    const std::string file = escaped(path);
    std::vector<std::string> warnings;
    std::vector<std::string> others;
    size_t count = 0;
    for (const auto& [key, value] : root.items()) {
        const bool isRemark = key.size() > 5 && key.compare(key.size() - 5, 5, "_note") == 0;
        if (isRemark || std::find(kKnown.begin(), kKnown.end(), key) != kKnown.end()) continue;
        const std::string nearest = excerpt(key) == key ? nearestName(key, kKnown) : "";
        if (!nearest.empty() && warnings.size() < kMostNamed) {
            warnings.push_back(
                fmt::format("{}: {} is not a known key; did you mean {}?", file, key, nearest));
        } else if (++count <= kMostNamed) {
            others.push_back(excerpt(key));
        }
    }
    if (count > 0) {
        const std::string more =
            count > kMostNamed ? fmt::format(" and {} more", count - kMostNamed) : "";
        warnings.push_back(fmt::format("{}: keys that are not known and not used: {}{}", file,
                                       fmt::join(others, ", "), more));
    }
    return warnings;
}

/// Content of a file as JSON, errors in words of our own.
json parseJson(const std::string& path) {
    // Much more than any clip.json has, and little enough to take apart.
    constexpr size_t kLargest = 1 << 20;
    const std::string text = readFile(path, kLargest + 1);
    if (text.size() > kLargest) {
        throw FileError(path, 0, fmt::format("is larger than {} bytes", kLargest));
    }
    try {
        return json::parse(text);
    } catch (const json::parse_error& error) {
        const auto end = text.begin() + static_cast<ptrdiff_t>(std::min(error.byte, text.size()));
        throw FileError(path, 0,
                        fmt::format("not JSON: a mistake in line {}, or before it",
                                    1 + std::count(text.begin(), end, '\n')));
    } catch (const json::exception&) {
        throw FileError(path, 0, "not JSON: it holds a number that is too large");
    }
}

double numberIn(const json& value) {
    if (!value.is_number()) throw std::invalid_argument("is not a number");
    return value.get<double>();
}

std::string textIn(const json& value) {
    if (!value.is_string()) throw std::invalid_argument("is not a text in quotes");
    return value.get<std::string>();
}

Vec3 vectorIn(const json& value) {
    if (!value.is_array() || value.size() != 3) {
        throw std::invalid_argument("is not a list of three numbers");
    }
    return {numberIn(value[0]), numberIn(value[1]), numberIn(value[2])};
}

AxisMapping axesIn(const json& value) {
    std::array<std::string, 3> terms;
    for (size_t i = 0; i < 3; ++i) {
        const std::string key = std::string("device_") + "xyz"[i];
        if (!value.is_object() || !value.contains(key)) {
            throw std::invalid_argument(key + " is missing");
        }
        if (!value[key].is_string()) throw std::invalid_argument(key + " is not a text in quotes");
        terms[i] = value[key].get<std::string>();
    }
    return AxisMapping::fromTerms(terms);
}

/// Path of a file that a clip.json names; throws std::invalid_argument for one that it may not.
std::string pathIn(const json& value, const fs::path& folder, NamedPaths paths) {
    const std::string name = textIn(value);
    if (name.find('\0') != std::string::npos) throw std::invalid_argument("holds a zero byte");
    const std::string path = (folder / name).string();
    if (paths == NamedPaths::kAnywhere) return path;
    std::error_code failed;
    const fs::path top = fs::weakly_canonical(folder.empty() ? fs::path(".") : folder, failed);
    const fs::path real = failed ? fs::path() : fs::weakly_canonical(path, failed);
    const bool isBelow =
        !failed &&
        std::mismatch(top.begin(), top.end(), real.begin(), real.end()).first == top.end();
    if (!isBelow || fs::path(name).is_absolute()) {
        throw std::invalid_argument(
            fmt::format("{} is not below the folder of this file; --allow-outside-paths allows it",
                        excerpt(name)));
    }
    return path;
}

double atLeast(double low, const json& value) {
    const double number = numberIn(value);
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

LensDistortion lensIn(const json& value) {
    constexpr double kLargest = 1000.0;  // more than any lens has
    if (!value.is_object()) throw std::invalid_argument("is not an object");
    if (!value.contains("model")) throw std::invalid_argument("model is missing");
    const std::string name = textIn(value["model"]);
    const std::optional<LensModel> model = lensModelOf(name);
    if (!model) {
        throw std::invalid_argument(
            fmt::format("model: '{}' is not none, polynomial or fisheye", excerpt(name)));
    }
    LensDistortion::Coefficients k{};
    for (const auto& [key, coefficient] : value.items()) {
        if (key == "model") continue;
        if (key.size() != 2 || key[0] != 'k' || key[1] < '1' || key[1] > '4') {
            throw std::invalid_argument(
                fmt::format("'{}' is not model, k1, k2, k3 or k4", excerpt(key)));
        }
        if (!coefficient.is_number()) throw std::invalid_argument(key + " is not a number");
        const auto number = coefficient.get<double>();
        if (std::abs(number) > kLargest) {
            throw std::invalid_argument(
                fmt::format("{}: {} is not {} to {}", key, number, -kLargest, kLargest));
        }
        k[static_cast<size_t>(key[1] - '1')] = number;
    }
    return {*model, k};
}

}  // namespace

namespace {

/// Times in the first column of a table, with or without a line of names, that rise.
std::vector<double> readLoggedFrameTimes(LineReader lines) {
    constexpr double kLargest = 1e30;
    std::vector<MotionSample> frames;
    for (bool isFirst = true; nextOfTable(lines); isFirst = false) {
        const std::string_view field = splitQuoted(lines.line(), ',')[0];
        const bool isName = field.find_first_of("0123456789") != 0;
        if (isFirst && isName) {
            if (lowerCase(field).find("time") != std::string::npos) continue;
            lines.fail("the first line is not frame,timestamp_s, and names no time first");
        }
        const double time = lines.number(field, "timestamp");
        if (!(std::abs(time) <= kLargest) || (!frames.empty() && time <= frames.back().time)) {
            lines.fail(
                fmt::format("timestamp: {} is not above that of the frame before", excerpt(field)));
        }
        frames.push_back({time, {}});
    }
    if (frames.empty()) lines.fail("holds no times of frames");
    applyLikelyTimeUnit(frames);
    std::vector<double> times;
    for (const MotionSample& frame : frames) times.push_back(frame.time);
    return times;
}

}  // namespace

std::vector<double> readFrameTimes(const std::string& path) {
    return parseFrameTimes(path, readFile(path));
}

std::vector<double> parseFrameTimes(const std::string& name, std::string_view text) {
    LineReader lines(name, text);
    const LineReader start = lines;
    if (!lines.next() ||
        splitFields(lines.line()) != std::vector<std::string_view>{"frame", "timestamp_s"}) {
        return readLoggedFrameTimes(start);
    }
    std::vector<double> times;
    while (lines.next()) {
        const auto fields = splitFields(lines.line());
        if (fields.size() < 2) lines.fail("timestamp_s is missing");
        const double frame = lines.number(fields[0], "frame");
        if (frame != static_cast<double>(times.size())) {
            lines.fail(
                fmt::format("frame: {} where {} is expected", excerpt(fields[0]), times.size()));
        }
        times.push_back(lines.number(fields[1], "timestamp_s"));
    }
    return times;
}

std::vector<LensShift> readLensShifts(const std::string& path) {
    const std::string text = readFile(path);
    LineReader lines(path, text);
    if (!lines.next() ||
        splitFields(lines.line()) != std::vector<std::string_view>{"time_s", "x_px", "y_px"}) {
        lines.fail("the first line is not time_s,x_px,y_px");
    }
    std::vector<LensShift> shifts;
    while (lines.next()) {
        const auto fields = splitFields(lines.line());
        if (fields.size() != 3) {
            lines.fail(fmt::format("{} fields where 3 are expected", fields.size()));
        }
        shifts.push_back({lines.number(fields[0], "time_s"), lines.number(fields[1], "x_px"),
                          lines.number(fields[2], "y_px")});
        if (shifts.size() > 1 && shifts.back().time <= shifts[shifts.size() - 2].time) {
            lines.fail(
                fmt::format("time_s: {} is not above that of the row before", excerpt(fields[0])));
        }
    }
    return shifts;
}

ClipMetadata readClipMetadata(const std::string& path, NamedPaths paths) {
    const json root = parseJson(path);
    if (!root.is_object()) throw FileError(path, 0, "not a JSON object");

    ClipMetadata metadata;
    metadata.warnings = unknownKeys(path, root);
    readKey(path, root, "video", [&](const json& v) { metadata.video = textIn(v); });
    readKey(path, root, "width", [&](const json& v) { metadata.width = pictureWidth(v); });
    readKey(path, root, "focal_px", [&](const json& v) { metadata.focalLength = atLeast(1.0, v); });
    readKey(path, root, "lens", [&](const json& v) { metadata.lens = lensIn(v); });
    readKey(path, root, "readout_s",
            [&](const json& v) { metadata.readoutTime = atLeast(0.0, v); });
    readKey(path, root, "time_offset_s", [&](const json& v) { metadata.timeOffset = numberIn(v); });
    readKey(path, root, "clock_drift_ppm",
            [&](const json& v) { metadata.clockDrift = 1e-6 * numberIn(v); });
    readKey(path, root, "gravity_hint_mps2",
            [&](const json& v) { metadata.gravityHint = vectorIn(v); });
    readKey(path, root, "axes", [&](const json& v) { metadata.axes = axesIn(v); });
    const fs::path folder = fs::path(path).parent_path();
    readKey(path, root, "imu", [&](const json& v) {
        if (!v.is_object()) throw std::invalid_argument("is not an object");
        if (v.contains("file")) metadata.motionLog = pathIn(v["file"], folder, paths);
    });
    readKey(path, root, "lens_shifts_file",
            [&](const json& v) { metadata.lensShifts = pathIn(v, folder, paths); });
    std::optional<std::string> frames;
    bool hasNone = false;
    readKey(path, root, "frames_file", [&](const json& v) {
        hasNone = v == "";
        if (!hasNone) frames = pathIn(v, folder, paths);
    });
    const std::string beside = (folder / "frames.csv").string();
    if (!frames && !hasNone && fs::exists(beside)) frames = beside;
    if (frames) {
        metadata.frameTimes = readFrameTimes(*frames);
        metadata.framesFile = *frames;
    }
    return metadata;
}

}  // namespace framehold
