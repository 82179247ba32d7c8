#pragma once

#include "media/libav.h"

#include <cstdint>
#include <string>
#include <vector>

namespace framehold {

/// A frame as a JPEG picture in a "data:" URL, for a page of its own. Wider ones are made smaller to
/// `largestWidth` pixels. Throws MediaError.
std::string jpegDataUrl(const AVFrame& frame, int largestWidth);

/// Writes a two-plane 4:2:0 frame as an RGB picture in a PNG file, by its range and matrix. The file
/// appears under its name when it is complete.
/// Throws std::runtime_error.
void writePng(const std::string& path, const AVFrame& frame);

/// The mean of a number of two-plane 4:2:0 frames of one size: what moves is blurred.
class MeanFrame {
public:
    void add(const AVFrame& frame);

    bool isEmpty() const { return count_ == 0; }

    /// Not of none. Colours are tagged as in the first one added.
    const AVFrame& frame();

private:
    AvPtr<AVFrame> mean_;
    std::vector<uint32_t> sums_;
    uint32_t count_ = 0;
};

}  // namespace framehold
