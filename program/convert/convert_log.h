#pragma once

#include <optional>
#include <string>

namespace framehold {

/// Options of `framehold convert`.
struct ConvertOptions {
    std::string log;                   // or a video with telemetry
    std::string output;                // file to write
    std::string format;                // "gcsv", "csv" or "mp4"; empty: by the ending of `output`
    std::string video;                 // whose streams go beside the motion; empty: none
    std::optional<double> timeOffset;  // seconds that the log's clock is ahead of the video's
    bool overwrites = false;
    bool quiet = false;
};

/// Writes a motion log in another format. Throws CLI::ValidationError for options that do not go
/// together; FileError, MediaError and std::runtime_error; DoneWithLosses; Interrupted.
void convertLog(const ConvertOptions& options);

}  // namespace framehold
