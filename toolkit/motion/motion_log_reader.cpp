#include "motion/motion_log_reader.h"

#include "common/image_sequence.h"
#include "common/interruption.h"
#include "common/output_file.h"
#include "common/text_fields.h"
#include "media/telemetry_track.h"
#include "motion/formats/telemetry_formats.h"
#include "motion/formats/text_columns.h"
#include "motion/formats/text_formats.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include <fmt/format.h>

namespace framehold {

namespace fs = std::filesystem;

namespace {

struct TextFormat {
    bool (*detect)(std::string_view content);
    MotionLog (*parse)(const std::string& name, std::string_view content);
};

/// In order of how much a first line must say to be taken for one of the format.
constexpr TextFormat kTextFormats[] = {
    {detectGcsv, parseGcsv},           {detectEuroc, parseEuroc},
    {detectXyzCsv, parseXyzCsv},       {detectBareRows, parseBareRows},
    {detectLongRows, parseLongRows},   {detectRotationVector, parseRotationVector},
    {detectSensorCsv, parseSensorCsv}, {detectFlightLog, parseFlightLog},
};

/// The name in lower case without extension, words that name a sensor, and separators.
std::string nameWithoutSensor(const fs::path& file) {
    std::string name = lowerCase(file.stem().string());
    // Longer words before the words that they contain.
    for (const std::string_view word :
         {"uncalibrated", "total", "accelerometer", "acceleration", "accel", "acc", "gyroscope",
          "gyro", "angularvelocity", "rotationrate", "gravity", "_", "-", " ", "."}) {
        for (size_t at; (at = name.find(word)) != std::string::npos;) name.erase(at, word.size());
    }
    return name;
}

/// Some apps write, beside what they call accelerometer, the sum with gravity and gravity alone;
/// the accelerometer's is then without it.
int gravityRank(const fs::path& file) {
    const std::string name = lowerCase(file.filename().string());
    if (name.find("total") != std::string::npos) return 2;
    return name.find("gravity") != std::string::npos ? 1 : 0;
}

struct Candidates {
    std::vector<fs::path> byName;  // the best one first
    std::vector<fs::path> others;
};

Candidates candidatesBeside(const fs::path& path, SensorKind missing) {
    Candidates candidates;
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    for (const auto& entry : fs::directory_iterator(folder)) {
        const fs::path& file = entry.path();
        std::error_code ignored;
        throwIfInterrupted();
        if (!entry.is_regular_file(ignored) || fs::equivalent(file, path, ignored)) continue;
        if (lowerCase(file.extension().string()) != lowerCase(path.extension().string())) continue;
        const SensorKind kind = sensorNamedIn(file.filename().string());
        if (kind == missing && nameWithoutSensor(file) == nameWithoutSensor(path)) {
            candidates.byName.push_back(file);
        } else if (kind == missing || kind == SensorKind::kUnnamed) {
            candidates.others.push_back(file);
        }
    }
    std::sort(candidates.others.begin(), candidates.others.end());
    std::sort(candidates.byName.begin(), candidates.byName.end(),
              [](const fs::path& a, const fs::path& b) {
                  return std::pair(-gravityRank(a), a) < std::pair(-gravityRank(b), b);
              });
    return candidates;
}

/// Limits what is read beside a log to a few files, and to a few times its own size.
class ReadingBudget {
public:
    explicit ReadingBudget(const std::string& log)
        : bytes_(kTimesLog * fs::file_size(log) + kBytesAnyway) {}

    /// Counts a file that is to be read; false for one that is not.
    bool allows(const fs::path& file) {
        throwIfInterrupted();
        std::error_code failed;
        const uintmax_t size = fs::file_size(file, failed);
        if (failed || size > bytes_ || files_ == 0) {
            ++leftOut_;
            return false;
        }
        bytes_ -= size;
        --files_;
        return true;
    }

    size_t leftOut() const { return leftOut_; }

private:
    static constexpr uintmax_t kTimesLog = 4;
    static constexpr uintmax_t kBytesAnyway = 1 << 20;
    static constexpr int kFiles = 16;

    uintmax_t bytes_;
    int files_ = kFiles;
    size_t leftOut_ = 0;
};

bool overlap(const std::vector<MotionSample>& a, const std::vector<MotionSample>& b) {
    return !a.empty() && !b.empty() && a.front().time <= b.back().time &&
           b.front().time <= a.back().time;
}

/// A log that has what is missing; throws if the file cannot be read as a log.
std::optional<MotionLog> tryRead(const fs::path& file, const MotionLog& log) {
    MotionLog other = parseTextLog(file.string(), readFile(file.string()));
    const bool fits =
        log.gravity.empty() ? overlap(log.rates, other.gravity) : overlap(log.gravity, other.rates);
    return fits ? std::optional(std::move(other)) : std::nullopt;
}

void complete(const fs::path& file, MotionLog&& other, MotionLog& log) {
    if (log.gravity.empty()) {
        log.gravity = std::move(other.gravity);
        log.outOfOrder.gravity = other.outOfOrder.gravity;
    } else {
        log.rates = std::move(other.rates);
        log.outOfOrder.rates = other.outOfOrder.rates;
    }
    log.files.push_back(file.string());
    for (const std::string& note : other.notes) {
        log.notes.push_back(file.filename().string() + ": " + note);
    }
}

/// Adds the other sensor to a log that has one of the two only, see readMotionLog. Where several
/// files fit, a note says so. path: of the log.
void addSibling(const std::string& path, MotionLog& log) {
    if (!log.orientations.empty() || log.rates.empty() == log.gravity.empty()) return;
    const SensorKind missing = log.rates.empty() ? SensorKind::kRate : SensorKind::kGravity;
    const Candidates candidates = candidatesBeside(path, missing);
    ReadingBudget budget(path);
    for (const fs::path& file : candidates.byName) {
        if (!budget.allows(file)) continue;
        if (auto other = tryRead(file, log)) return complete(file, *std::move(other), log);
    }
    std::optional<std::pair<fs::path, MotionLog>> found;  // the first
    size_t fitting = 0;
    for (const fs::path& file : candidates.others) {
        if (!budget.allows(file)) continue;
        try {
            auto other = tryRead(file, log);
            if (other && fitting++ == 0) found.emplace(file, *std::move(other));
        } catch (const FileError&) {
            // Deliberate: whatever else lies in the folder need not be a log.
        }
    }
    if (budget.leftOut() > 0) {
        log.notes.push_back(fmt::format(
            "{} files beside it were not looked at for the other sensor: they are too many or too "
            "large; name the right one as this one, with gyro or accel for the sensor",
            budget.leftOut()));
    } else if (fitting == 1) {
        return complete(found->first, std::move(found->second), log);
    } else if (fitting > 1) {
        log.notes.push_back(fmt::format(
            "{} files beside it could be the other sensor's, and none was taken; name the right "
            "one as this one, with gyro or accel for the sensor",
            fitting));
    }
}

void dropRepeats(MotionLog& log) {
    for (const auto& [sensor, samples] : {std::pair("gyroscope", &MotionLog::rates),
                                          std::pair("accelerometer", &MotionLog::gravity)}) {
        const auto times = dropRepeats(log.*samples);
        if (!times) continue;
        log.notes.push_back(
            fmt::format("the {} was read more often than it measures: each value is there {:.3g} "
                        "times, repeats are left out, {:.4g} a second are left",
                        sensor, *times, samplesPerSecond(log.*samples)));
    }
}

}  // namespace

MotionLog parseTextLog(const std::string& name, std::string_view content) {
    if (const auto text = fromUtf16(content)) return parseTextLog(name, *text);
    for (const TextFormat& format : kTextFormats) {
        if (!format.detect(content)) continue;
        MotionLog log = format.parse(name, content);
        dropRepeats(log);
        return log;
    }
    throw FileError(
        name, 1,
        fmt::format(
            "not a motion log of a format that is known: the first line is \"{}\". Known are "
            ".gcsv (first line \"CAMERA IMU LOG\" or \"GYROFLOW IMU LOG\"); CSV whose "
            "first line names a column of time and three axes of a gyroscope, an "
            "accelerometer or a rotation vector; rows of x,y,z,timestamp_ns, of a time and "
            "three axes, or of one sensor each; logs of flight controllers; EuRoC (first "
            "line \"#timestamp [ns],...\"); and MP4 or MOV with GPMF, CAMM or mett telemetry",
            excerpt(firstLine(content))));
}

std::optional<MotionLog> readVideoTelemetry(const std::string& path) {
    const std::optional<TelemetryTrack> track = readTelemetryTrack(path);
    if (!track || track->packets.empty()) return std::nullopt;
    MotionLog log = track->kind == TelemetryKind::kGpmf   ? parseGpmf(path, track->packets)
                    : track->kind == TelemetryKind::kCamm ? parseCamm(path, track->packets)
                                                          : parseMett(path, track->packets);
    log.files = {path};
    return log;
}

bool isVideoFile(const std::string& path) {
    // What comes from a pipe can be read only once.
    if (isSpecialFile(path)) return false;
    if (isImageSequence(path)) return true;
    // Text has no zero bytes but in UTF-16, and the start of nearly every video has.
    constexpr size_t kHead = 64;
    const std::string head = readFile(path, kHead);
    if (startsAsUtf16(head)) return false;
    const auto startsWith = [&head](std::string_view text) {
        return std::string_view(head).substr(0, text.size()) == text;
    };
    return head.find('\0') != std::string::npos || startsWith("YUV4MPEG2 ") ||
           startsWith("\x1A\x45\xDF\xA3");
}

MotionLog readMotionLog(const std::string& path) {
    if (isVideoFile(path)) {
        if (auto log = readVideoTelemetry(path)) return *std::move(log);
        throw FileError(path, 0, "holds no motion telemetry (no GPMF, CAMM or mett track)");
    }
    const bool isPipe = isSpecialFile(path);
    MotionLog log = parseTextLog(path, isPipe ? readPipe(path) : readFile(path));
    log.files = {path};
    if (!isPipe) addSibling(path, log);
    if (log.rates.empty() && log.orientations.empty()) {
        throw FileError(path, 0,
                        "holds an accelerometer only, and no file beside it holds the gyroscope: "
                        "give that one");
    }
    return log;
}

}  // namespace framehold
