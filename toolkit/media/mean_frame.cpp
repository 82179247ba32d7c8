#include "media/mean_frame.h"

#include <algorithm>

namespace framehold {

namespace {

/// Calls visit(byte) for every byte of the planes, in order.
template <class Visit>
void visitBytes(const AVFrame& frame, Visit visit) {
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < frame.height >> plane; ++y) {
            uint8_t* row = frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
            std::for_each(row, row + frame.width, visit);
        }
    }
}

}  // namespace

void MeanFrame::add(const AVFrame& frame) {
    if (!mean_) {
        mean_ = makeNv12Frame(frame.width, frame.height);
        av_frame_copy_props(mean_.get(), &frame);
        sums_.resize(static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height) * 3 / 2);
    }
    auto sum = sums_.begin();
    visitBytes(frame, [&](const uint8_t& byte) { *sum++ += byte; });
    ++count_;
}

const AVFrame& MeanFrame::frame() {
    auto sum = sums_.begin();
    visitBytes(*mean_,
               [&](uint8_t& byte) { byte = static_cast<uint8_t>((*sum++ + count_ / 2) / count_); });
    return *mean_;
}

}  // namespace framehold
