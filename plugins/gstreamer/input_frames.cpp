#include "gstreamer/input_frames.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace framehold {

bool InputFrames::take(GstHandle<GstBuffer> buffer) {
    mapped_.reset();
    buffer_ = std::move(buffer);
    mapped_.emplace(info_, buffer_.get(), GST_MAP_READ);
    if (!*mapped_) {
        mapped_.reset();
        throw std::runtime_error("a frame cannot be read: its buffer is smaller than its caps say");
    }
    image_.format = ZPR_FORMAT_SEMIPLANAR_1;
    image_.width = paddedWidth_;
    image_.height = info_.height;
    const bool isCopied = paddedWidth_ != info_.width || !liesRight(*mapped_);
    if (isCopied) {
        paddedWidth_ == info_.width ? copy(*mapped_) : pad(*mapped_);
        mapped_.reset();
        buffer_.reset();
    } else {
        for (int i = 0; i < 2; ++i) {
            image_.plane[i] = mapped_->plane(i);
            image_.pitch[i] = mapped_->stride(i);
        }
    }
    if (pitch_ == 0) pitch_ = image_.pitch[0];
    return isCopied;
}

/// The ring takes both planes with the pitch of the first frame's luma, whole rows of it.
bool InputFrames::liesRight(const MappedFrame& frame) const {
    if (!isDelayed_) return true;
    const int pitch = pitch_ == 0 ? frame.stride(0) : pitch_;
    const size_t bytes = static_cast<size_t>(pitch) * static_cast<size_t>(info_.height);
    return frame.stride(0) == pitch && frame.stride(1) == pitch && frame.bytesFrom(0) >= bytes &&
           frame.bytesFrom(1) >= bytes / 2;
}

void InputFrames::pad(const MappedFrame& frame) {
    AVFrame view{};
    view.width = info_.width;
    view.height = info_.height;
    for (int i = 0; i < 2; ++i) {
        view.data[i] = frame.plane(i);
        view.linesize[i] = frame.stride(i);
    }
    const AVFrame* padded = padded_.pad(view);
    for (int i = 0; i < 2; ++i) {
        image_.plane[i] = padded->data[i];
        image_.pitch[i] = padded->linesize[i];
    }
}

void InputFrames::copy(const MappedFrame& frame) {
    const int pitch = pitch_ == 0 ? info_.width : pitch_;
    const size_t luma = static_cast<size_t>(pitch) * static_cast<size_t>(info_.height);
    copy_.resize(luma + luma / 2);
    for (int i = 0; i < 2; ++i) {
        image_.plane[i] = copy_.data() + (i == 0 ? 0 : luma);
        image_.pitch[i] = pitch;
        for (int y = 0; y < info_.height >> i; ++y) {
            std::copy_n(frame.plane(i) + ptrdiff_t{y} * frame.stride(i), info_.width,
                        image_.plane[i] + ptrdiff_t{y} * pitch);
        }
    }
}

}  // namespace framehold
