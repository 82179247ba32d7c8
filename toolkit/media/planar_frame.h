#pragma once

#include "media/libav.h"
#include "media/pixel_converter.h"

namespace framehold {

/// Format with a plane for each component, samples in native byte order, that keeps the depth and
/// the chroma samples of another: yuv420p for nv12, yuv420p10 for p010, gray10 for gray10. RGB
/// becomes 4:4:4; alpha is left out. None if there is no such format.
AVPixelFormat planarFormat(AVPixelFormat format);

/// The same of another depth in bits.
AVPixelFormat planarFormat(AVPixelFormat format, int depth);

/// Depth of a format's samples in bits; 0 for AV_PIX_FMT_NONE.
int depthOf(AVPixelFormat format);

/// Frame in the planar format of its own, with its properties; shares the samples of one that is
/// planar already. Nothing is lost, but for RGB, which becomes limited-range BT.709.
/// Throws std::runtime_error for a format that has none.
AvPtr<AVFrame> toPlanar(const AVFrame& frame, PixelConverter& converter);

}  // namespace framehold
