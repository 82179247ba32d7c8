#include "media/padded_frame.h"

#include <algorithm>
#include <cstring>

namespace framehold {

namespace {

/// Repeats the first and the last `unit` bytes of `content` over the rest of a row.
void repeatEdges(uint8_t* row, int left, int content, int width, int unit) {
    const auto bytes = static_cast<size_t>(unit);
    for (int x = left - unit; x >= 0; x -= unit) std::memcpy(row + x, row + left, bytes);
    const int end = left + content;
    for (int x = end; x < width; x += unit) std::memcpy(row + x, row + end - unit, bytes);
}

}  // namespace

PaddedFrame::PaddedFrame(int contentWidth, int width)
    : contentWidth_(contentWidth), width_(width),
      // Even, so that chroma pairs stay together.
      left_((width - contentWidth) / 2 & ~1) {}

const AVFrame* PaddedFrame::pad(const AVFrame& frame) {
    if (width_ == contentWidth_) return &frame;
    if (!padded_) padded_ = makeNv12Frame(width_, frame.height);
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < frame.height >> plane; ++y) {
            uint8_t* row = padded_->data[plane] + ptrdiff_t{y} * padded_->linesize[plane];
            std::copy_n(frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane], contentWidth_,
                        row + left_);
            repeatEdges(row, left_, contentWidth_, width_, 1 + plane);
        }
    }
    padded_->pts = frame.pts;
    padded_->pkt_duration = frame.pkt_duration;
    return padded_.get();
}

void PaddedFrame::cut(AVFrame& frame) const {
    frame.crop_left = static_cast<size_t>(left_);
    frame.crop_right = static_cast<size_t>(width_ - contentWidth_ - left_);
    av_frame_apply_cropping(&frame, AV_FRAME_CROP_UNALIGNED);
}

}  // namespace framehold
