#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace framehold {

/// Metadata of one frame of a video, as a camera app logs it; none of what is not there.
struct FrameMetadata {
    std::optional<double> time;  // seconds: start of the first row's exposure, on the log's clock
    std::optional<double> exposure;  // seconds for which a row is exposed
    std::optional<double>
        readout;  // seconds from the exposure of the first row to that of the last
    std::optional<double> focalLength;  // pixels, in a picture of `width`
    std::optional<double> width;        // pixels; none: that of the video
};

/// What is said of a table that readFrameMetadata does not know.
constexpr const char* kNoFrameMetadata =
    "the first line names no exposure, readout or focal length in pixels";

/// Reads a table whose first line names columns of a time, an exposure, a readout or rolling-shutter
/// skew, a focal length in pixels or a width: "Timestamp[nanosec]", "exposure_time_ns", "fx[px]". Other
/// columns are passed over; what is empty, NaN or not above 0 is none. Units that are not named are
/// told by size. Throws FileError with the line and the column, and for a table of other columns.
std::vector<FrameMetadata> readFrameMetadata(const std::string& path);

/// Reads the text of such a table. name: for messages.
std::vector<FrameMetadata> parseFrameMetadata(const std::string& name, std::string_view text);

/// True if the first line of a file names an exposure, a readout or a focal length of frames.
bool holdsFrameMetadata(const std::string& path);

/// Medians of what frames have; without a time.
FrameMetadata usualMetadata(const std::vector<FrameMetadata>& frames);

/// Metadata of frames at these times: of the row whose time is the same to a millisecond, else medians.
std::vector<FrameMetadata> metadataAt(const std::vector<double>& times,
                                      const std::vector<FrameMetadata>& rows);

/// Moves starts of the first row's exposure to its middle: by the exposure of the frame that started at
/// the same time to a millisecond, else by the median exposure. frames: with times, or none does.
void moveToMiddleOfExposure(const std::vector<FrameMetadata>& frames, std::vector<double>& times);

}  // namespace framehold
