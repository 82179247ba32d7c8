#pragma once

#include "media/libav.h"

namespace framehold {

/// A frame padded to a width that the library likes: it works in blocks of 128 columns, and stretches
/// the last ones of an output of another width. The content lies in the middle, its edges are
/// repeated to both sides, and the result is cut back.
class PaddedFrame {
public:
    /// width: of the padded frame; may be that of the content, which is left alone then.
    PaddedFrame(int contentWidth, int width);

    /// Columns before the content.
    int left() const { return left_; }

    /// Pads a frame: the frame itself if its width will do, else a copy that is valid until the next
    /// call. It keeps the frame's pts and duration.
    const AVFrame* pad(const AVFrame& frame);

    /// Cuts a frame of the padded width back to the content.
    void cut(AVFrame& frame) const;

private:
    int contentWidth_;
    int width_;
    int left_;
    AvPtr<AVFrame> padded_;
};

}  // namespace framehold
