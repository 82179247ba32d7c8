#pragma once

#include "media/av_handles.h"

#include <string>

namespace framehold {

/// Writes a two-plane 4:2:0 frame as a PNG file, which appears under its name when it is complete.
/// Throws MediaError.
void writePng(const std::string& path, const AVFrame& frame);

}  // namespace framehold
