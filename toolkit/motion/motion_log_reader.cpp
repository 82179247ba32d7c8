#include "motion/motion_log_reader.h"

#include "common/text_fields.h"
#include "media/telemetry_track.h"
#include "motion/formats/camm_reader.h"
#include "motion/formats/euroc_reader.h"
#include "motion/formats/gcsv_reader.h"
#include "motion/formats/gpmf_reader.h"
#include "motion/formats/rotation_vector_reader.h"
#include "motion/formats/sensor_csv_reader.h"
#include "motion/formats/xyz_csv_reader.h"
#include "motion/log_siblings.h"

#include <fstream>

#include <fmt/format.h>

namespace framehold {

namespace {

struct TextFormat {
    bool (*detect)(std::string_view content);
    MotionLog (*parse)(const std::string& name, std::string_view content);
};

/// In order of how much a first line must say to be taken for one of the format.
constexpr TextFormat kTextFormats[] = {
    {detectGcsv, parseGcsv},           {detectEuroc, parseEuroc},
    {detectXyzCsv, parseXyzCsv},       {detectRotationVector, parseRotationVector},
    {detectSensorCsv, parseSensorCsv},
};

std::string quotedStart(std::string_view line) {
    constexpr size_t kShown = 60;
    std::string shown(line.substr(0, kShown));
    for (char& c : shown) {
        if (c < ' ' || c > '~') c = '?';
    }
    return fmt::format("\"{}\"{}", shown, line.size() > kShown ? "..." : "");
}

}  // namespace

MotionLog parseTextLog(const std::string& name, std::string_view content) {
    for (const TextFormat& format : kTextFormats) {
        if (format.detect(content)) return format.parse(name, content);
    }
    throw FileError(
        name, 1,
        fmt::format("not a motion log of a format that is known: the first line is {}. Known are "
                    ".gcsv (first line \"CAMERA IMU LOG\" or \"GYROFLOW IMU LOG\"); CSV whose "
                    "first line names a column of time and three axes of a gyroscope, an "
                    "accelerometer or a rotation vector; rows of x,y,z,timestamp_ns; EuRoC (first "
                    "line \"#timestamp [ns],...\"); and MP4 or MOV with GPMF or CAMM telemetry",
                    quotedStart(firstLine(content))));
}

std::optional<MotionLog> readVideoTelemetry(const std::string& path) {
    const std::optional<TelemetryTrack> track = readTelemetryTrack(path);
    if (!track || track->packets.empty()) return std::nullopt;
    MotionLog log = track->kind == TelemetryKind::kGpmf ? parseGpmf(path, track->packets)
                                                        : parseCamm(path, track->packets);
    log.files = {path};
    return log;
}

bool isVideoFile(const std::string& path) {
    // Text has no zero bytes, and the boxes at the start of a video do.
    char head[64] = {};
    std::ifstream in(path, std::ios::binary);
    in.read(head, sizeof head);
    return std::string_view(head, static_cast<size_t>(in.gcount())).find('\0') !=
           std::string_view::npos;
}

MotionLog readMotionLog(const std::string& path) {
    if (isVideoFile(path)) {
        if (auto log = readVideoTelemetry(path)) return *std::move(log);
        throw FileError(path, 0, "holds no motion telemetry (no GPMF or CAMM track)");
    }
    MotionLog log = parseTextLog(path, readFile(path));
    log.files = {path};
    addSibling(path, log);
    if (log.rates.empty() && log.orientations.empty()) {
        throw FileError(path, 0,
                        "holds an accelerometer only, and no file beside it holds the gyroscope: "
                        "give that one");
    }
    return log;
}

}  // namespace framehold
