#pragma once

#include <optional>

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

}  // namespace framehold
