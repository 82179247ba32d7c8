#pragma once

#include "media/libav.h"

#include <string>

namespace framehold {

/// Columns between the two pictures.
constexpr int kDivider = 4;

/// Both frames beside each other, a white line between them; the right one's rows are cut or left
/// black to the height of the left one. It has the right one's pts and duration.
AvPtr<AVFrame> sideBySide(const AVFrame& left, const AVFrame& right);

/// Options of `framehold compare`.
struct CompareOptions {
    std::string before;
    std::string after;
    std::string video;    // file for both clips side by side; empty: none
    std::string picture;  // file for the mean of some frames; empty: none
    int firstFrame = 0;
    int frames = 30;
    bool overwrites = false;
    bool quiet = false;
};

/// Writes two clips side by side, upright as the first one says. Throws std::exception.
void compareClips(const CompareOptions& options);

}  // namespace framehold
