#pragma once

#include <optional>
#include <string>
#include <vector>

namespace framehold {

/// Packet of a video file's telemetry track.
struct TelemetryPacket {
    double time;      // seconds, on the clock of the video's frames
    double duration;  // seconds; 0 if not known
    std::string bytes;
    bool isAcceleration = false;  // of kMett: application/accel, else application/gyro
};

/// kMett: timed metadata of type application/gyro and application/accel.
enum class TelemetryKind { kGpmf, kCamm, kMett };

/// Motion telemetry inside a video file.
struct TelemetryTrack {
    TelemetryKind kind;
    std::vector<TelemetryPacket> packets;
};

/// Reads the first telemetry track of a video file, found by the type that MP4 and MOV give to it;
/// of kMett the first one of each sensor. None if there is none. Throws MediaError if FFmpeg cannot read the file, and if the packets are
/// larger than it: they may lie over each other.
std::optional<TelemetryTrack> readTelemetryTrack(const std::string& path);

}  // namespace framehold
