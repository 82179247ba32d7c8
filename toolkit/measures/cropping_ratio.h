#pragma once

#include <optional>
#include <string>

namespace framehold {

/// How much of the area of the original's frames a stabilized video shows, 0 to 1: the median of
/// about a dozen frames, each laid on the frame of the original that is shown at the same time
/// since the beginning (or `delay` stabilized frames earlier). None if too few of them match.
/// Throws MediaError.
std::optional<double> croppingRatio(const std::string& original, const std::string& stabilized,
                                    int delay);

}  // namespace framehold
