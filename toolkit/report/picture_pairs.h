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

/// Pictures of three moments, and of many frames on top of each other, in which only what stands
/// still is sharp. Frames belong together as in croppingRatio; wide pictures are made smaller.
/// Throws MediaError.
std::vector<PicturePair> takePictures(const std::string& original, const std::string& stabilized,
                                      int delay);

}  // namespace framehold
