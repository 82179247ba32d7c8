#pragma once

#include "media/libav.h"

#include <opencv2/core.hpp>

namespace framehold {

/// Luma plane of an 8-bit frame as a matrix of bytes, without a copy: valid as long as the frame's
/// buffer.
inline cv::Mat lumaView(const AVFrame& frame) {
    return {frame.height, frame.width, CV_8UC1, frame.data[0],
            static_cast<size_t>(frame.linesize[0])};
}

}  // namespace framehold
