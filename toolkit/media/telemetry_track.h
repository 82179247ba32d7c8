#pragma once

#include "common/output_file.h"

#include <cstdint>
#include <functional>
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
    std::string axes =
        {};  // from logged to device axes, as letters, where writeMotionTrack said it
};

/// Reads the first telemetry track of a video file, found by the type that MP4 and MOV give to it;
/// of kMett the first one of each sensor. None if there is none. Throws MediaError if FFmpeg cannot read the file, and if the packets are
/// larger than it: they may lie over each other.
std::optional<TelemetryTrack> readTelemetryTrack(const std::string& path);

/// Writes an MP4 or MOV file with a track of kCamm and, if `video` is not empty, the streams of that
/// file as they are, but for its own telemetry. Times are kept to a nanosecond; to less only if the
/// track has gaps of more than two seconds. Packets before the start of the video have times below 0,
/// which an edit list leaves out for players. Without a video, where the first one is before 0, and
/// where it is more than an hour after it, the track's name says where its clock starts. advance:
/// called after each packet. Returns what could not be kept, each a sentence for the user. Throws
/// MediaError, also for packets that all are before the start of the video; Interrupted.
std::vector<std::string> writeMotionTrack(const OutputName& name, const std::string& video,
                                          const TelemetryTrack& track,
                                          const std::function<void()>& advance);

}  // namespace framehold
