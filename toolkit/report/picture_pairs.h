#pragma once

#include <string>
#include <vector>

namespace framehold {

/// The same moment of two videos, as data URLs of JPEG pictures.
struct PicturePair {
    std::string label;
    std::string before;
    std::string after;
};

/// Pictures of three moments, and the mean of a number of frames, in which only what stands still is
/// sharp. Frames are paired as in croppingRatio; pictures of more than 960 pixels a side are scaled down. All are
/// upright as the original says. Throws MediaError.
std::vector<PicturePair> takePictures(const std::string& original, const std::string& stabilized,
                                      int delay);

}  // namespace framehold
