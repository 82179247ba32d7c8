#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace framehold {

// Types of timed metadata that hold a sensor's readings.
constexpr char kGyroscopeMetadata[] = "application/gyro";
constexpr char kAccelerometerMetadata[] = "application/accel";

inline bool isSensorMetadata(const std::string& type) {
    return type == kGyroscopeMetadata || type == kAccelerometerMetadata;
}

/// MIME types of the timed metadata in an MP4 or MOV file, by the number of the track: of tracks of
/// type `mett`, whose types FFmpeg does not hand on. Empty for other files; what is broken is left
/// out. Throws FileError if the file cannot be read.
std::map<int, std::string> metadataTypes(const std::string& path);

/// Positions in an MP4 or MOV file of the four letters that name what each track holds, by the number
/// of the track. Throws FileError if the file cannot be read.
std::map<int, uint64_t> trackTypePositions(const std::string& path);

}  // namespace framehold
