#pragma once

#include <string>

namespace framehold {

/// One packet of a video file's telemetry track.
struct TelemetryPacket {
    double time;      // seconds, on the clock of the video's frames
    double duration;  // seconds; 0 if not known
    std::string bytes;
};

}  // namespace framehold
