#pragma once

#include <optional>
#include <string>

namespace framehold {

/// Cropping ratio of a stabilized video: share of the area of the original's frames that it shows, 0
/// to 1. It is the median of about a dozen frames, each mapped by a homography to the frame of the
/// original that is shown at the same time since the first frame (or `delay` stabilized frames
/// earlier). None if no frame matches. Throws MediaError.
std::optional<double> croppingRatio(const std::string& original, const std::string& stabilized,
                                    int delay);

}  // namespace framehold
