#pragma once

#include "media/av_handles.h"

#include <cstdint>
#include <vector>

namespace framehold {

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
