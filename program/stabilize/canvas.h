#pragma once

#include "media/av_handles.h"

namespace framehold {

/// The library works in blocks of 128 columns, and stretches the last ones of an output whose
/// width is not a multiple of that. So frames of other widths are placed in the middle of a wider
/// canvas, their edges repeated to both sides, and the result is cut back.
class Canvas {
public:
    explicit Canvas(int contentWidth);

    int width() const { return width_; }

    /// The frame on the canvas: the frame itself if its width will do, else a copy that is valid
    /// until the next call. It keeps the frame's pts and duration.
    const AVFrame* place(const AVFrame& frame);

    /// Cuts a frame of canvas width back to the content.
    void cut(AVFrame& frame) const;

private:
    int contentWidth_;
    int width_;
    int left_;
    AvPtr<AVFrame> canvas_;
};

}  // namespace framehold
