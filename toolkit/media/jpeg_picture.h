#pragma once

#include "media/av_handles.h"

#include <string>

namespace framehold {

/// A frame as a JPEG picture in a "data:" URL, for a page of its own. Wider ones are made smaller to
/// `largestWidth` pixels. Throws MediaError.
std::string jpegDataUrl(const AVFrame& frame, int largestWidth);

}  // namespace framehold
