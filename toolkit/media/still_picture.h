#pragma once

#include "common/output_file.h"
#include "media/libav.h"

#include <cstdint>
#include <string>
#include <vector>

namespace framehold {

/// A two-plane 4:2:0 frame as a JPEG picture in a "data:" URL. Frames wider than `largestWidth`
/// pixels are scaled down to it. Throws MediaError.
std::string jpegDataUrl(const AVFrame& frame, int largestWidth);

/// Writes a two-plane 4:2:0 frame as an RGB picture in a PNG file, by the frame's range and matrix.
/// The file appears under its name when it is complete. Throws std::runtime_error.
void writePng(const OutputName& name, const AVFrame& frame);

/// Mean of two-plane 4:2:0 frames of one size: what moves is blurred.
class MeanFrame {
public:
    void add(const AVFrame& frame);

    bool isEmpty() const { return count_ == 0; }

    /// Mean of the frames that were added, at least one. Its colours are tagged as the first one's.
    AvPtr<AVFrame> mean() const;

private:
    AvPtr<AVFrame> properties_;  // of the first frame; no pixels
    std::vector<uint32_t> sums_;
    uint32_t count_ = 0;
};

}  // namespace framehold
