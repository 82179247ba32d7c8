#include "motion/motion_log_reader.h"

#include "common/image_sequence.h"
#include "common/interruption.h"
#include "common/output_file.h"
#include "common/text_fields.h"
#include "media/telemetry_track.h"
#include "motion/formats/telemetry_formats.h"
#include "motion/formats/text_formats.h"
#include "motion/other_sensor.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>

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
    {detectCapture, parseCapture},
    {detectGcsv, parseGcsv},
    {detectEuroc, parseEuroc},
    {detectXyzCsv, parseXyzCsv},
    {detectBareRows, parseBareRows},
    {detectLongRows, parseLongRows},
    {detectRotationVector, parseRotationVector},
    {detectSensorCsv, parseSensorCsv},
    {detectFlightLog, parseFlightLog},
};

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
        if (failed || size > bytes_ || files_ == 0) return false;
        bytes_ -= size;
        --files_;
        return true;
    }

private:
    static constexpr uintmax_t kTimesLog = 4;
    static constexpr uintmax_t kBytesAnyway = 1 << 20;
    static constexpr int kFiles = 16;

    uintmax_t bytes_;
    int files_ = kFiles;
};

/// The files beside a log, of its extension.
std::vector<fs::path> filesBeside(const fs::path& path) {
    std::vector<fs::path> files;
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    for (const auto& entry : fs::directory_iterator(folder)) {
        const fs::path& file = entry.path();
        std::error_code ignored;
        throwIfInterrupted();
        if (!entry.is_regular_file(ignored) || fs::equivalent(file, path, ignored)) continue;
        if (lowerCase(file.extension().string()) != lowerCase(path.extension().string())) continue;
        files.push_back(file);
    }
    return files;
}

/// Adds the other sensor to a log that has one of the two only. path: of the log.
void addSibling(const std::string& path, MotionLog& log) {
    if (!lacksSensor(log)) return;
    ReadingBudget budget(path);
    const ReadLog read = [&budget](const fs::path& file) -> std::optional<MotionLog> {
        if (!budget.allows(file)) return std::nullopt;
        return parseTextLog(file.string(), readFile(file.string()));
    };
    addOtherSensor(path, filesBeside(path), read, log);
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
            "line \"#timestamp [ns],...\"); sessions of protobuf messages; zip "
            "archives of these; and MP4 or MOV with GPMF, CAMM "
            "or "
            "mett telemetry",
            excerpt(firstLine(content))));
}

std::optional<MotionLog> readVideoTelemetry(const std::string& path) {
    const std::optional<TelemetryTrack> track = readTelemetryTrack(path);
    if (!track || track->packets.empty()) return std::nullopt;
    MotionLog log = track->kind == TelemetryKind::kGpmf   ? parseGpmf(path, track->packets)
                    : track->kind == TelemetryKind::kCamm ? parseCamm(path, track->packets)
                                                          : parseMett(path, track->packets);
    if (!track->axes.empty()) {
        try {
            log.orientation = AxisMapping::fromLetters(track->axes);
        } catch (const std::invalid_argument& error) {
            throw FileError(path, 0, fmt::format("the name of its motion track: {}", error.what()));
        }
    }
    log.files = {path};
    return log;
}

bool isVideoFile(const std::string& path) {
    // What comes from a pipe can be read only once.
    if (isSpecialFile(path)) return false;
    if (isImageSequence(path)) return true;
    // Text has no zero bytes but in UTF-16, and the start of nearly every video has.
    constexpr size_t kHead = 64;
    const std::string start = readFile(path, kCaptureHead);
    if (startsAsUtf16(start) || startsAsArchive(start) || detectCapture(start)) return false;
    const std::string_view head = std::string_view(start).substr(0, kHead);
    const auto startsWith = [&head](std::string_view text) {
        return head.substr(0, text.size()) == text;
    };
    return head.find('\0') != std::string_view::npos || startsWith("YUV4MPEG2 ") ||
           startsWith("\x1A\x45\xDF\xA3");
}

MotionLog readMotionLog(const std::string& path) {
    if (isVideoFile(path)) {
        if (auto log = readVideoTelemetry(path)) return *std::move(log);
        throw FileError(path, 0, "holds no motion telemetry (no GPMF, CAMM or mett track)");
    }
    if (isArchive(path)) {
        LogArchive archive(path);
        return readArchivedLog(archive);
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
