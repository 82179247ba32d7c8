#pragma once

#include "media/libav.h"

#include <cmath>

#include <opencv2/core.hpp>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace framehold {

/// Luma plane of an 8-bit frame as a matrix of bytes, without a copy: valid as long as the frame's
/// buffer. Of a planar frame with more bits it is a copy of their upper eight.
inline cv::Mat lumaView(const AVFrame& frame) {
    const AVPixFmtDescriptor* pixels =
        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    const int depth = pixels != nullptr ? pixels->comp[0].depth : 8;
    const cv::Mat view(frame.height, frame.width, depth > 8 ? CV_16UC1 : CV_8UC1, frame.data[0],
                       static_cast<size_t>(frame.linesize[0]));
    if (depth <= 8) return view;
    cv::Mat reduced;
    view.convertTo(reduced, CV_8U, std::ldexp(1.0, 8 - depth));
    return reduced;
}

}  // namespace framehold
